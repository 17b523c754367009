#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// Where app-group suites live and who may reach them.
//
// The root is $FEXO_APP_GROUPS_DIR, else $XDG_DATA_HOME/fexo/app-groups, else
// ~/.local/share/fexo/app-groups, read from the environment at each call. The root and its
// ancestors may be symbolic links (home folders often are): they belong to the user. The suite's
// own folder and its files must not be, since a link there could redirect the store elsewhere.

// A suite name is one path component: not empty, not "." or "..", without '/' or NUL.
bool isUsableSuiteName(std::string_view name);

// The root as the environment names it, not resolved; nothing when no variable gives one.
std::optional<std::filesystem::path> appGroupsRoot();

// Creates the root (missing folders 0700) and the suite's folder (0700), and returns the suite's
// folder under the root's resolved path. Nothing when the name is unusable, a folder cannot be
// made, or the suite's folder is anything but a real directory (a symbolic link included); then
// `whyNot` says so, naming the path and the system's reason ("<path>: Permission denied").
std::optional<std::filesystem::path> prepareSuiteFolder(std::string_view suiteName, std::string& whyNot);

// Why prepareSuiteFolder() would fail now, found without creating anything: the same rules, and
// for a folder that does not exist yet, the nearest existing one must be a folder this process
// may write into (which also tells a read-only file system, even to root). Nothing when it
// would succeed; the suite's folder, existing or not, is then in `folder`.
std::optional<std::string> whySuiteFolderCannotBePrepared(std::string_view suiteName, std::filesystem::path& folder);

// The suite's folder under the root's resolved path, creating nothing; nothing when the name is
// unusable or the root does not exist.
std::optional<std::filesystem::path> existingSuiteFolder(std::string_view suiteName);

} // namespace fexo
