#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;
using fexo::RegisterDeviceModel;

TEST(RegisterDeviceModel, KeepsWhatTheServerSaidDropsTheRestAndOneBadValueFailsTheWholeAnswer)
{
    const std::pair<const char*, const char*> kept[] = {
        {R"({"errorMessage":null,"errors":null,"status":"ok"})", "{}"},
        {R"({"errors":[]})", R"({"errors":[]})"},
        {R"({"errors":[{}]})", R"({"errors":[{}]})"},
        {R"({"errorMessage":"Validation failed","errors":[{"field":"appId","errorMessage":"required"}]})",
         R"({"errorMessage":"Validation failed","errors":[{"errorMessage":"required","field":"appId"}]})"},
    };
    for (const auto& [json, encoded] : kept)
        EXPECT_EQ(fexo::JSONEncoder{}.encode(fexo::JSONDecoder{}.decode<RegisterDeviceModel>(json)), encoded);
    const std::pair<const char*, std::vector<std::string>> refused[] = {
        {R"({"errorMessage":5})", {"errorMessage"}},
        {R"({"errors":{}})", {"errors"}},
        {R"({"errors":[{},"text"]})", {"errors", "Index 1"}},
        {R"({"errors":[{"field":1}]})", {"errors", "Index 0", "field"}},
        {R"([{}])", {}},
    };
    for (const auto& [json, path] : refused) {
        try {
            (void)fexo::JSONDecoder{}.decode<RegisterDeviceModel>(json);
            ADD_FAILURE() << "decoded " << json;
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch) << json;
            EXPECT_EQ(error.codingPath(), path) << json;
        }
    }
}

} // namespace
