#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

namespace sdbus {
class IConnection;
class IProxy;
} // namespace sdbus

namespace fexo::agent {

// Gives an app that a click started a scope of its own in the user's service manager
// ("app-fexo-<name>-<pid>.scope"), as desktop launchers do, so that it does not belong to the
// agent's service and is not stopped with it. Best effort: without a service manager on the bus
// the app stays where it started, and one that forked in the first instant may leave children
// behind in the agent's service.
// Thread rules: the thread that dispatches `connection`.
class AppScopes {
public:
    explicit AppScopes(sdbus::IConnection& connection);
    ~AppScopes();
    AppScopes(const AppScopes&) = delete;
    AppScopes& operator=(const AppScopes&) = delete;

    // Moves `pid` into a new scope named after `name` (letters, digits, '.', '-' and '_').
    void adopt(pid_t pid, const std::string& name);

private:
    std::unique_ptr<sdbus::IProxy> manager_;
};

} // namespace fexo::agent
