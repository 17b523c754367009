#include <FeXONotificationService/Payloadable.hpp>

#include <FeXOPlatform/DecodingError.hpp>
#include <FeXOPlatform/EncodingError.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>
#include <FeXOPlatform/StandardOutput.hpp>

namespace fexo {

Payloadable::~Payloadable() = default;

std::optional<std::string> Payloadable::payload() const
{
    try {
        nlohmann::json record;
        encode(record);
        // Reading the text back as a JSON object and writing that out again gives the same
        // bytes (keys in the same sorted order, numbers in their shortest exact form, strings
        // escaped alike), so the text is written once.
        return JSONEncoder::serialize(record);
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
