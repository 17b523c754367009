#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace fexo::agent {

// The cgroup (v2) subtree that the user's service manager delegated to this process, used to
// give each extension process a cgroup of its own whose memory.max the kernel enforces.
// Thread rules: after delegated() returns, every member may be called from any thread.
class MemoryCgroup {
public:
    // Prepares the delegated subtree: moves this process into a leaf of its own ("agent") and
    // enables the memory controller for the children. Nothing when this process's cgroup is the
    // root, is not ours to write, or has no memory controller; `reason` then says why.
    static std::unique_ptr<MemoryCgroup> delegated(std::string& reason);

    // One extension's cgroup, created with memory.max = `bytes` and no swap. Removed (after
    // every process left in it is killed) when the object goes away.
    class Leaf {
    public:
        Leaf(const Leaf&) = delete;
        Leaf& operator=(const Leaf&) = delete;
        ~Leaf();
        // Open for writing "0" into cgroup.procs from the child between fork and exec.
        int processesDescriptor() const { return procs_; }
        // Whether the kernel killed a process of this cgroup for passing memory.max.
        bool killedAtMemoryLimit() const;

    private:
        friend class MemoryCgroup;
        explicit Leaf(std::filesystem::path path, int procs) : path_(std::move(path)), procs_(procs) { }
        std::filesystem::path path_;
        int procs_ = -1;
    };

    // A new leaf named after `name`; nothing when it cannot be made.
    std::unique_ptr<Leaf> makeLeaf(const std::string& name, std::size_t bytes) const;

    const std::filesystem::path& path() const { return path_; }

private:
    explicit MemoryCgroup(std::filesystem::path path) : path_(std::move(path)) { }
    std::filesystem::path path_;
};

} // namespace fexo::agent
