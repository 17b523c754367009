#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace sdbus {
class IConnection;
class IObject;
} // namespace sdbus

namespace fexo::agent {

// The app's unread count on its launcher icon: com.canonical.Unity.LauncherEntry's Update signal
// for "application://<desktop entry id>.desktop" with {"count": int64, "count-visible": bool}, as
// KDE Plasma, Dash to Dock and Ubuntu's dock read it. They drop the badge when the sender's
// connection goes, so a new agent publishes it again at start. Query answers the same for a dock
// that starts later.
// Thread rules: the thread that dispatches `connection`.
class LauncherBadge {
public:
    LauncherBadge(sdbus::IConnection& connection, std::string desktopEntry);
    ~LauncherBadge();
    LauncherBadge(const LauncherBadge&) = delete;
    LauncherBadge& operator=(const LauncherBadge&) = delete;

    // Publishes `unread` when it differs from what was published last (always the first time).
    void publish(std::uint64_t unread);

private:
    std::string applicationURI_;
    std::unique_ptr<sdbus::IObject> object_;
    std::optional<std::uint64_t> published_;
};

} // namespace fexo::agent
