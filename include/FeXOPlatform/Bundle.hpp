#pragma once

#include <FeXOPlatform/Export.hpp>

#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>

namespace fexo {

// The application's resources. Resources are looked up in one directory: the one set in code
// with setResourcesDirectory(), else $FEXO_RESOURCES_DIR, else the directory of the running
// executable. Thread-safe.
class FEXO_EXPORT Bundle {
public:
    static Bundle& main();

    // The path of "<name>.<type>" in the resources directory, or nothing when no regular
    // file of that name is there.
    std::optional<std::filesystem::path> pathForResource(std::string_view name, std::string_view type) const;

    void setResourcesDirectory(std::filesystem::path directory);
    // The directory lookups use now (see the class comment); empty when none can be found.
    std::filesystem::path resourcesDirectory() const;

private:
    Bundle() = default;

    mutable std::mutex mutex_;
    std::optional<std::filesystem::path> resourcesDirectory_;
};

} // namespace fexo
