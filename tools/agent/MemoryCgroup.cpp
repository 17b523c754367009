#include <agent/MemoryCgroup.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace fexo::agent {

namespace {

bool writeFile(const std::filesystem::path& path, const std::string& text)
{
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0) return false;
    const bool written = ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(descriptor);
    return written;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// Where the unified hierarchy is mounted, from this process's mount table.
std::optional<std::filesystem::path> unifiedMount()
{
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        const auto separator = line.find(" - ");
        if (separator == std::string::npos || line.compare(separator + 3, 8, "cgroup2 ") != 0) continue;
        std::istringstream fields(line.substr(0, separator));
        std::string field, mountPoint;
        for (int i = 0; i < 5 && fields >> field; ++i)
            if (i == 4) mountPoint = field;
        if (!mountPoint.empty()) return std::filesystem::path(mountPoint);
    }
    return std::nullopt;
}

} // namespace

std::unique_ptr<MemoryCgroup> MemoryCgroup::delegated(std::string& reason)
{
    const auto mount = unifiedMount();
    if (!mount) {
        reason = "no cgroup v2 hierarchy";
        return nullptr;
    }
    std::ifstream membership("/proc/self/cgroup");
    std::string own;
    for (std::string line; std::getline(membership, line);)
        if (line.starts_with("0::")) own = line.substr(3);
    if (own.empty() || own == "/") {
        reason = "this process is in the root cgroup, which is not delegated";
        return nullptr;
    }
    const auto path = *mount / own.substr(1);
    struct stat status { };
    if (::stat(path.c_str(), &status) != 0 || status.st_uid != ::getuid() ||
        ::access((path / "cgroup.subtree_control").c_str(), W_OK) != 0) {
        reason = "the cgroup " + path.string() + " is not delegated to this user";
        return nullptr;
    }
    if (readFile(path / "cgroup.controllers").find("memory") == std::string::npos) {
        reason = "the memory controller is not delegated to " + path.string();
        return nullptr;
    }
    // A cgroup with processes of its own cannot enable controllers for its children.
    std::error_code error;
    std::filesystem::create_directory(path / "agent", error);
    if (error || !writeFile(path / "agent" / "cgroup.procs", std::to_string(::getpid())) ||
        !writeFile(path / "cgroup.subtree_control", "+memory")) {
        reason = "cannot enable the memory controller under " + path.string();
        return nullptr;
    }
    return std::unique_ptr<MemoryCgroup>(new MemoryCgroup(path));
}

std::unique_ptr<MemoryCgroup::Leaf> MemoryCgroup::makeLeaf(const std::string& name, std::size_t bytes) const
{
    const auto leaf = path_ / ("extension-" + name);
    if (::mkdir(leaf.c_str(), 0755) != 0) return nullptr;
    writeFile(leaf / "memory.swap.max", "0"); // absent without swap accounting: nothing to limit then
    const int procs = ::open((leaf / "cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
    if (!writeFile(leaf / "memory.max", std::to_string(bytes)) || procs < 0) {
        if (procs >= 0) ::close(procs);
        ::rmdir(leaf.c_str());
        return nullptr;
    }
    return std::unique_ptr<Leaf>(new Leaf(leaf, procs));
}

bool MemoryCgroup::Leaf::killedAtMemoryLimit() const
{
    std::istringstream events(readFile(path_ / "memory.events"));
    std::string key;
    long long count = 0;
    while (events >> key >> count)
        if (key == "oom_kill" && count > 0) return true;
    return false;
}

MemoryCgroup::Leaf::~Leaf()
{
    ::close(procs_);
    writeFile(path_ / "cgroup.kill", "1");
    // The kill is asynchronous: the directory can be removed once its last process is gone.
    for (int attempt = 0; attempt < 200 && ::rmdir(path_.c_str()) != 0 && errno == EBUSY; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

} // namespace fexo::agent
