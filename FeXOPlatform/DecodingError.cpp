#include <FeXOPlatform/DecodingError.hpp>

#include <utility>

namespace fexo {

namespace {

std::string quoted(const std::string& text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out.push_back('\\');
        out.push_back(c);
    }
    out.push_back('"');
    return out;
}

} // namespace

DecodingError::DecodingError(Kind kind, std::string subject, std::string debugDescription)
    : kind_(kind), subject_(std::move(subject)), debugDescription_(std::move(debugDescription))
{
    refreshDescription();
}

DecodingError DecodingError::typeMismatch(std::string type, std::string debugDescription)
{
    return {Kind::typeMismatch, std::move(type), std::move(debugDescription)};
}

DecodingError DecodingError::valueNotFound(std::string type, std::string debugDescription)
{
    return {Kind::valueNotFound, std::move(type), std::move(debugDescription)};
}

DecodingError DecodingError::keyNotFound(std::string key, std::string debugDescription)
{
    return {Kind::keyNotFound, std::move(key), std::move(debugDescription)};
}

DecodingError DecodingError::dataCorrupted(std::string debugDescription)
{
    return {Kind::dataCorrupted, {}, std::move(debugDescription)};
}

void DecodingError::prependPathComponent(std::string component)
{
    codingPath_.insert(codingPath_.begin(), std::move(component));
    refreshDescription();
}

std::string DecodingError::localizedDescription() const
{
    switch (kind_) {
    case Kind::keyNotFound:
    case Kind::valueNotFound:
        return "The data couldn\u2019t be read because it is missing.";
    case Kind::typeMismatch:
    case Kind::dataCorrupted:
        break;
    }
    return "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
}

std::int64_t DecodingError::errorCode() const
{
    return kind_ == Kind::keyNotFound || kind_ == Kind::valueNotFound ? coderValueNotFound : coderReadCorrupt;
}

std::string DecodingError::description() const
{
    return description_;
}

void DecodingError::refreshDescription()
{
    std::string path = "[";
    for (std::size_t i = 0; i < codingPath_.size(); ++i) {
        if (i > 0) path += ", ";
        path += quoted(codingPath_[i]);
    }
    path += "]";
    const std::string context =
        "Context(codingPath: " + path + ", debugDescription: " + quoted(debugDescription_) + ")";
    switch (kind_) {
    case Kind::typeMismatch:
        description_ = "typeMismatch(" + subject_ + ", " + context + ")";
        break;
    case Kind::valueNotFound:
        description_ = "valueNotFound(" + subject_ + ", " + context + ")";
        break;
    case Kind::keyNotFound:
        description_ = "keyNotFound(" + quoted(subject_) + ", " + context + ")";
        break;
    case Kind::dataCorrupted:
        description_ = "dataCorrupted(" + context + ")";
        break;
    }
}

} // namespace fexo
