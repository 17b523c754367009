#include <FeXONotificationService/Payload.hpp>
#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONSerialization.hpp>

#include <gtest/gtest.h>

#include <functional>

namespace {

using fexo::DecodingError;

// Every decoder of outside input (records, registration answers, push payloads, user-info)
// shares the parse: malformed text, and anything but whitespace after the value, NUL included.
TEST(JSONCoding, MalformedTextOrAnythingButWhitespaceAfterTheValueIsDataCorrupted)
{
    const std::string nul(1, '\0');
    const std::function<void(const std::string&)> decoders[] = {
        [](const std::string& t) { (void)fexo::JSONDecoder{}.decode<fexo::Response>(t); },
        [](const std::string& t) { (void)fexo::JSONDecoder{}.decode<fexo::RegisterDeviceModel>(t); },
        [](const std::string& t) { (void)fexo::JSONDecoder{}.decode<fexo::Payload>(t); },
    };
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("{\"id\":\"\xff\"}"), std::string("{\"id\":1e999}"),
          std::string(100000, '['), "{}" + nul, "{\"id\":\"w1\"}" + nul + "garbage", std::string("{} x")}) {
        for (const auto& decode : decoders) {
            try {
                decode(text);
                ADD_FAILURE() << "decoded: " << text.substr(0, 20);
            } catch (const DecodingError& error) {
                EXPECT_EQ(error.kind(), DecodingError::Kind::dataCorrupted);
            }
        }
        EXPECT_THROW(fexo::JSONSerialization::jsonObject(text), fexo::CocoaError);
    }
    EXPECT_EQ(fexo::JSONDecoder{}.decode<fexo::Response>(" {\"id\":\"w1\"}\r\n\t ").id, "w1");
}

} // namespace
