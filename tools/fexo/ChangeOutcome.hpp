#pragma once

#include <FeXOPlatform/Result.hpp>

namespace fexo::tool {

// The exit status of a command whose change the store kept (0) or refused (1). A refusal has
// already been said, in one line on standard error, by the library itself.
inline int exitStatus(const Result<void>& kept)
{
    return kept.isSuccess() ? 0 : 1;
}

} // namespace fexo::tool
