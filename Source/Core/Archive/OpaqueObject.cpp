#include "Core/Archive/OpaqueObject.h"

#include <algorithm>

namespace corvid {

const Slot* findSlot(const FieldList& fields, std::string_view key) {
    if (fields == nullptr) {
        return nullptr;
    }
    const auto found = std::ranges::find(*fields, key, &Field::key);
    return found != fields->end() ? &found->slot : nullptr;
}

FieldList fieldsWith(const FieldList& fields, std::string key, Value object) {
    auto longer = fields != nullptr ? *fields : std::vector<Field>();
    longer.push_back({std::move(key), {Slot::Reference{std::move(object)}}});
    return std::make_shared<const std::vector<Field>>(std::move(longer));
}

const Value* referencedValue(const Slot* slot) {
    const auto* reference =
        slot != nullptr ? std::get_if<Slot::Reference>(&slot->content) : nullptr;
    return reference != nullptr ? &reference->value : nullptr;
}

} // namespace corvid
