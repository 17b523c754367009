#include <FeXOPlatform/UUID.hpp>

#include <FeXOPlatform/FatalError.hpp>

#include <cerrno>
#include <sys/random.h>

namespace fexo {

UUID::UUID()
{
    std::size_t filled = 0;
    while (filled < bytes_.size()) {
        const ssize_t n = ::getrandom(bytes_.data() + filled, bytes_.size() - filled, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            fatalError("no random source for UUID");
        }
        filled += static_cast<std::size_t>(n);
    }
    bytes_[6] = static_cast<std::uint8_t>((bytes_[6] & 0x0F) | 0x40); // version 4
    bytes_[8] = static_cast<std::uint8_t>((bytes_[8] & 0x3F) | 0x80); // RFC 4122 variant
}

std::string UUID::uuidString() const
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text.push_back(digits[bytes_[i] >> 4]);
        text.push_back(digits[bytes_[i] & 0x0F]);
    }
    return text;
}

} // namespace fexo
