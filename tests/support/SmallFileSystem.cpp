#include <support/SmallFileSystem.hpp>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace fexo::test {

std::unique_ptr<SmallFileSystem> SmallFileSystem::mount(std::size_t bytes, std::string& whyNot)
{
    std::unique_ptr<SmallFileSystem> mounted(new SmallFileSystem());
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0700";
    if (::mount("tmpfs", mounted->path().c_str(), "tmpfs", 0, options.c_str()) != 0) {
        whyNot = std::string("cannot mount a tmpfs (") + std::strerror(errno) + "): run as root";
        return nullptr; // the unmount of nothing fails harmlessly; the folder goes
    }
    return mounted;
}

SmallFileSystem::~SmallFileSystem()
{
    // The folder's own removal then finds it empty.
    ::umount2(path().c_str(), MNT_DETACH);
}

void SmallFileSystem::fill() const
{
    const int fd = ::open((path() / "filler").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) throw std::runtime_error("cannot make the filler file");
    const std::vector<char> block(4096, 'f');
    while (::write(fd, block.data(), block.size()) > 0) { }
    const bool full = errno == ENOSPC;
    while (::write(fd, block.data(), 1) > 0) { } // the last partial block
    ::close(fd);
    if (!full) throw std::runtime_error("the filler stopped short of a full file system");
}

void SmallFileSystem::freeSpace() const
{
    std::filesystem::remove(path() / "filler");
}

void SmallFileSystem::remount(bool readOnly) const
{
    const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
    if (::mount("tmpfs", path().c_str(), "tmpfs", flags, nullptr) != 0)
        throw std::runtime_error(std::string("cannot remount: ") + std::strerror(errno));
}

} // namespace fexo::test
