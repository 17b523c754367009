#pragma once

#include <FeXOPlatform/Error.hpp>
#include <FeXOPlatform/Export.hpp>

#include <exception>
#include <string>
#include <vector>

namespace fexo {

// What the JSON decoder throws, and what a failed decode carries across a Result.
// The coding path lists the keys from the top-level value down to the offending value;
// array elements appear as "Index N".
class FEXO_EXPORT DecodingError : public ErrorBase, public std::exception {
public:
    enum class Kind {
        typeMismatch,  // a value of another JSON kind than the field's
        valueNotFound, // null where a value is required
        keyNotFound,   // a required key is absent
        dataCorrupted, // not JSON at all, or a value out of the field's range
    };

    // Its codes in NSCocoaErrorDomain: a value that is missing (keyNotFound, valueNotFound), or
    // one that cannot be read (typeMismatch, dataCorrupted).
    static constexpr std::int64_t coderValueNotFound = 4865;
    static constexpr std::int64_t coderReadCorrupt = 4864;

    static DecodingError typeMismatch(std::string type, std::string debugDescription);
    static DecodingError valueNotFound(std::string type, std::string debugDescription);
    static DecodingError keyNotFound(std::string key, std::string debugDescription);
    static DecodingError dataCorrupted(std::string debugDescription);

    Kind kind() const { return kind_; }
    // The expected type (typeMismatch, valueNotFound) or the missing key (keyNotFound);
    // empty for dataCorrupted.
    const std::string& subject() const { return subject_; }
    const std::vector<std::string>& codingPath() const { return codingPath_; }
    const std::string& debugDescription() const { return debugDescription_; }

    // Used while unwinding out of a nested value: puts the enclosing key in front.
    void prependPathComponent(std::string component);

    std::string localizedDescription() const override;
    std::string description() const override;
    std::string_view errorDomain() const override { return NSCocoaErrorDomain; }
    std::int64_t errorCode() const override;
    const char* what() const noexcept override { return description_.c_str(); }

private:
    DecodingError(Kind kind, std::string subject, std::string debugDescription);
    void refreshDescription();

    Kind kind_;
    std::string subject_;
    std::vector<std::string> codingPath_;
    std::string debugDescription_;
    std::string description_;
};

} // namespace fexo
