#include <FeXOPlatform/PropertyListValue.hpp>

#include <utility>

namespace fexo {

namespace {

bool isContainer(const PropertyListValue& value)
{
    return value.array() != nullptr || value.dictionary() != nullptr;
}

} // namespace

PropertyListValue::~PropertyListValue()
{
    // Containers among the children are moved to a list and emptied one at a time; each then
    // ends with no container inside, so no destructor here runs more than one level deep.
    std::vector<PropertyListValue> pending;
    const auto detachContainers = [&pending](decltype(storage_)& storage) {
        if (auto* array = std::get_if<Array>(&storage)) {
            for (auto& child : *array)
                if (isContainer(child)) pending.push_back(std::move(child));
        } else if (auto* dictionary = std::get_if<Dictionary>(&storage)) {
            for (auto& entry : *dictionary)
                if (isContainer(entry.second)) pending.push_back(std::move(entry.second));
        }
    };
    detachContainers(storage_);
    while (!pending.empty()) {
        PropertyListValue next = std::move(pending.back());
        pending.pop_back();
        detachContainers(next.storage_);
    }
}

} // namespace fexo
