#include <FeXOPlatform/StandardOutput.hpp>

#include <cerrno>
#include <string>
#include <unistd.h>

namespace fexo {

namespace {

void writeLine(int descriptor, std::string_view text)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string line;
    line.reserve(text.size() + 1);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool c1 = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                        static_cast<unsigned char>(text[i + 1]) <= 0x9F;
        if (byte >= 0x20 && byte != 0x7F && !c1) {
            line.push_back(text[i]);
            continue;
        }
        for (int j = 0; j < (c1 ? 2 : 1); ++j) {
            const auto escaped = static_cast<unsigned char>(text[i + j]);
            line += {'\\', 'x', digits[escaped >> 4], digits[escaped & 0xF]};
        }
        if (c1) ++i;
    }
    line.push_back('\n');
    const char* p = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t n = ::write(descriptor, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

} // namespace

void printLine(std::string_view text)
{
    writeLine(STDOUT_FILENO, text);
}

void printErrorLine(std::string_view text)
{
    writeLine(STDERR_FILENO, text);
}

} // namespace fexo
