#pragma once

#include <string>

namespace fexo {

// The device the process runs on.
class UIDevice {
public:
    static const UIDevice& current();

    // The running system's version text: VERSION_ID of os-release (/etc/os-release, else
    // /usr/lib/os-release), else the kernel release. Read once, on first use; thread-safe.
    const std::string& systemVersion() const;

private:
    UIDevice() = default;
};

} // namespace fexo
