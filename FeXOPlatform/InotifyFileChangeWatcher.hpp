#pragma once

#include <FeXOPlatform/FileChangeWatcher.hpp>

#include <map>
#include <mutex>

namespace fexo {

// The Linux watcher: one inotify descriptor for the files and one eventfd for wake(), waited on
// together by poll() with no time limit.
class InotifyFileChangeWatcher final : public FileChangeWatcher {
public:
    // Takes ownership of both descriptors.
    InotifyFileChangeWatcher(int inotify, int wakeup);
    ~InotifyFileChangeWatcher() override;
    InotifyFileChangeWatcher(const InotifyFileChangeWatcher&) = delete;
    InotifyFileChangeWatcher& operator=(const InotifyFileChangeWatcher&) = delete;

    std::optional<Watch> add(const std::filesystem::path& path) override;
    void remove(Watch watch) override;
    std::vector<Watch> wait() override;
    void wake() override;

private:
    int inotify_;
    int wakeup_;
    std::mutex mutex_;
    std::map<Watch, int> uses_;
};

} // namespace fexo
