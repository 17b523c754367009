#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace fexo {

// A change of the app group's store that the store refused (no space, no permission, a read-only
// file system, a lock held past every wait, a damaged file): the store is as it was before the
// change. A domain of the library's own, FeXOStoreErrorDomain.
class FEXO_EXPORT FeXOStoreError : public ErrorBase {
public:
    static constexpr std::string_view domain = "FeXOStoreErrorDomain";
    enum Code : int {
        changeNotKept = 1,
    };

    // `reason` is SQLite's words for why the store refused the change.
    FeXOStoreError(Code code, std::filesystem::path databasePath, std::string reason);

    Code code() const { return code_; }
    const std::filesystem::path& databasePath() const { return databasePath_; }
    const std::string& reason() const { return reason_; }

    // `The app group store "<file>" could not be written (<reason>); the change was not kept.`
    std::string localizedDescription() const override;
    // `Error Domain=FeXOStoreErrorDomain Code=1 "<description>" UserInfo={NSFilePath=<file>}`
    std::string description() const override;
    std::string_view errorDomain() const override { return domain; }
    std::int64_t errorCode() const override { return code_; }

private:
    Code code_;
    std::filesystem::path databasePath_;
    std::string reason_;
};

} // namespace fexo
