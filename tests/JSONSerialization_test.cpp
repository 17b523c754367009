#include <FeXOPlatform/JSONSerialization.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace {

using fexo::AnyValue;
using fexo::CocoaError;
using fexo::JSONSerialization;

TEST(JSONSerialization, WritesWhatJSONCanHoldAndReadsIntegersAsIntegers)
{
    const AnyValue userInfo(AnyValue::Dictionary{
        {"aps", AnyValue::Dictionary{{"alert", AnyValue::Dictionary{{"title", "T"}}}, {"badge", 3}}},
        {"list", AnyValue::Array{AnyValue(), true, 1.5, std::int64_t{-7}}},
    });
    const std::string json = JSONSerialization::data(userInfo);
    EXPECT_EQ(nlohmann::json::parse(json),
              nlohmann::json::parse(R"({"aps":{"alert":{"title":"T"},"badge":3},"list":[null,true,1.5,-7]})"));
    EXPECT_EQ(JSONSerialization::jsonObject(json)["list"]->array()->at(3), AnyValue(-7));
    EXPECT_THROW(JSONSerialization::jsonObject(std::string(5000, '[') + std::string(5000, ']')), CocoaError);
}

TEST(JSONSerialization, RefusesWhatJSONCannotHold)
{
    const auto with = [](AnyValue key, AnyValue value) {
        return AnyValue(AnyValue::Dictionary{{"ok", 1}, {std::move(key), std::move(value)}});
    };
    for (const auto& value :
         {with(AnyValue(5), "integer key"), with("date", fexo::Date(0)), with("data", AnyValue::Data{"\x01"}),
          with("nan", std::nan("")), with("inf", -HUGE_VAL), with("text", "\xff\xfe"), AnyValue("top-level text")}) {
        try {
            (void)JSONSerialization::data(value);
            ADD_FAILURE() << "written";
        } catch (const CocoaError& error) {
            EXPECT_EQ(error.code(), CocoaError::propertyListWriteInvalid);
        }
    }
}

} // namespace
