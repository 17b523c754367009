#include <FeXONotificationService/FeXOStoreError.hpp>

namespace fexo {

FeXOStoreError::FeXOStoreError(Code code, std::filesystem::path databasePath, std::string reason)
    : code_(code), databasePath_(std::move(databasePath)), reason_(std::move(reason))
{
}

std::string FeXOStoreError::localizedDescription() const
{
    return "The app group store \"" + databasePath_.string() + "\" could not be written (" + reason_ +
           "); the change was not kept.";
}

std::string FeXOStoreError::description() const
{
    return "Error Domain=" + std::string(domain) + " Code=" + std::to_string(static_cast<int>(code_)) + " \"" +
           localizedDescription() + "\" UserInfo={NSFilePath=" + databasePath_.string() + "}";
}

} // namespace fexo
