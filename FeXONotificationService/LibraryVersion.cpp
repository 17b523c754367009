#include <FeXONotificationService/LibraryVersion.hpp>

namespace fexo {

std::string_view libraryVersion() noexcept
{
    // Compiled into the library: the version of the library itself, whatever headers a host
    // app was built with.
    return FEXO_VERSION_STRING;
}

} // namespace fexo
