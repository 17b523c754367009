#include <FeXOPlatform/JSONDecoder.hpp>

namespace fexo {

coding::Json JSONDecoder::parse(std::string_view data)
{
    try {
        return coding::Json::parse(data.begin(), data.end());
    } catch (const coding::Json::exception& error) {
        throw DecodingError::dataCorrupted(std::string("The given data was not valid JSON. ") + error.what());
    }
}

} // namespace fexo
