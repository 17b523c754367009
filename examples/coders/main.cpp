// Decodes a notification record with the installed public headers and encodes it back.
#include <FeXONotificationService/Response.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <iostream>

int main()
{
    const std::string input = R"({"createdAt":0,"data":{"text":"hi"},"isRead":false,"extra":1})";
    try {
        const auto record = fexo::JSONDecoder{}.decode<fexo::Response>(input);
        const std::string output = fexo::JSONEncoder{}.encode(record);
        std::cout << output << '\n';
        const bool expected = record.data && record.data->text == "hi" && !record.data->sender &&
                              record.isRead == false && !record.id &&
                              fexo::JSONDecoder{}.decode<fexo::Response>(output) == record &&
                              output.find("extra") == std::string::npos;
        return expected ? 0 : 1;
    } catch (const fexo::DecodingError& error) {
        std::cerr << error.description() << '\n';
        return 1;
    }
}
