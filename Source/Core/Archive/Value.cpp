#include "Core/Archive/Value.h"

#include "Core/Archive/Menu.h"
#include "Core/Archive/OpaqueObject.h"

#include <type_traits>

namespace corvid {

const Value* Dictionary::find(std::string_view key) const {
    for (const auto& [name, value] : entries) {
        const std::string* text = name.asString();
        if (text != nullptr && *text == key) {
            return &value;
        }
    }
    return nullptr;
}

Value Value::boolean(bool value) {
    return holding(value);
}
Value Value::integer(std::int64_t value) {
    return holding(value);
}
Value Value::real(double value) {
    return holding(value);
}
Value Value::date(Date date) {
    return holding(date);
}
Value Value::url(URL url) {
    return holding(std::move(url));
}

Value Value::string(std::string text) {
    return of(String{std::move(text)});
}
Value Value::data(Bytes bytes) {
    return of(Data{std::move(bytes)});
}
Value Value::array(std::vector<Value> elements) {
    return of(Array{std::move(elements)});
}
Value Value::set(std::vector<Value> elements) {
    return of(Set{std::move(elements)});
}

Value Value::dictionary(std::vector<std::pair<std::string, Value>> entries) {
    Dictionary result;
    result.entries.reserve(entries.size());
    for (auto& [key, value] : entries) {
        result.entries.emplace_back(string(std::move(key)), std::move(value));
    }
    return of(std::move(result));
}

Value Value::menu(std::shared_ptr<Menu> menu) {
    return holding(std::move(menu));
}
Value Value::menuItem(std::shared_ptr<MenuItem> item) {
    return holding(std::move(item));
}
Value Value::opaque(std::shared_ptr<OpaqueObject> object) {
    return holding(std::move(object));
}

Value Value::of(String string) {
    return holding(std::make_shared<const String>(std::move(string)));
}
Value Value::of(Data data) {
    return holding(std::make_shared<const Data>(std::move(data)));
}
Value Value::of(Array array) {
    return holding(std::make_shared<const Array>(std::move(array)));
}
Value Value::of(Set set) {
    return holding(std::make_shared<const Set>(std::move(set)));
}
Value Value::of(Dictionary dictionary) {
    return holding(std::make_shared<const Dictionary>(std::move(dictionary)));
}

const std::string* Value::asString() const {
    const String* string = asStringObject();
    return string != nullptr ? &string->text : nullptr;
}

std::shared_ptr<Menu> Value::asMenu() const {
    const auto* held = std::get_if<std::shared_ptr<Menu>>(&object_);
    return held != nullptr ? *held : nullptr;
}

std::shared_ptr<MenuItem> Value::asMenuItem() const {
    const auto* held = std::get_if<std::shared_ptr<MenuItem>>(&object_);
    return held != nullptr ? *held : nullptr;
}

std::shared_ptr<OpaqueObject> Value::asOpaque() const {
    const auto* held = std::get_if<std::shared_ptr<OpaqueObject>>(&object_);
    return held != nullptr ? *held : nullptr;
}

const Value& Value::known() const {
    const auto* held = std::get_if<std::shared_ptr<OpaqueObject>>(&object_);
    return held != nullptr && *held != nullptr ? (*held)->readAs : *this;
}

const void* Value::identity() const {
    return std::visit(
        []<class Kind>(const Kind& held) -> const void* {
            if constexpr (std::is_same_v<Kind, URL>) {
                return held.identity();
            } else if constexpr (requires { held.get(); }) {
                return held.get();
            } else {
                return nullptr;
            }
        },
        object_);
}

bool Value::isSameObject(const Value& other) const {
    const void* address = identity();
    return address == other.identity() && (address != nullptr || object_ == other.object_);
}

} // namespace corvid
