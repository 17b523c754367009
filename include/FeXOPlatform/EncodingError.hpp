#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>

#include <exception>
#include <string>
#include <vector>

namespace fexo {

// What the JSON encoder throws for a value that JSON cannot hold: a non-finite number or
// text that is not valid UTF-8.
class FEXO_EXPORT EncodingError : public ErrorBase, public std::exception {
public:
    // Its code in NSCocoaErrorDomain.
    static constexpr std::int64_t coderInvalidValue = 4866;

    // `value` is the textual form of the refused value.
    static EncodingError invalidValue(std::string value, std::string debugDescription);

    const std::string& value() const { return value_; }
    const std::vector<std::string>& codingPath() const { return codingPath_; }
    const std::string& debugDescription() const { return debugDescription_; }

    void prependPathComponent(std::string component);

    std::string localizedDescription() const override;
    std::string description() const override;
    std::string_view errorDomain() const override { return NSCocoaErrorDomain; }
    std::int64_t errorCode() const override { return coderInvalidValue; }
    const char* what() const noexcept override { return description_.c_str(); }

private:
    EncodingError(std::string value, std::string debugDescription);
    void refreshDescription();

    std::string value_;
    std::vector<std::string> codingPath_;
    std::string debugDescription_;
    std::string description_;
};

} // namespace fexo
