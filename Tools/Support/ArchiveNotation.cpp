#include "Support/ArchiveNotation.h"

#include "Core/Archive/Limits.h"
#include "Core/Archive/Menu.h"
#include "Core/Archive/OpaqueObject.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>
#include <vector>

namespace corvid {

namespace {

constexpr auto kMenuItemKeys = std::to_array<std::string_view>(
    {"action", "alternate", "attributedTitle", "enabled", "hidden", "keyEquivalent", "mask",
     "separator", "state", "submenu", "tag", "title"});
constexpr auto kMenuKeys = std::to_array<std::string_view>({"autoenables", "items", "title"});

template <std::size_t size>
bool hasExactly(const Notation& object, const std::array<std::string_view, size>& keys) {
    return object.size() == size &&
           std::ranges::all_of(keys, [&](std::string_view key) { return object.contains(key); });
}

// What a reader of the notation would not take for a plain dictionary.
bool isAmbiguous(const Notation& object) {
    return hasExactly(object, kMenuItemKeys) || hasExactly(object, kMenuKeys) ||
           std::ranges::any_of(object.items(),
                               [](const auto& entry) { return entry.key().starts_with("$"); });
}

// Appends without looking for the key, which would make a long dictionary take quadratic time.
void append(Notation& object, std::string key, Notation value) {
    auto& members = object.get_ref<Notation::object_t&>();
    members.Notation::object_t::Container::emplace_back(std::move(key), std::move(value));
}

struct TooLarge {
    const char* what;
    std::size_t limit;
};

class Writer {
public:
    explicit Writer(const NotationLimits& limits) : limits_(limits), left_(limits) {}

    Notation write(const Value& value) {
        countValue();
        if (const auto item = value.asMenuItem()) {
            return write(*item);
        }
        if (const auto menu = value.asMenu()) {
            return write(*menu);
        }
        if (const auto opaque = value.asOpaque()) {
            return write(*opaque);
        }
        if (const bool* boolean = value.asBoolean()) {
            return *boolean;
        }
        if (const auto* integer = value.asInteger()) {
            return *integer;
        }
        if (const double* real = value.asReal()) {
            if (std::isfinite(*real)) {
                return *real;
            }
            return {{"$real", std::isnan(*real) ? "nan" : *real < 0 ? "-inf" : "inf"}};
        }
        if (const std::string* string = value.asString()) {
            return text(*string);
        }
        if (const Date* date = value.asDate()) {
            return {{"$date", write(Value::real(date->secondsSinceReferenceDate))}};
        }
        if (const Data* data = value.asData()) {
            countText(2 * data->bytes.size());
            return {{"$data", hex(data->bytes)}};
        }
        if (const URL* url = value.asURL()) {
            Notation result = {{"$url", text(url->relativeString())}};
            if (url->base() != nullptr) {
                result["$base"] = text(url->base()->absoluteString());
            }
            return result;
        }
        if (const Array* array = value.asArray()) {
            return write(array->elements);
        }
        if (const Set* set = value.asSet()) {
            return {{"$set", write(set->elements)}};
        }
        if (const Dictionary* dictionary = value.asDictionary()) {
            return write(*dictionary);
        }
        return {{"$null", true}};
    }

private:
    void countValue(std::size_t count = 1) {
        if (count > left_.values) {
            throw TooLarge{"values", limits_.values};
        }
        left_.values -= count;
    }
    void countText(std::size_t size) {
        if (size > left_.text) {
            throw TooLarge{"bytes of text", limits_.text};
        }
        left_.text -= size;
    }
    std::string text(std::string_view text) {
        countText(text.size());
        return std::string(text);
    }

    static std::string hex(const Bytes& bytes) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        std::string text;
        text.reserve(2 * bytes.size());
        for (const std::uint8_t byte : bytes) {
            text += kDigits[byte >> 4U];
            text += kDigits[byte & 0x0FU];
        }
        return text;
    }

    Notation write(const std::vector<Value>& elements) {
        Notation result = Notation::array();
        for (const Value& element : elements) {
            result.push_back(write(element));
        }
        return result;
    }

