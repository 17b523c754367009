// Records are JSON-coded with the platform-shaped coders: decodes a notification record as
// the server sends and the store keeps it, encodes it back, and shows what a malformed one
// reports. Exit status 0 when the round trip holds.
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <iostream>
#include <string>

int main()
{
    const std::string bytes = R"({"createdAt":0,"data":{"text":"hi","sender":"Ann"},"isRead":false,"extra":1})";
    try {
        fexo::Response record = fexo::JSONDecoder{}.decode<fexo::Response>(bytes); // throws fexo::DecodingError
        std::string json = fexo::JSONEncoder{}.encode(record);
        std::cout << json << '\n';
        // Unknown keys are dropped; absent fields stay empty and are left out when encoding.
        if (!(fexo::JSONDecoder{}.decode<fexo::Response>(json) == record) || json.find("extra") != std::string::npos ||
            record.id || !record.data || record.data->text != "hi")
            return 1;
    } catch (const fexo::DecodingError& error) {
        std::cerr << error.description() << '\n';
        return 1;
    }
    try { // A value of the wrong type fails the whole record, naming the path of keys.
        fexo::JSONDecoder{}.decode<fexo::Response>(R"({"data":{"text":7}})");
        return 1;
    } catch (const fexo::DecodingError& error) {
        std::cout << error.localizedDescription() << '\n';
    }
    return 0;
}
