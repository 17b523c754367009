#include <FeXOPlatform/FatalError.hpp>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace fexo {

void fatalError(std::string_view message)
{
    std::string line = "Fatal error: ";
    line.append(message);
    line.push_back('\n');
    // One write, so that the line is not interleaved with other threads' output.
    const char* p = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        ssize_t n = ::write(STDERR_FILENO, p, left);
        if (n <= 0) break;
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    std::abort();
}

} // namespace fexo
