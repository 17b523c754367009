#include <FeXONotificationService/RegisterDeviceModel.hpp>
#include <FeXOPlatform/JSONDecoder.hpp>
#include <FeXOPlatform/JSONEncoder.hpp>

#include <gtest/gtest.h>

namespace {

using fexo::DecodingError;
using fexo::RegisterDeviceModel;

std::string roundTrip(const std::string& json)
{
    return fexo::JSONEncoder{}.encode(fexo::JSONDecoder{}.decode<RegisterDeviceModel>(json));
}

TEST(RegisterDeviceModel, KeepsWhatTheServerSaidAndDropsTheRest)
{
    EXPECT_EQ(roundTrip("{}"), "{}");
    EXPECT_EQ(roundTrip(R"({"errorMessage":null,"errors":null,"status":"ok"})"), "{}");
    // An empty list stays present; an element with neither key is an empty ErrorModel.
    EXPECT_EQ(roundTrip(R"({"errors":[]})"), R"({"errors":[]})");
    EXPECT_EQ(roundTrip(R"({"errors":[{}]})"), R"({"errors":[{}]})");
    EXPECT_EQ(nlohmann::json::parse(roundTrip(R"({"errorMessage":"Validation failed","errors":[{"field":"appId","errorMessage":"required"}]})")),
              nlohmann::json::parse(R"({"errorMessage":"Validation failed","errors":[{"field":"appId","errorMessage":"required"}]})"));
}

TEST(RegisterDeviceModel, OneBadValueFailsTheWholeAnswer)
{
    struct Case {
        const char* json;
        std::vector<std::string> path;
    };
    const Case cases[] = {
        {R"({"errorMessage":5})", {"errorMessage"}},
        {R"({"errors":{}})", {"errors"}},
        {R"({"errors":[{},"text"]})", {"errors", "Index 1"}},
        {R"({"errors":[{"field":1}]})", {"errors", "Index 0", "field"}},
        {R"([{}])", {}},
        {R"("")", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        try {
            (void)fexo::JSONDecoder{}.decode<RegisterDeviceModel>(c.json);
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& error) {
            EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch);
            EXPECT_EQ(error.codingPath(), c.path);
        }
    }
}

} // namespace
