#include "Support/ArchiveTree.h"

#include "Core/Archive/Menu.h"
#include "Core/Archive/OpaqueObject.h"
#include "Core/Base/PrintableText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <unordered_set>

namespace corvid {

namespace {

constexpr std::size_t kShownBytes = 32;
// A longer text that stands in several places is shown in the first, as a collection is.
constexpr std::size_t kTextShownAgain = 200;

std::string inQuotes(std::string_view text) {
    return '"' + printableText(text) + '"';
}

std::string hex(const Bytes& bytes) {
    std::string text = fmt::format("data of {} bytes", bytes.size());
    if (!bytes.empty()) {
        text += ": ";
    }
    for (std::size_t i = 0; i < std::min(bytes.size(), kShownBytes); ++i) {
        text += fmt::format("{:02x}", bytes[i]);
    }
    return bytes.size() > kShownBytes ? text + "…" : text;
}

std::string shortcut(const MenuItem& item) {
    struct Modifier {
        std::uint64_t bit;
        std::string_view name;
    };
    constexpr auto kModifiers = std::to_array<Modifier>({{1U << 18U, "Control-"},
                                                         {1U << 19U, "Option-"},
                                                         {1U << 17U, "Shift-"},
                                                         {1U << 20U, "Command-"}});
    std::string text;
    for (const Modifier& modifier : kModifiers) {
        if ((item.keyEquivalentModifierMask & modifier.bit) != 0) {
            text += modifier.name;
        }
    }
    return text + printableText(item.keyEquivalent);
}

class Printer {
public:
    std::string print(const Value& value) {
        line("", value, 0);
        return std::move(out_);
    }

private:
    void begin(std::string_view label, std::size_t depth) {
        out_.append(2 * depth, ' ');
        out_ += label;
        if (!label.empty()) {
            out_ += ": ";
        }
    }

    void line(std::string_view label, const Value& value, std::size_t depth) {
        begin(label, depth);
        if (const auto opaque = value.asOpaque()) {
            if (isFirst(value)) {
                out_ += "object of class " + printableText(opaque->archivedClass->name) + '\n';
                fields(opaque->fields, depth + 1);
            }
        } else if (const auto item = value.asMenuItem()) {
            if (isFirst(value)) {
                menuItem(*item, depth);
            }
        } else if (const auto menu = value.asMenu()) {
            if (isFirst(value)) {
                this->menu(*menu, depth);
            }
        } else if (const Array* array = value.asArray()) {
            collection(value, array->isMutable, "array", array->elements, depth);
        } else if (const Set* set = value.asSet()) {
            collection(value, set->isMutable, "set", set->elements, depth);
        } else if (const Dictionary* dictionary = value.asDictionary()) {
            this->dictionary(value, *dictionary, depth);
        } else if (textSize(value) <= kTextShownAgain || isFirst(value)) {
            out_ += scalar(value) + '\n';
        }
    }

    static std::size_t textSize(const Value& value) {
        const std::string* string = value.asString();
        const URL* url = value.asURL();
        if (url != nullptr) {
            return url->relativeString().size() +
                   (url->base() != nullptr ? url->base()->absoluteString().size() : 0);
        }
        return string != nullptr ? string->size() : 0;
    }

    // Says so when the object was shown before.
    bool isFirst(const Value& value) {
        const bool isNew = shown_.insert(value.identity()).second;
        if (!isNew) {
            out_ += "(shown above)\n";
        }
        return isNew;
    }

    static std::string scalar(const Value& value) {
        if (const bool* boolean = value.asBoolean()) {
            return *boolean ? "true" : "false";
        }
        if (const auto* integer = value.asInteger()) {
            return std::to_string(*integer);
        }
        if (const double* real = value.asReal()) {
            return fmt::format("{} (real)", *real);
        }
        if (const String* string = value.asStringObject()) {
            return inQuotes(string->text) + (string->isMutable ? " (mutable)" : "");
        }
        if (const Date* date = value.asDate()) {
            return fmt::format("date, {} seconds after 2001-01-01 00:00 UTC",
                               date->secondsSinceReferenceDate);
        }
        if (const Data* data = value.asData()) {
            return hex(data->bytes) + (data->isMutable ? " (mutable)" : "");
        }
        if (const URL* url = value.asURL()) {
            std::string text = "URL " + printableText(url->relativeString());
            if (url->base() != nullptr) {
                text += " relative to " + printableText(url->base()->absoluteString());
            }
            return text;
        }
        return "null";
    }

