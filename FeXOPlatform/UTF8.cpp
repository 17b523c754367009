#include <FeXOPlatform/UTF8.hpp>

namespace fexo {

bool isValidUTF8(std::string_view text) noexcept
{
    while (!text.empty()) {
        const std::size_t length = decodeUTF8Character(text).length;
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

} // namespace fexo
