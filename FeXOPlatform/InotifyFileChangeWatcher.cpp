#include <FeXOPlatform/InotifyFileChangeWatcher.hpp>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>

namespace fexo {

std::unique_ptr<FileChangeWatcher> FileChangeWatcher::make()
{
    const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotify < 0) return nullptr;
    const int wakeup = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeup < 0) {
        ::close(inotify);
        return nullptr;
    }
    return std::make_unique<InotifyFileChangeWatcher>(inotify, wakeup);
}

InotifyFileChangeWatcher::InotifyFileChangeWatcher(int inotify, int wakeup) : inotify_(inotify), wakeup_(wakeup)
{
}

InotifyFileChangeWatcher::~InotifyFileChangeWatcher()
{
    ::close(inotify_);
    ::close(wakeup_);
}

std::optional<FileChangeWatcher::Watch> InotifyFileChangeWatcher::add(const std::filesystem::path& path)
{
    std::lock_guard lock(mutex_);
    // Writes (the signal) and touches; IN_DONT_FOLLOW keeps a link from redirecting the watch.
    const int watch = ::inotify_add_watch(inotify_, path.c_str(), IN_MODIFY | IN_ATTRIB | IN_DONT_FOLLOW);
    if (watch < 0) return std::nullopt;
    ++uses_[watch];
    return watch;
}

void InotifyFileChangeWatcher::remove(Watch watch)
{
    std::lock_guard lock(mutex_);
    const auto found = uses_.find(watch);
    if (found == uses_.end() || --found->second > 0) return;
    uses_.erase(found);
    ::inotify_rm_watch(inotify_, watch);
}

std::vector<FileChangeWatcher::Watch> InotifyFileChangeWatcher::wait()
{
    pollfd descriptors[2] = {{inotify_, POLLIN, 0}, {wakeup_, POLLIN, 0}};
    while (::poll(descriptors, 2, -1) < 0 && errno == EINTR) { }
    if ((descriptors[1].revents & POLLIN) != 0) {
        std::uint64_t wakes = 0;
        (void)::read(wakeup_, &wakes, sizeof wakes);
    }

    // A read returns as many whole events as fit: one that leaves room for the largest event took
    // every event queued, and the wake is on the observer's path, so no read to learn EAGAIN.
    constexpr std::size_t largestEvent = sizeof(inotify_event) + NAME_MAX + 1;
    std::vector<Watch> written;
    alignas(inotify_event) char buffer[16 * 1024];
    for (bool more = (descriptors[0].revents & POLLIN) != 0; more;) {
        const ssize_t size = ::read(inotify_, buffer, sizeof buffer);
        if (size <= 0) break; // EAGAIN: every pending event read
        more = static_cast<std::size_t>(size) > sizeof buffer - largestEvent;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            if ((event->mask & (IN_MODIFY | IN_ATTRIB)) != 0 &&
                std::find(written.begin(), written.end(), event->wd) == written.end()) {
                written.push_back(event->wd);
            }
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return written;
}

void InotifyFileChangeWatcher::wake()
{
    const std::uint64_t one = 1;
    (void)::write(wakeup_, &one, sizeof one);
}

} // namespace fexo