    Notation write(const Dictionary& dictionary) {
        Notation plain = Notation::object();
        Notation pairs = Notation::array();
        bool isPlain = true;
        for (const auto& [key, value] : dictionary.entries) {
            isPlain = isPlain && key.asString() != nullptr && key.asOpaque() == nullptr;
        }
        for (const auto& [key, value] : dictionary.entries) {
            if (isPlain) {
                append(plain, text(*key.asString()), write(value));
            } else {
                pairs.push_back(Notation::array({write(key), write(value)}));
            }
        }
        if (isPlain && !isAmbiguous(plain)) {
            return plain;
        }
        if (isPlain) {
            for (auto& [key, value] : plain.items()) {
                pairs.push_back(Notation::array({key, std::move(value)}));
            }
        }
        return {{"$dictionary", std::move(pairs)}};
    }

    Notation write(const MenuItem& item) {
        countValue(kMenuItemKeys.size());
        const std::string* attributed = attributedTitle(item);
        return {
            {"action", item.action ? Notation(text(item.action->name)) : Notation()},
            {"alternate", item.isAlternate},
            {"attributedTitle", attributed != nullptr ? Notation(text(*attributed)) : Notation()},
            {"enabled", item.isEnabled},
            {"hidden", item.isHidden},
            {"keyEquivalent", text(item.keyEquivalent)},
            {"mask", item.keyEquivalentModifierMask},
            {"separator", item.isSeparator},
            {"state", static_cast<int>(item.state)},
            {"submenu", item.submenu != nullptr ? write(Value::menu(item.submenu)) : Notation()},
            {"tag", item.tag},
            {"title", text(item.title)}};
    }

    Notation write(const Menu& menu) {
        Notation items = Notation::array();
        for (const auto& item : menu.items) {
            items.push_back(write(Value::menuItem(item)));
        }
        return {{"autoenables", menu.autoenablesItems},
                {"items", std::move(items)},
                {"title", text(menu.title)}};
    }

    Notation write(const OpaqueObject& object) {
        Notation fields = Notation::object();
        if (object.fields != nullptr) {
            for (const Field& field : *object.fields) {
                append(fields, text(field.key), write(field.slot));
            }
        }
        countText(object.archivedClass->name.size());
        for (const std::string& name : object.archivedClass->chain) {
            countText(name.size());
        }
        return {{"$object",
                 {{"class", object.archivedClass->name},
                  {"classes", object.archivedClass->chain},
                  {"fields", std::move(fields)}}}};
    }

    Notation write(const Slot& slot) {
        countValue();
        if (const auto* reference = std::get_if<Slot::Reference>(&slot.content)) {
            return write(reference->value);
        }
        if (const auto* inPlace = std::get_if<Slot::InPlace>(&slot.content)) {
            return write(inPlace->value);
        }
        if (const auto* list = std::get_if<Slot::List>(&slot.content)) {
            Notation result = Notation::array();
            for (const Slot& element : **list) {
                result.push_back(write(element));
            }
            return result;
        }
        if (const auto* record = std::get_if<Slot::Record>(&slot.content)) {
            Notation result = Notation::object();
            for (const Field& field : **record) {
                append(result, text(field.key), write(field.slot));
            }
            return result;
        }
        return std::holds_alternative<Slot::BackReference>(slot.content)
                   ? Notation{{"$enclosing", true}}
                   : Notation();
    }

    const NotationLimits limits_;
    NotationLimits left_;
};

// What is wrong, and where: "root.paths[3]".
struct Mistake {
    std::string text;
};

class Reader {
public:
    Value read(const Notation& notation) {
        if (depth_ == limits::kDepth) {
            mistake("nested deeper than " + std::to_string(limits::kDepth) + " levels");
        }
        ++depth_;
        Value result = readOne(notation);
        --depth_;
        return result;
    }

private:
    [[noreturn]] void mistake(const std::string& text) const { throw Mistake{path_ + ": " + text}; }

    Value readOne(const Notation& notation) {
        switch (notation.type()) {
        case Notation::value_t::boolean:
            return Value::boolean(notation.get<bool>());
        case Notation::value_t::number_integer:
            return Value::integer(notation.get<std::int64_t>());
        case Notation::value_t::number_unsigned:
            if (notation.get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max()) {
                mistake(notation.dump() + " has more than 64 bits; the largest integer is " +
                        std::to_string(std::numeric_limits<std::int64_t>::max()));
            }
            return Value::integer(notation.get<std::int64_t>());
        case Notation::value_t::number_float:
            return Value::real(notation.get<double>());
        case Notation::value_t::string:
            return Value::string(notation.get<std::string>());
        case Notation::value_t::array:
            return Value::array(elements(notation));
        case Notation::value_t::object:
            return readObject(notation);
        default:
            mistake("null is no object; write {\"$null\": true}");
        }
    }

