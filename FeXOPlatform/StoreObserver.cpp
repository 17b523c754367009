#include <FeXOPlatform/StoreObserver.hpp>

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include <FeXOPlatform/FileChangeWatcher.hpp>
#include <FeXOPlatform/StoreChangeSignal.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace fexo {

namespace {

// One run of the thread, from the first observation to the last. A new run may start while the
// previous one finishes its last callback (a removal from inside it), so each run keeps its own
// watcher and flag.
struct Run {
    std::shared_ptr<FileChangeWatcher> watcher;
    bool ending = false;
    std::thread::id thread;
};

struct Observation {
    std::shared_ptr<Run> run;
    FileChangeWatcher::Watch watch;
    std::shared_ptr<const std::function<void()>> onChange;
};

struct Registry {
    std::mutex mutex;
    std::condition_variable finished; // a callback returned
    std::map<StoreObserver::Token, Observation> observations;
    std::shared_ptr<Run> run;
    std::thread thread;
    StoreObserver::Token next = 1;
    StoreObserver::Token running = 0;
};

Registry& registry()
{
    static auto* shared = new Registry; // never destroyed: a detached last run may outlive statics
    return *shared;
}

void observe(std::shared_ptr<Run> run)
{
    auto& shared = registry();
    for (;;) {
        const auto written = run->watcher->wait();
        std::unique_lock lock(shared.mutex);
        if (run->ending) return;
        std::vector<StoreObserver::Token> due;
        for (const auto& [token, observation] : shared.observations) {
            if (observation.run == run &&
                std::find(written.begin(), written.end(), observation.watch) != written.end()) {
                due.push_back(token);
            }
        }
        for (const auto token : due) {
            const auto found = shared.observations.find(token);
            if (found == shared.observations.end()) continue; // removed by an earlier callback
            const auto onChange = found->second.onChange;
            shared.running = token;
            lock.unlock();
            (*onChange)();
            lock.lock();
            shared.running = 0;
            shared.finished.notify_all();
            if (run->ending) return;
        }
    }
}

} // namespace

StoreObserver::Token StoreObserver::add(const std::filesystem::path& databasePath, std::function<void()> onChange,
                                        std::string& whyNot)
{
    const auto signalPath = StoreChangeSignal::pathFor(databasePath);
    // Writers create the file on opening; an observer that comes first makes it.
    // One that exists already is watched as it is, where it cannot be opened for writing (a
    // read-only file system: nothing commits there, but watching is no failure).
    const int made = ::open(signalPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (made < 0) {
        const int failure = errno;
        struct stat status { };
        if (::lstat(signalPath.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            whyNot = signalPath.string() + ": " + std::strerror(failure);
            return 0;
        }
    } else {
        ::close(made);
    }

    auto& shared = registry();
    std::lock_guard lock(shared.mutex);
    if (!shared.run) {
        auto watcher = std::shared_ptr<FileChangeWatcher>(FileChangeWatcher::make());
        if (!watcher) {
            whyNot = std::string("no file watcher for this process: ") + std::strerror(errno) +
                     " (the user's inotify instances may be used up)";
            return 0;
        }
        auto run = std::make_shared<Run>();
        run->watcher = std::move(watcher);
        shared.run = run;
        shared.thread = std::thread(observe, run);
        run->thread = shared.thread.get_id();
    }
    const auto watch = shared.run->watcher->add(signalPath);
    if (!watch) {
        const int failure = errno;
        whyNot = signalPath.string() + ": cannot be watched: " + std::strerror(failure) +
                 (failure == ENOSPC ? " (no inotify watch left for this user)" : "");
        if (shared.observations.empty()) {
            // No observation was made: end the run that was started for it.
            shared.run->ending = true;
            shared.run->watcher->wake();
            shared.run.reset();
            shared.thread.detach();
        }
        return 0;
    }
    const Token token = shared.next++;
    shared.observations.emplace(
        token, Observation{shared.run, *watch, std::make_shared<const std::function<void()>>(std::move(onChange))});
    return token;
}

void StoreObserver::remove(Token token)
{
    auto& shared = registry();
    std::unique_lock lock(shared.mutex);
    const auto found = shared.observations.find(token);
    if (found == shared.observations.end()) return;
    const auto run = found->second.run;
    run->watcher->remove(found->second.watch);
    shared.observations.erase(found);

    const bool onObserverThread = std::this_thread::get_id() == run->thread;
    if (!onObserverThread) shared.finished.wait(lock, [&] { return shared.running != token; });

    if (!shared.observations.empty() || shared.run != run) return;
    // The last observation: this run ends.
    run->ending = true;
    run->watcher->wake();
    shared.run.reset();
    std::thread thread = std::move(shared.thread);
    lock.unlock();
    if (onObserverThread) {
        thread.detach(); // it returns as soon as the running callback does
    } else {
        thread.join();
    }
}

} // namespace fexo
