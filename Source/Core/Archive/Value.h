#pragma once

#include "Core/Base/Bytes.h"
#include "Core/Base/Object.h"
#include "Core/Base/URL.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace corvid {

class Menu;
class MenuItem;
class OpaqueObject;
class Value;

/// A moment, in seconds since 1 January 2001, 00:00 UTC.
struct Date {
    double secondsSinceReferenceDate = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

/// Elements in order.
struct Array {
    std::vector<Value> elements;
    bool isMutable = false;
};

/// Distinct elements, in the order of the archive.
struct Set {
    std::vector<Value> elements;
    bool isMutable = false;
};

/// Pairs of key and value, in the order of the archive. Keys are strings in every message of this
/// system, but the format allows any object.
struct Dictionary {
    std::vector<std::pair<Value, Value>> entries;
    bool isMutable = false;

    /// The value under the string `key`; null when there is none. Owned by this dictionary.
    const Value* find(std::string_view key) const;
};

/// Text.
struct String {
    std::string text; ///< UTF-8
    bool isMutable = false;
};

/// Bytes.
struct Data {
    Bytes bytes;
    bool isMutable = false;
};

/// One object of an archive: what was read from a peer, or what is to be sent.
///
/// A value is a reference to an immutable object and cheap to copy. Copies are the same object;
/// an archive writes it once and refers to it, and what was shared in an archive is shared in the
/// values read from it. Menus and menu items are the exception: they can be changed through it.
///
/// The `as…` members are what code that decodes uses: null when the value is of another kind, and
/// what they point to lives as long as some copy of the value.
class Value {
public:
    /// The null object.
    Value() = default;

    static Value boolean(bool value);
    static Value integer(std::int64_t value);
    static Value real(double value);
    static Value string(std::string text);
    static Value data(Bytes bytes);
    static Value date(Date date);
    static Value url(URL url);
    static Value array(std::vector<Value> elements);
    static Value set(std::vector<Value> elements);
    static Value dictionary(std::vector<std::pair<std::string, Value>> entries);
    static Value menu(std::shared_ptr<Menu> menu);
    static Value menuItem(std::shared_ptr<MenuItem> item);
    static Value opaque(std::shared_ptr<OpaqueObject> object);

    /// The same kinds with every property open, mutability included.
    static Value of(String string);
    static Value of(Data data);
    static Value of(Array array);
    static Value of(Set set);
    static Value of(Dictionary dictionary);

    bool isNull() const { return std::holds_alternative<std::monostate>(object_); }
    const bool* asBoolean() const { return std::get_if<bool>(&known().object_); }
    const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&known().object_); }
    const double* asReal() const { return std::get_if<double>(&known().object_); }
    /// The text of a string, mutable or not.
    const std::string* asString() const;
    /// The same string with its mutability.
    const String* asStringObject() const { return pointee<String>(); }
    const Data* asData() const { return pointee<Data>(); }
    const Date* asDate() const { return std::get_if<Date>(&known().object_); }
    const URL* asURL() const { return std::get_if<URL>(&known().object_); }
    const Array* asArray() const { return pointee<Array>(); }
    const Set* asSet() const { return pointee<Set>(); }
    const Dictionary* asDictionary() const { return pointee<Dictionary>(); }
    /// Null when it is no menu; the caller shares it.
    std::shared_ptr<Menu> asMenu() const;
    /// Null when it is no menu item; the caller shares it.
    std::shared_ptr<MenuItem> asMenuItem() const;
    std::shared_ptr<OpaqueObject> asOpaque() const;

    /// The address that tells this object from every other one and that its copies have in common;
    /// null for the kinds that are told apart by what they say: null, Booleans, numbers and dates.
    const void* identity() const;
    /// True when both are one object, or say the same where the kind has no identity.
    bool isSameObject(const Value& other) const;

private:
    /// This value, or what an opaque object reads as.
    const Value& known() const;

    template <class T>
    const T* pointee() const {
        const auto* held = std::get_if<std::shared_ptr<const T>>(&known().object_);
        return held != nullptr ? held->get() : nullptr;
    }

    using Held = std::variant<std::monostate, bool, std::int64_t, double, Date, URL,
                              std::shared_ptr<const String>, std::shared_ptr<const Data>,
                              std::shared_ptr<const Array>, std::shared_ptr<const Set>,
                              std::shared_ptr<const Dictionary>, std::shared_ptr<Menu>,
                              std::shared_ptr<MenuItem>, std::shared_ptr<OpaqueObject>>;
    // Not from a Held, of which moving takes a jump through a table.
    template <class Kind>
    explicit Value(std::in_place_type_t<Kind> kind, Kind held) : object_(kind, std::move(held)) {}
    template <class Kind>
    static Value holding(Kind held) {
        return Value(std::in_place_type<Kind>, std::move(held));
    }

    Held object_;
};

} // namespace corvid
