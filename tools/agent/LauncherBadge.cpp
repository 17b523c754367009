#include <agent/LauncherBadge.hpp>

#include <sdbus-c++/sdbus-c++.h>

#include <map>

namespace fexo::agent {

namespace {

constexpr const char* launcherInterface = "com.canonical.Unity.LauncherEntry";
constexpr const char* badgePath = "/org/fexo/NotificationAgent1/LauncherEntry";

std::map<std::string, sdbus::Variant> properties(std::uint64_t unread)
{
    return {{"count", sdbus::Variant(static_cast<std::int64_t>(unread))},
            {"count-visible", sdbus::Variant(unread > 0)}};
}

} // namespace

LauncherBadge::LauncherBadge(sdbus::IConnection& connection, std::string desktopEntry)
    : applicationURI_("application://" + desktopEntry + ".desktop")
{
    object_ = sdbus::createObject(connection, badgePath);
    object_->registerSignal("Update")
        .onInterface(launcherInterface)
        .withParameters<std::string, std::map<std::string, sdbus::Variant>>("app_uri", "properties");
    object_->registerMethod("Query")
        .onInterface(launcherInterface)
        .withOutputParamNames("app_uri", "properties")
        .implementedAs([this] { return std::make_tuple(applicationURI_, properties(published_.value_or(0))); });
    object_->finishRegistration();
}

LauncherBadge::~LauncherBadge() = default;

void LauncherBadge::publish(std::uint64_t unread)
{
    if (published_ == unread) return;
    published_ = unread;
    object_->emitSignal("Update").onInterface(launcherInterface).withArguments(applicationURI_, properties(unread));
}

} // namespace fexo::agent
