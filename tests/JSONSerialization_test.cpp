#include <FeXOPlatform/JSONSerialization.hpp>
#include <FeXOPlatform/UUID.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <regex>
#include <set>

namespace {

using fexo::AnyValue;
using fexo::CocoaError;
using fexo::JSONSerialization;

AnyValue dictionaryWith(AnyValue key, AnyValue value)
{
    return AnyValue(AnyValue::Dictionary{{"ok", 1}, {std::move(key), std::move(value)}});
}

TEST(JSONSerialization, WritesWhatJSONCanHold)
{
    const AnyValue userInfo(AnyValue::Dictionary{
        {"recipientId", "r"},
        {"aps", AnyValue::Dictionary{{"alert", AnyValue::Dictionary{{"title", "T"}}}, {"badge", 3}}},
        {"list", AnyValue::Array{AnyValue(), true, 1.5, std::int64_t{-7}}},
    });
    const std::string json = JSONSerialization::data(userInfo);
    EXPECT_EQ(nlohmann::json::parse(json), nlohmann::json::parse(
        R"({"recipientId":"r","aps":{"alert":{"title":"T"},"badge":3},"list":[null,true,1.5,-7]})"));
    EXPECT_EQ(JSONSerialization::jsonObject(json)["list"]->array()->at(3), AnyValue(-7));
}

TEST(JSONSerialization, RefusesWhatJSONCannotHold)
{
    const AnyValue cases[] = {
        dictionaryWith(AnyValue(5), "integer key"),
        dictionaryWith("date", fexo::Date(0)),
        dictionaryWith("data", AnyValue::Data{"\x01"}),
        dictionaryWith("inf", std::numeric_limits<double>::infinity()),
        dictionaryWith("nan", std::nan("")),
        dictionaryWith("text", "\xff\xfe"),
        AnyValue(AnyValue::Array{AnyValue(AnyValue::Dictionary{{AnyValue(true), 1}})}),
        AnyValue("top-level text"),
    };
    for (const auto& value : cases) {
        try {
            (void)JSONSerialization::data(value);
            ADD_FAILURE() << "written";
        } catch (const CocoaError& error) {
            EXPECT_EQ(error.code(), CocoaError::propertyListWriteInvalid);
            EXPECT_NE(error.description().find("NSCocoaErrorDomain"), std::string::npos);
        }
    }
}

TEST(JSONSerialization, ReadingRefusesMalformedAndTooDeepText)
{
    EXPECT_THROW(JSONSerialization::jsonObject("{"), CocoaError);
    EXPECT_THROW(JSONSerialization::jsonObject(std::string(5000, '[') + std::string(5000, ']')), CocoaError);
}

TEST(UUID, IsUpperCaseVersionFourAndFresh)
{
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const auto text = fexo::UUID().uuidString();
        ASSERT_TRUE(std::regex_match(text, shape)) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

} // namespace
