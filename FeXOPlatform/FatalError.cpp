#include <FeXOPlatform/FatalError.hpp>

#include <cstdlib>
#include <string>
#include <unistd.h>

#ifdef FEXO_COVERAGE
extern "C" void __gcov_dump(void);
#endif

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
#ifdef FEXO_COVERAGE
    // An aborted process writes no line counts; without these, the paths that end the process
    // would count as never run, however many tests run them.
    __gcov_dump();
#endif
    std::abort();
}

} // namespace fexo
