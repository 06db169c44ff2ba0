#include "Tools/corvid-host/Rules/MessageText.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"
#include "Extensions/Finder/CVMAMessageID.h"

#include <nlohmann/json.hpp>

namespace corvid {

namespace {

using Json = nlohmann::ordered_json;

Json jsonOfItem(const MenuItem& item) {
    Json json{{"title", item.title}, {"tag", item.tag}};
    if (item.action) {
        json["action"] = item.action->name;
    }
    if (!item.isEnabled) {
        json["isEnabled"] = false;
    }
    if (item.submenu) {
        for (const auto& subItem : item.submenu->items) {
            json["submenu"].push_back(jsonOfItem(*subItem));
        }
    }
    return json;
}

Json jsonOfList(const std::vector<Value>& elements) {
    Json json = Json::array();
    for (const Value& element : elements) {
        json.push_back(jsonOf(element));
    }
    return json;
}

} // namespace

Json jsonOf(const Value& value) {
    if (const bool* boolean = value.asBoolean()) {
        return *boolean;
    }
    if (const std::int64_t* integer = value.asInteger()) {
        return *integer;
    }
    if (const double* real = value.asReal()) {
        return *real;
    }
    if (const std::string* text = value.asString()) {
        return *text;
    }
    if (const URL* url = value.asURL()) {
        return url->absoluteString();
    }
    if (const Data* data = value.asData()) {
        return {{"bytes", data->bytes.size()}};
    }
    if (const Date* date = value.asDate()) {
        return {{"secondsSinceReferenceDate", date->secondsSinceReferenceDate}};
    }
    if (const Array* array = value.asArray()) {
        return jsonOfList(array->elements);
    }
    if (const Set* set = value.asSet()) {
        return jsonOfList(set->elements);
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        Json json = Json::object();
        for (const auto& [key, element] : dictionary->entries) {
            const std::string* name = key.asString();
            json[name ? *name : jsonOf(key).dump()] = jsonOf(element);
        }
        return json;
    }
    if (const auto item = value.asMenuItem()) {
        return jsonOfItem(*item);
    }
    if (const auto menu = value.asMenu()) {
        Json json{{"title", menu->title}, {"items", Json::array()}};
        for (const auto& item : menu->items) {
            json["items"].push_back(jsonOfItem(*item));
        }
        return json;
    }
    return nullptr;
}

std::string messageLine(std::int32_t messageID, std::optional<ByteView> data) {
    Json line{{"id", messageID}};
    if (const auto message = CVMAMessageID::fromRawValue(messageID)) {
        line["message"] = message->caseName();
    }
    if (const auto root = data ? unarchivedObject(*data) : std::nullopt) {
        line["payload"] = jsonOf(*root);
    } else {
        line["unreadableBytes"] = data ? data->size() : 0;
    }
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace corvid