    void collection(const Value& value, bool isMutable, std::string_view name,
                    const std::vector<Value>& elements, std::size_t depth) {
        if (!isFirst(value)) {
            return;
        }
        out_ += fmt::format("{}{} of {}\n", isMutable ? "mutable " : "", name, elements.size());
        for (const Value& element : elements) {
            line("", element, depth + 1);
        }
    }

    void dictionary(const Value& value, const Dictionary& dictionary, std::size_t depth) {
        if (!isFirst(value)) {
            return;
        }
        out_ += fmt::format("{}dictionary of {}\n", dictionary.isMutable ? "mutable " : "",
                            dictionary.entries.size());
        for (const auto& [key, element] : dictionary.entries) {
            if (key.asString() != nullptr) {
                line(inQuotes(*key.asString()), element, depth + 1);
            } else {
                line("key", key, depth + 1);
                line("value", element, depth + 1);
            }
        }
    }

    void menu(const Menu& menu, std::size_t depth) {
        out_ += "menu " + inQuotes(menu.title);
        out_ += menu.autoenablesItems ? "\n" : ", does not enable its items by itself\n";
        for (const auto& item : menu.items) {
            line("", Value::menuItem(item), depth + 1);
        }
        fields(menu.otherFields, depth + 1);
    }

    void menuItem(const MenuItem& item, std::size_t depth) {
        out_ += item.isSeparator ? "separator" : "menu item " + inQuotes(item.title);
        if (!item.keyEquivalent.empty()) {
            out_ += ", key " + shortcut(item);
        }
        if (item.action) {
            out_ += ", action " + printableText(item.action->name);
        }
        if (item.tag != 0) {
            out_ += ", tag " + std::to_string(item.tag);
        }
        if (item.state != MenuItemState::off) {
            out_ += item.state == MenuItemState::on ? ", on" : ", mixed";
        }
        if (item.indentationLevel != 0) {
            out_ += ", indented by " + std::to_string(item.indentationLevel);
        }
        if (item.toolTip) {
            out_ += ", tool tip " + inQuotes(*item.toolTip);
        }
        out_ += item.isEnabled || item.isSeparator ? "" : ", disabled";
        out_ += item.isHidden ? ", hidden" : "";
        out_ += item.isAlternate ? ", alternate" : "";
        out_ += '\n';
        if (item.submenu != nullptr) {
            line("", Value::menu(item.submenu), depth + 1);
        }
        fields(item.otherFields, depth + 1);
    }

    void fields(const FieldList& fields, std::size_t depth) {
        if (fields == nullptr) {
            return;
        }
        for (const Field& field : *fields) {
            slot(printableText(field.key), field.slot, depth);
        }
    }

    void slot(std::string_view label, const Slot& slot, std::size_t depth) {
        if (const auto* reference = std::get_if<Slot::Reference>(&slot.content)) {
            line(label, reference->value, depth);
        } else if (const auto* inPlace = std::get_if<Slot::InPlace>(&slot.content)) {
            line(label, inPlace->value, depth);
        } else if (const auto* list = std::get_if<Slot::List>(&slot.content)) {
            begin(label, depth);
            out_ += fmt::format("list of {}\n", (*list)->size());
            for (const Slot& element : **list) {
                this->slot("", element, depth + 1);
            }
        } else if (const auto* record = std::get_if<Slot::Record>(&slot.content)) {
            begin(label, depth);
            out_ += fmt::format("record of {}\n", (*record)->size());
            fields(*record, depth + 1);
        } else {
            begin(label, depth);
            out_ += std::holds_alternative<std::monostate>(slot.content) ? "nil\n"
                                                                         : "(an object above)\n";
        }
    }

    std::string out_;
    std::unordered_set<const void*> shown_;
};

} // namespace

std::string archiveTree(const Value& value) {
    return Printer().print(value);
}

} // namespace corvid
