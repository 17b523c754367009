#include <FeXOPlatform/StoreChangeSignal.hpp>

#include <fcntl.h>
#include <unistd.h>

namespace fexo {

std::filesystem::path StoreChangeSignal::pathFor(const std::filesystem::path& databasePath)
{
    auto path = databasePath;
    path += "-changed";
    return path;
}

StoreChangeSignal::StoreChangeSignal(const std::filesystem::path& databasePath)
    : descriptor_(::open(pathFor(databasePath).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600))
{
}

StoreChangeSignal::~StoreChangeSignal()
{
    if (descriptor_ >= 0) ::close(descriptor_);
}

void StoreChangeSignal::raise() const
{
    // Always at offset 0, so the file stays one byte long whatever the number of commits.
    if (descriptor_ >= 0) (void)::pwrite(descriptor_, "\n", 1, 0);
}

} // namespace fexo