    template <class Read>
    auto at(const std::string& step, Read read) {
        const std::size_t length = path_.size();
        path_ += step;
        auto result = read();
        path_.resize(length);
        return result;
    }

    std::vector<Value> elements(const Notation& array) {
        std::vector<Value> result;
        if (!array.is_array()) {
            mistake("expected an array, not " + array.dump());
        }
        for (const Notation& element : array) {
            result.push_back(
                at("[" + std::to_string(result.size()) + "]", [&] { return read(element); }));
        }
        return result;
    }

    Value readObject(const Notation& object) {
        if (hasExactly(object, kMenuItemKeys)) {
            return Value::menuItem(readMenuItem(object));
        }
        if (hasExactly(object, kMenuKeys)) {
            return Value::menu(readMenu(object));
        }
        const auto special = std::ranges::find_if(
            object.items(), [](const auto& entry) { return entry.key().starts_with("$"); });
        if (special == object.items().end()) {
            std::vector<std::pair<std::string, Value>> entries;
            for (const auto& [key, value] : object.items()) {
                entries.emplace_back(key, at("." + key, [&] { return read(value); }));
            }
            return Value::dictionary(std::move(entries));
        }
        const std::string& kind = special.key();
        if (object.size() != (object.contains("$base") ? 2U : 1U)) {
            mistake("\"" + kind +
                    "\" stands beside other keys; a dictionary with such a key is "
                    "written {\"$dictionary\": [[key, value], ...]}");
        }
        return readSpecial(object, kind == "$base" ? "$url" : kind);
    }

    Value readSpecial(const Notation& object, const std::string& kind) {
        const Notation& content = member(object, kind);
        if (kind == "$null") {
            return {};
        }
        if (kind == "$url") {
            return Value::url(readURL(object));
        }
        if (kind == "$data") {
            return Value::data(readHex(text(object, kind)));
        }
        if (kind == "$date") {
            const Value seconds = read(content);
            const auto* integer = seconds.asInteger();
            if (seconds.asReal() == nullptr && integer == nullptr) {
                mistake("\"$date\" takes seconds since 2001, not " + content.dump());
            }
            return Value::date(
                {integer != nullptr ? static_cast<double>(*integer) : *seconds.asReal()});
        }
        if (kind == "$real") {
            const std::string name = text(object, kind);
            const double infinity = std::numeric_limits<double>::infinity();
            if (name != "nan" && name != "inf" && name != "-inf") {
                mistake("\"$real\" takes \"nan\", \"inf\" or \"-inf\", not \"" + name + "\"");
            }
            return Value::real(name == "nan"   ? std::numeric_limits<double>::quiet_NaN()
                               : name == "inf" ? infinity
                                               : -infinity);
        }
        if (kind == "$set") {
            return Value::set(elements(content));
        }
        if (kind == "$dictionary") {
            Dictionary result;
            for (const Value& pair : elements(content)) {
                const Array* both = pair.asArray();
                if (both == nullptr || both->elements.size() != 2) {
                    mistake("\"$dictionary\" takes pairs [key, value]");
                }
                result.entries.emplace_back(both->elements[0], both->elements[1]);
            }
            return Value::of(std::move(result));
        }
        if (kind == "$object") {
            mistake("an object of a class that the program does not know cannot be written from "
                    "its description");
        }
        mistake("\"" + kind + "\" is no kind of value");
    }

    URL readURL(const Notation& object) {
        const std::string relative = text(object, "$url");
        std::optional<URL> url;
        if (object.contains("$base")) {
            const std::string baseText = text(object, "$base");
            const auto base = URL::fromText(baseText);
            if (!base) {
                mistake("\"" + baseText + "\" is no URL; escape what a URL cannot hold with %");
            }
            url = URL::fromText(relative, *base);
        } else {
            url = URL::fromText(relative);
        }
        if (!url) {
            mistake("\"" + relative + "\" is no URL; escape what a URL cannot hold with %");
        }
        return *std::move(url);
    }

    Bytes readHex(const std::string& digits) {
        Bytes bytes;
        for (std::size_t i = 0; i < digits.size(); i += 2) {
            std::uint8_t byte = 0;
            const char* const end = digits.data() + std::min(i + 2, digits.size());
            const auto read = std::from_chars(digits.data() + i, end, byte, 16);
            if (read.ec != std::errc() || read.ptr != digits.data() + i + 2) {
                mistake("\"$data\" takes pairs of hexadecimal digits, not \"" +
                        digits.substr(i, 2) + "\"");
            }
            bytes.push_back(byte);
        }
        return bytes;
    }

