#include <FeXOPlatform/AnyValue.hpp>

namespace fexo {

const AnyValue* AnyValue::operator[](std::string_view key) const
{
    const auto* entries = dictionary();
    if (entries == nullptr) return nullptr;
    for (const auto& entry : *entries) {
        if (const auto* text = entry.key.string(); text != nullptr && *text == key) return &entry.value;
    }
    return nullptr;
}

bool AnyValue::operator==(const AnyValue& other) const
{
    return storage_ == other.storage_;
}

} // namespace fexo
