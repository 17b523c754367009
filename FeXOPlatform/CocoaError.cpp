#include <FeXOPlatform/CocoaError.hpp>

namespace fexo {

CocoaError::CocoaError(Code code, std::string debugDescription)
    : code_(code), debugDescription_(std::move(debugDescription))
{
    description_ = "Error Domain=" + std::string(NSCocoaErrorDomain) +
                   " Code=" + std::to_string(static_cast<int>(code_)) + " \"" + localizedDescription() +
                   "\" UserInfo={NSDebugDescription=" + debugDescription_ + "}";
}

std::string CocoaError::localizedDescription() const
{
    if (code_ == propertyListWriteInvalid) {
        return "The data couldn\u2019t be written because it isn\u2019t in the correct format.";
    }
    return "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
}

std::string CocoaError::description() const
{
    return description_;
}

} // namespace fexo
