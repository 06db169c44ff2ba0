#include "Tests/Support/ValueText.h"

#include "Core/Archive/OpaqueObject.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid {

namespace {

std::string joined(const std::vector<std::string>& parts) {
    std::string all;
    for (const std::string& part : parts) {
        all += (all.empty() ? "" : ", ") + part;
    }
    return all;
}

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

std::string listText(const std::vector<Value>& elements) {
    std::vector<std::string> parts;
    std::transform(elements.begin(), elements.end(), std::back_inserter(parts), valueText);
    return joined(parts);
}

std::string dictionaryText(const Dictionary& dictionary) {
    std::vector<std::string> parts;
    for (const auto& [key, value] : dictionary.entries) {
        parts.push_back(valueText(key) + ": " + valueText(value));
    }
    std::sort(parts.begin(), parts.end());
    return "{" + joined(parts) + "}";
}

std::string opaqueText(const OpaqueObject& object) {
    std::vector<std::string> parts;
    if (object.fields != nullptr) {
        for (const Field& field : *object.fields) {
            const Value* value = referencedValue(&field.slot);
            parts.push_back(field.key + ": " + (value != nullptr ? valueText(*value) : "in place"));
        }
    }
    std::sort(parts.begin(), parts.end());
    return object.archivedClass->name + "(" + joined(parts) + ")";
}

} // namespace

std::string valueText(const Value& value) {
    if (value.isNull()) {
        return "null";
    }
    if (const bool* boolean = value.asBoolean()) {
        return *boolean ? "true" : "false";
    }
    if (const std::int64_t* integer = value.asInteger()) {
        return std::to_string(*integer);
    }
    if (const double* real = value.asReal()) {
        return std::to_string(*real);
    }
    if (const std::string* text = value.asString()) {
        return inQuotes(*text);
    }
    if (const Data* data = value.asData()) {
        return std::to_string(data->bytes.size()) + " bytes";
    }
    if (const Date* date = value.asDate()) {
        return "date " + std::to_string(date->secondsSinceReferenceDate);
    }
    if (const URL* url = value.asURL()) {
        return "<" + std::string(url->absoluteString()) + ">";
    }
    if (const Array* array = value.asArray()) {
        return "[" + listText(array->elements) + "]";
    }
    if (const Set* set = value.asSet()) {
        return "set(" + listText(set->elements) + ")";
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        return dictionaryText(*dictionary);
    }
    if (const auto item = value.asMenuItem()) {
        return menuItemText(*item);
    }
    if (const auto menu = value.asMenu()) {
        return "menu " + inQuotes(menu->title);
    }
    return opaqueText(*value.asOpaque());
}

std::string menuItemText(const MenuItem& item) {
    std::vector<std::string> parts;
    const auto add = [&](std::string_view name, const std::string& text) {
        parts.push_back(std::string(name) + " " + text);
    };
    const auto flag = [&](std::string_view name, bool isSet) {
        if (isSet) {
            parts.emplace_back(name);
        }
    };
    const auto number = [&](std::string_view name, std::int64_t value) {
        if (value != 0) {
            add(name, std::to_string(value));
        }
    };
    flag("separator", item.isSeparator);
    add("title", inQuotes(item.title));
    number("tag", item.tag);
    number("state", static_cast<std::int64_t>(item.state));
    if (!item.keyEquivalent.empty()) {
        add("key", inQuotes(item.keyEquivalent));
    }
    number("mask", static_cast<std::int64_t>(item.keyEquivalentModifierMask));
    number("indentation", item.indentationLevel);
    flag("disabled", !item.isEnabled);
    flag("hidden", item.isHidden);
    flag("alternate", item.isAlternate);
    if (item.toolTip) {
        add("toolTip", inQuotes(*item.toolTip));
    }
    if (item.action) {
        add("action", item.action->name);
    }
    for (const char* key : {"NSAttributedTitle", "NSRepObject"}) {
        const Value* value = referencedValue(findSlot(item.otherFields, key));
        if (value != nullptr && !value->isNull()) {
            add(key, valueText(*value));
        }
    }
    if (item.submenu != nullptr) {
        std::vector<std::string> below;
        for (const auto& subItem : item.submenu->items) {
            below.push_back(menuItemText(*subItem));
        }
        add("submenu", inQuotes(item.submenu->title) + " [" + joined(below) + "]");
    }
    return "(" + joined(parts) + ")";
}

} // namespace corvid
