#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>

#include <exception>
#include <string>

namespace fexo {

// An error of the platform's general domain, as JSONSerialization reports it.
class FEXO_EXPORT CocoaError : public ErrorBase, public std::exception {
public:
    enum Code : int {
        propertyListReadCorrupt = 3840,  // JSON text that cannot be read
        propertyListWriteInvalid = 3851, // a value that JSON cannot hold
    };

    CocoaError(Code code, std::string debugDescription);

    Code code() const { return code_; }
    const std::string& debugDescription() const { return debugDescription_; }

    std::string localizedDescription() const override;
    std::string description() const override;
    std::string_view errorDomain() const override { return NSCocoaErrorDomain; }
    std::int64_t errorCode() const override { return code_; }
    const char* what() const noexcept override { return description_.c_str(); }

private:
    Code code_;
    std::string debugDescription_;
    std::string description_;
};

} // namespace fexo
