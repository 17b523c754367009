#include <FeXOPlatform/AppGroupFolders.hpp>

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace fexo {

namespace {

// Creates each missing folder of `path` with mode 0700; what exists is left as it is, links
// included. True when `path` then leads to a directory.
bool makeFolders(const std::filesystem::path& path)
{
    std::filesystem::path partial;
    for (const auto& component : path) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0700) == 0) {
            ::chmod(partial.c_str(), 0700); // the umask may have taken bits away
            continue;
        }
        if (errno != EEXIST) return false;
    }
    struct stat status { };
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

bool isUsableSuiteName(std::string_view name)
{
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

std::optional<std::filesystem::path> appGroupsRoot()
{
    const auto variable = [](const char* name) -> const char* {
        const char* value = std::getenv(name);
        return value != nullptr && *value != '\0' ? value : nullptr;
    };
    if (const char* root = variable("FEXO_APP_GROUPS_DIR")) return std::filesystem::path(root);
    if (const char* data = variable("XDG_DATA_HOME")) return std::filesystem::path(data) / "fexo" / "app-groups";
    if (const char* home = variable("HOME"))
        return std::filesystem::path(home) / ".local" / "share" / "fexo" / "app-groups";
    return std::nullopt;
}

std::optional<std::filesystem::path> prepareSuiteFolder(std::string_view suiteName)
{
    const auto root = appGroupsRoot();
    if (!isUsableSuiteName(suiteName) || !root || !makeFolders(*root)) return std::nullopt;
    // The store's files are opened refusing links anywhere in their path, so the links of the
    // root are resolved here, once, and only the suite's part is left to check.
    std::error_code error;
    const auto resolved = std::filesystem::canonical(*root, error);
    if (error) return std::nullopt;
    auto folder = resolved / std::string(suiteName);
    if (::mkdir(folder.c_str(), 0700) == 0) {
        ::chmod(folder.c_str(), 0700);
    } else if (errno != EEXIST) {
        return std::nullopt;
    }
    struct stat status { };
    if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return std::nullopt;
    return folder;
}

std::optional<std::filesystem::path> existingSuiteFolder(std::string_view suiteName)
{
    const auto root = appGroupsRoot();
    if (!isUsableSuiteName(suiteName) || !root) return std::nullopt;
    std::error_code error;
    const auto resolved = std::filesystem::canonical(*root, error);
    if (error) return std::nullopt;
    return resolved / std::string(suiteName);
}

} // namespace fexo
