#include <FeXOPlatform/EncodingError.hpp>

#include <utility>

namespace fexo {

EncodingError::EncodingError(std::string value, std::string debugDescription)
    : value_(std::move(value)), debugDescription_(std::move(debugDescription))
{
    refreshDescription();
}

EncodingError EncodingError::invalidValue(std::string value, std::string debugDescription)
{
    return {std::move(value), std::move(debugDescription)};
}

void EncodingError::prependPathComponent(std::string component)
{
    codingPath_.insert(codingPath_.begin(), std::move(component));
    refreshDescription();
}

std::string EncodingError::localizedDescription() const
{
    return "The data couldn\u2019t be written because it isn\u2019t in the correct format.";
}

std::string EncodingError::description() const
{
    return description_;
}

void EncodingError::refreshDescription()
{
    std::string path = "[";
    for (std::size_t i = 0; i < codingPath_.size(); ++i) {
        if (i > 0) path += ", ";
        path += "\"" + codingPath_[i] + "\"";
    }
    path += "]";
    description_ = "invalidValue(" + value_ + ", Context(codingPath: " + path + ", debugDescription: \"" +
                   debugDescription_ + "\"))";
}

} // namespace fexo
