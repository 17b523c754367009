#pragma once

// Shared by the libFuzzer targets. A broken contract aborts with the failed expression, which
// libFuzzer reports as a crash and saves the input for.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#define FUZZ_REQUIRE(condition)                                                                                        \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: contract broken: %s\n", __FILE__, __LINE__, #condition);                      \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)

namespace fexo::fuzz {

inline std::string_view bytes(const std::uint8_t* data, std::size_t size)
{
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace fexo::fuzz
