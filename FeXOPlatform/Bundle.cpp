#include <FeXOPlatform/Bundle.hpp>

#include <cstdlib>
#include <string>
#include <system_error>

namespace fexo {

Bundle& Bundle::main()
{
    static Bundle* bundle = new Bundle(); // never destroyed: usable during static destruction
    return *bundle;
}

void Bundle::setResourcesDirectory(std::filesystem::path directory)
{
    std::lock_guard lock(mutex_);
    resourcesDirectory_ = std::move(directory);
}

std::filesystem::path Bundle::resourcesDirectory() const
{
    {
        std::lock_guard lock(mutex_);
        if (resourcesDirectory_) return *resourcesDirectory_;
    }
    if (const char* fromEnvironment = std::getenv("FEXO_RESOURCES_DIR"); fromEnvironment && *fromEnvironment) {
        return fromEnvironment;
    }
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return {};
    return executable.parent_path();
}

std::optional<std::filesystem::path> Bundle::pathForResource(std::string_view name, std::string_view type) const
{
    const auto directory = resourcesDirectory();
    if (directory.empty() || name.empty()) return std::nullopt;
    std::string fileName(name);
    if (!type.empty()) {
        fileName.push_back('.');
        fileName.append(type);
    }
    auto path = directory / fileName;
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
    return path;
}

} // namespace fexo
