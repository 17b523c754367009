#pragma once

#include <FeXOPlatform/Export.hpp>

#include <array>
#include <cstdint>
#include <string>

namespace fexo {

// A random (version 4) universally unique identifier.
class FEXO_EXPORT UUID {
public:
    // A new random identifier, from the system's cryptographic random source.
    UUID();

    // 36 characters: upper-case hexadecimal digits in groups of 8-4-4-4-12, joined by hyphens.
    std::string uuidString() const;

    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace fexo
