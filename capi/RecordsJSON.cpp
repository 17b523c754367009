#include <capi/RecordsJSON.hpp>

#include <FeXOPlatform/JSONEncoder.hpp>

namespace fexo::capi {

std::string recordsJSON(const std::vector<Response>& records)
{
    const JSONEncoder encoder;
    std::string json = "[";
    for (const auto& record : records) {
        if (json.size() > 1) json += ',';
        json += encoder.encode(record);
    }
    json += ']';
    return json;
}

} // namespace fexo::capi
