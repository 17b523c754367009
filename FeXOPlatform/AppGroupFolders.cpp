#include <FeXOPlatform/AppGroupFolders.hpp>

#include <sys/stat.h>

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

namespace fexo {

namespace {

std::string failure(const std::filesystem::path& path, int error)
{
    return path.string() + ": " + std::strerror(error);
}

// Creates each missing folder of `path` with mode 0700; what exists is left as it is, links
// included. True when `path` then leads to a directory; else `whyNot` says what failed.
bool makeFolders(const std::filesystem::path& path, std::string& whyNot)
{
    std::filesystem::path partial;
    for (const auto& component : path) {
        partial /= component;
        if (::mkdir(partial.c_str(), 0700) == 0) {
            ::chmod(partial.c_str(), 0700); // the umask may have taken bits away
            continue;
        }
        if (errno != EEXIST) {
            whyNot = failure(partial, errno);
            return false;
        }
    }
    struct stat status { };
    if (::stat(path.c_str(), &status) != 0) {
        whyNot = failure(path, errno);
        return false;
    }
    if (!S_ISDIR(status.st_mode)) whyNot = failure(path, ENOTDIR);
    return S_ISDIR(status.st_mode);
}

const char* const unusableName = "is not a usable app group name: it is empty, \".\" or \"..\", or holds \"/\" or NUL";
const char* const noRoot = "no folder for app groups: none of FEXO_APP_GROUPS_DIR, XDG_DATA_HOME and HOME is set";

// The root as the environment names it, for a usable suite name; nothing with `whyNot` set for
// an unusable name or an environment that names no root.
std::optional<std::filesystem::path> rootFor(std::string_view suiteName, std::string& whyNot)
{
    if (!isUsableSuiteName(suiteName)) {
        whyNot = "\"" + std::string(suiteName) + "\" " + unusableName;
        return std::nullopt;
    }
    auto root = appGroupsRoot();
    if (!root) whyNot = noRoot;
    return root;
}

// The suite's folder under the root resolved, creating nothing; nothing with `whyNot` set when
// the name is unusable or the root cannot be resolved (which includes a root not made yet, then
// `missingRoot` is set instead).
std::optional<std::filesystem::path> suiteFolder(std::string_view suiteName, std::string& whyNot,
                                                 std::filesystem::path* missingRoot)
{
    const auto root = rootFor(suiteName, whyNot);
    if (!root) return std::nullopt;
    std::error_code error;
    const auto resolved = std::filesystem::canonical(*root, error);
    if (error) {
        if (missingRoot != nullptr && error == std::errc::no_such_file_or_directory) {
            *missingRoot = *root;
            return std::filesystem::path(*root) / std::string(suiteName);
        }
        whyNot = root->string() + ": " + error.message();
        return std::nullopt;
    }
    return resolved / std::string(suiteName);
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

std::optional<std::filesystem::path> prepareSuiteFolder(std::string_view suiteName, std::string& whyNot)
{
    const auto root = rootFor(suiteName, whyNot);
    if (!root || !makeFolders(*root, whyNot)) return std::nullopt;
    // The store's files are opened refusing links anywhere in their path, so the links of the
    // root are resolved here, once, and only the suite's part is left to check.
    auto folder = suiteFolder(suiteName, whyNot, nullptr);
    if (!folder) return std::nullopt;
    if (::mkdir(folder->c_str(), 0700) == 0) {
        ::chmod(folder->c_str(), 0700);
    } else if (errno != EEXIST) {
        whyNot = failure(*folder, errno);
        return std::nullopt;
    }
    struct stat status { };
    if (::lstat(folder->c_str(), &status) != 0) {
        whyNot = failure(*folder, errno);
        return std::nullopt;
    }
    if (!S_ISDIR(status.st_mode)) {
        whyNot = folder->string() + ": is not a folder (a symbolic link or another file stands there)";
        return std::nullopt;
    }
    return folder;
}

std::optional<std::string> whySuiteFolderCannotBePrepared(std::string_view suiteName, std::filesystem::path& folder)
{
    std::string whyNot;
    std::filesystem::path missingRoot;
    const auto found = suiteFolder(suiteName, whyNot, &missingRoot);
    if (!found) return whyNot;
    folder = *found;
    struct stat status { };
    if (::lstat(folder.c_str(), &status) == 0) {
        if (!S_ISDIR(status.st_mode))
            return folder.string() + ": is not a folder (a symbolic link or another file stands there)";
        return std::nullopt;
    }
    if (errno != ENOENT) return failure(folder, errno);
    // Nothing there yet: the nearest folder that exists must take new entries.
    std::filesystem::path nearest = folder.parent_path();
    while (::stat(nearest.c_str(), &status) != 0) {
        if (errno != ENOENT || nearest == nearest.parent_path()) return failure(nearest, errno);
        nearest = nearest.parent_path();
    }
    if (!S_ISDIR(status.st_mode)) return failure(nearest, ENOTDIR);
    if (::access(nearest.c_str(), W_OK | X_OK) != 0) return failure(nearest, errno);
    return std::nullopt;
}

std::optional<std::filesystem::path> existingSuiteFolder(std::string_view suiteName)
{
    std::string whyNot;
    return suiteFolder(suiteName, whyNot, nullptr);
}

} // namespace fexo
