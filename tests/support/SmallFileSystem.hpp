#pragma once

#include <support/TemporaryDirectory.hpp>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace fexo::test {

// A tmpfs of a few MiB mounted on a fresh temporary folder for the object's life: a real file
// system that a test can fill to the last block or remount read-only. Mounting needs the
// privilege to (root, as in CI); without it mount() says why and the test skips.
class SmallFileSystem {
public:
    // Nothing, with the system's reason in `whyNot`, when the mount is refused.
    static std::unique_ptr<SmallFileSystem> mount(std::size_t bytes, std::string& whyNot);
    ~SmallFileSystem();
    SmallFileSystem(const SmallFileSystem&) = delete;
    SmallFileSystem& operator=(const SmallFileSystem&) = delete;

    const std::filesystem::path& path() const { return folder_.path(); }

    // Writes a filler file until the file system has no block left; freeSpace() removes it.
    void fill() const;
    void freeSpace() const;
    // Remounts in place; throws std::runtime_error when the system refuses.
    void remount(bool readOnly) const;

private:
    SmallFileSystem() = default;

    TemporaryDirectory folder_;
};

} // namespace fexo::test
