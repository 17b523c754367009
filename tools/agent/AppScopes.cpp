#include <agent/AppScopes.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <vector>

namespace fexo::agent {

namespace {

constexpr const char* managerInterface = "org.freedesktop.systemd1.Manager";

} // namespace

AppScopes::AppScopes(sdbus::IConnection& connection)
    : manager_(sdbus::createProxy(connection, "org.freedesktop.systemd1", "/org/freedesktop/systemd1"))
{
    manager_->finishRegistration();
}

AppScopes::~AppScopes() = default;

void AppScopes::adopt(pid_t pid, const std::string& name)
{
    using Property = sdbus::Struct<std::string, sdbus::Variant>;
    const std::vector<Property> properties{
        {"PIDs", sdbus::Variant(std::vector<std::uint32_t>{static_cast<std::uint32_t>(pid)})},
        {"CollectMode", sdbus::Variant(std::string("inactive-or-failed"))},
        {"Description", sdbus::Variant("Application " + name + " opened from a notification")}};
    const std::vector<sdbus::Struct<std::string, std::vector<Property>>> auxiliary;
    auto call = manager_->createMethodCall(managerInterface, "StartTransientUnit");
    call << "app-fexo-" + name + "-" + std::to_string(pid) + ".scope" << std::string("fail") << properties << auxiliary;
    try {
        // Without a service manager (or when it refuses) the app simply stays where it is.
        manager_->callMethod(
            call, [](sdbus::MethodReply&, const sdbus::Error*) {}, std::chrono::seconds(5));
    } catch (const sdbus::Error&) {
    }
}

} // namespace fexo::agent
