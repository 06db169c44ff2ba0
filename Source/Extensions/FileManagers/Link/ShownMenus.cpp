#include "Extensions/FileManagers/Link/ShownMenus.h"

#include "Core/Archive/OpaqueObject.h"
#include "Core/Archive/Value.h"

#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <variant>

namespace corvid::link {

namespace {

/// Adds up what objects take, each once. How deep they nest, the archive that they came in bounds.
class Scale {
public:
    std::size_t bytes() const { return bytes_; }

    void add(const Menu& menu) {
        if (isNew(&menu)) {
            bytes_ += sizeof menu + menu.title.size();
            add(menu.otherFields);
            for (const std::shared_ptr<MenuItem>& item : menu.items) {
                bytes_ += sizeof item;
                add(*item);
            }
        }
    }

private:
    bool isNew(const void* object) { return object != nullptr && seen_.insert(object).second; }

    void add(const MenuItem& item) {
        if (!isNew(&item)) {
            return;
        }
        bytes_ += sizeof item + item.title.size() + item.keyEquivalent.size() +
                  (item.toolTip ? item.toolTip->size() : 0);
        add(item.otherFields);
        if (item.submenu != nullptr) {
            add(*item.submenu);
        }
    }
    void add(const FieldList& fields) {
        if (!isNew(fields.get())) {
            return;
        }
        for (const Field& field : *fields) {
            bytes_ += sizeof field + field.key.size();
            add(field.slot);
        }
    }
    void add(const Slot& slot) {
        if (const auto* const reference = std::get_if<Slot::Reference>(&slot.content)) {
            add(reference->value);
        } else if (const auto* const inPlace = std::get_if<Slot::InPlace>(&slot.content)) {
            add(inPlace->value);
        } else if (const auto* const record = std::get_if<Slot::Record>(&slot.content)) {
            add(*record);
        } else if (const auto* const list = std::get_if<Slot::List>(&slot.content);
                   list != nullptr && isNew(list->get())) {
            for (const Slot& element : **list) {
                bytes_ += sizeof element;
                add(element);
            }
        }
    }
    void add(const Value& value) {
        if (const auto opaque = value.asOpaque()) {
            if (isNew(opaque.get())) {
                bytes_ += sizeof *opaque;
                add(opaque->fields);
                add(opaque->readAs);
            }
        } else if (const auto menu = value.asMenu()) {
            add(*menu);
        } else if (const auto item = value.asMenuItem()) {
            add(*item);
        } else if (isNew(value.identity())) {
            addContent(value);
        }
    }
    void addContent(const Value& value) {
        if (const std::string* const text = value.asString()) {
            bytes_ += sizeof(String) + text->size();
        } else if (const Data* const data = value.asData()) {
            bytes_ += sizeof *data + data->bytes.size();
        } else if (const URL* const url = value.asURL()) {
            bytes_ += url->absoluteString().size();
        } else if (const Array* const array = value.asArray()) {
            add(array->elements);
        } else if (const Set* const set = value.asSet()) {
            add(set->elements);
        } else if (const Dictionary* const dictionary = value.asDictionary()) {
            for (const auto& [key, element] : dictionary->entries) {
                bytes_ += 2 * sizeof(Value);
                add(key);
                add(element);
            }
        }
    }
    void add(const std::vector<Value>& elements) {
        for (const Value& element : elements) {
            bytes_ += sizeof element;
            add(element);
        }
    }

    std::unordered_set<const void*> seen_;
    std::size_t bytes_ = 0;
};

} // namespace

std::size_t menuBytes(const Menu& menu) {
    Scale scale;
    scale.add(menu);
    return scale.bytes();
}

std::size_t selectionBytes(const Selection& selection) {
    std::size_t bytes = sizeof selection;
    for (const URL& item : selection.items) {
        bytes += sizeof item + item.absoluteString().size();
    }
    return bytes;
}

std::uint32_t ShownMenus::add(Connection connection, ShownMenu menu) {
    const std::uint32_t number = ++lastNumber_;
    Share& share = shares_[connection];
    ++share.menus;
    share.entries += menu.entries.size();
    bytes_ += menu.bytes;
    const auto newest = menus_.insert_or_assign(number, Kept{connection, std::move(menu)}).first;
    for (auto kept = menus_.begin(); kept != newest;) {
        const bool isTooMuch = kept->second.connection == connection &&
                               (share.menus > kMaxMenus || share.entries > kMaxEntries);
        kept = isTooMuch || bytes_ > kMaxBytes ? drop(kept) : std::next(kept);
    }
    return number;
}

const ShownMenu* ShownMenus::find(Connection connection, std::uint32_t number) const {
    const auto kept = menus_.find(number);
    return kept != menus_.end() && kept->second.connection == connection ? &kept->second.menu
                                                                         : nullptr;
}

void ShownMenus::forget(Connection connection) {
    for (auto kept = menus_.begin(); kept != menus_.end();) {
        kept = kept->second.connection == connection ? drop(kept) : std::next(kept);
    }
    shares_.erase(connection);
}

ShownMenus::ByAge::iterator ShownMenus::drop(ByAge::iterator kept) {
    Share& share = shares_[kept->second.connection];
    --share.menus;
    share.entries -= kept->second.menu.entries.size();
    bytes_ -= kept->second.menu.bytes;
    return menus_.erase(kept);
}

} // namespace corvid::link