    const Notation& member(const Notation& object, const std::string& key) const {
        const auto found = object.find(key);
        if (found == object.end()) {
            mistake("no \"" + key + "\"");
        }
        return *found;
    }

    std::string text(const Notation& object, const std::string& key) const {
        const Notation& content = member(object, key);
        if (!content.is_string()) {
            mistake("\"" + key + "\" takes a string, not " + content.dump());
        }
        return content.get<std::string>();
    }

    bool flag(const Notation& object, const std::string& key) const {
        const Notation& content = member(object, key);
        if (!content.is_boolean()) {
            mistake("\"" + key + "\" takes true or false, not " + content.dump());
        }
        return content.get<bool>();
    }

    template <class Integer>
    Integer integer(const Notation& object, const std::string& key) const {
        const Notation& content = member(object, key);
        if (!content.is_number_integer()) {
            mistake("\"" + key + "\" takes an integer, not " + content.dump());
        }
        return content.get<Integer>();
    }

    std::shared_ptr<MenuItem> readMenuItem(const Notation& object) {
        auto item = std::make_shared<MenuItem>();
        if (!object["action"].is_null()) {
            item->action = Selector{text(object, "action")};
        }
        item->isAlternate = flag(object, "alternate");
        item->isEnabled = flag(object, "enabled");
        item->isHidden = flag(object, "hidden");
        item->keyEquivalent = text(object, "keyEquivalent");
        item->keyEquivalentModifierMask = integer<std::uint64_t>(object, "mask");
        item->isSeparator = flag(object, "separator");
        const auto state = integer<std::int64_t>(object, "state");
        if (state < -1 || state > 1) {
            mistake("\"state\" takes -1, 0 or 1, not " + std::to_string(state));
        }
        item->state = static_cast<MenuItemState>(state);
        item->tag = integer<std::int64_t>(object, "tag");
        item->title = text(object, "title");
        if (!object["submenu"].is_null()) {
            item->submenu = at(".submenu", [&] { return read(object["submenu"]); }).asMenu();
            if (item->submenu == nullptr) {
                mistake("\"submenu\" takes a menu");
            }
        }
        if (!object["attributedTitle"].is_null()) {
            setAttributedTitle(*item, text(object, "attributedTitle"));
        }
        return item;
    }

    std::shared_ptr<Menu> readMenu(const Notation& object) {
        auto menu = std::make_shared<Menu>();
        menu->autoenablesItems = flag(object, "autoenables");
        menu->title = text(object, "title");
        for (const Value& element :
             at(".items", [&] { return elements(member(object, "items")); })) {
            auto item = element.asMenuItem();
            if (item == nullptr) {
                mistake("\"items\" takes menu items");
            }
            menu->add(std::move(item));
        }
        return menu;
    }

    static void setAttributedTitle(MenuItem& item, std::string title) {
        auto object = std::make_shared<OpaqueObject>();
        object->archivedClass = std::make_shared<const ObjectClass>(
            ObjectClass{"NSAttributedString", {"NSAttributedString", "NSObject"}, {}});
        object->fields = fieldsWith(nullptr, "NSString", Value::string(std::move(title)));
        item.otherFields =
            fieldsWith(item.otherFields, "NSAttributedTitle", Value::opaque(std::move(object)));
    }

    std::string path_ = "root";
    std::size_t depth_ = 0;
};

} // namespace

const std::string* attributedTitle(const MenuItem& item) {
    const Value* title = referencedValue(findSlot(item.otherFields, "NSAttributedTitle"));
    const auto object = title != nullptr ? title->asOpaque() : nullptr;
    const Value* text =
        object != nullptr ? referencedValue(findSlot(object->fields, "NSString")) : nullptr;
    return text != nullptr ? text->asString() : nullptr;
}

std::optional<Notation> notationOf(const Value& value, std::string& error,
                                   const NotationLimits& limits) {
    try {
        return Writer(limits).write(value);
    } catch (const TooLarge& tooLarge) {
        error = "unfolds into more than " + std::to_string(tooLarge.limit) + " " + tooLarge.what;
        return std::nullopt;
    }
}

std::optional<Value> valueOf(const Notation& notation, std::string& error) {
    try {
        return Reader().read(notation);
    } catch (const Mistake& mistake) {
        error = mistake.text;
        return std::nullopt;
    }
}

} // namespace corvid
