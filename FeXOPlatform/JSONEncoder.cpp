#include <FeXOPlatform/JSONEncoder.hpp>

namespace fexo {

std::string JSONEncoder::serialize(const coding::Json& value)
{
    try {
        return value.dump(-1, ' ', false, coding::Json::error_handler_t::strict);
    } catch (const coding::Json::exception& error) {
        throw EncodingError::invalidValue("String", std::string("Unable to encode the value as JSON: ") + error.what());
    }
}

} // namespace fexo
