#include <FeXONotificationService/Payloadable.hpp>

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/StandardOutput.hpp>

namespace fexo {

Payloadable::~Payloadable() = default;

std::optional<std::string> Payloadable::payload() const
{
    try {
        nlohmann::json record;
        encode(record);
        const std::string encoded = JSONEncoder::serialize(record);
        return JSONEncoder::serialize(JSONDecoder::parse(encoded));
    } catch (const EncodingError& error) {
        printLine(error.description());
    } catch (const DecodingError& error) {
        printLine(error.description());
    } catch (const std::exception& error) {
        printLine(error.what());
    }
    return std::nullopt;
}

} // namespace fexo
