#include <FeXONotificationService/FeXOPushAlert.hpp>

namespace fexo {

namespace {

std::string textAt(const AnyValue& object, const char* key)
{
    const AnyValue* value = object[key];
    const std::string* text = value != nullptr ? value->string() : nullptr;
    return text != nullptr ? *text : std::string();
}

} // namespace

FeXOPushAlert FeXOPushAlert::of(const AnyValue& userInfo)
{
    const AnyValue* aps = userInfo["aps"];
    const AnyValue* alert = aps != nullptr ? (*aps)["alert"] : nullptr;
    if (alert == nullptr) return {};
    if (const std::string* text = alert->string()) return {"", *text};
    if (alert->dictionary() == nullptr) return {};
    return {textAt(*alert, "title"), textAt(*alert, "body")};
}

} // namespace fexo
