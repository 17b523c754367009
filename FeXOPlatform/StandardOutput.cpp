#include <FeXOPlatform/StandardOutput.hpp>

#include <cerrno>
#include <string>
#include <unistd.h>

namespace fexo {

void printLine(std::string_view text)
{
    std::string line;
    line.reserve(text.size() + 1);
    line.append(text);
    line.push_back('\n');
    const char* p = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t n = ::write(STDOUT_FILENO, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        p += n;
        left -= static_cast<std::size_t>(n);
    }
}

} // namespace fexo
