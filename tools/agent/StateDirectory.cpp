#include <agent/StateDirectory.hpp>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace fexo::agent {

std::optional<std::filesystem::path> StateDirectory::location()
{
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/') return std::filesystem::path(state) / "fexo" / "agent";
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') {
        const passwd* user = ::getpwuid(::getuid());
        home = user != nullptr ? user->pw_dir : nullptr;
    }
    if (home == nullptr || home[0] != '/') return std::nullopt;
    return std::filesystem::path(home) / ".local" / "state" / "fexo" / "agent";
}

bool StateDirectory::prepare(std::string& reason)
{
    // Each missing folder on the way is made 0700; the two that are the agent's own are kept 0700.
    std::filesystem::path made;
    const auto own = path_.parent_path(); // …/fexo
    for (const auto& part : path_) {
        made /= part;
        if (::mkdir(made.c_str(), 0700) != 0 && errno != EEXIST) {
            reason = "cannot make " + made.string() + ": " + std::strerror(errno);
            return false;
        }
    }
    for (const auto& folder : {own, path_}) {
        struct stat status { };
        if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            reason = folder.string() + " is not a folder";
            return false;
        }
        if ((status.st_mode & 077) != 0 && status.st_uid == ::getuid()) ::chmod(folder.c_str(), 0700);
    }
    return true;
}

bool StateDirectory::lock(std::string& reason)
{
    const auto file = path_ / "agent.lock";
    lock_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock_ < 0) {
        reason = "cannot open " + file.string() + ": " + std::strerror(errno);
        return false;
    }
    if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
        heldElsewhere_ = errno == EWOULDBLOCK;
        reason = heldElsewhere_ ? "another agent already serves this user (it holds " + file.string() + ")"
                                : "cannot lock " + file.string() + ": " + std::strerror(errno);
        ::close(lock_);
        lock_ = -1;
        return false;
    }
    return true;
}

StateDirectory::~StateDirectory()
{
    if (lock_ >= 0) ::close(lock_);
}

} // namespace fexo::agent
