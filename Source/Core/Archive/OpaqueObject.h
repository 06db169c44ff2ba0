#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Object.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace corvid {

/// The class of an archived object, as the archive names it.
struct ObjectClass {
    std::string name;
    /// The class itself and its superclasses, nearest first.
    std::vector<std::string> chain;
    /// Classes to fall back on where the class is not known; mostly empty.
    std::vector<std::string> hints;

    friend bool operator==(const ObjectClass&, const ObjectClass&) = default;
};

struct Field;

/// What stands under one key of an archived object.
struct Slot {
    /// A reference to another object.
    struct Reference {
        Value value;
    };
    /// A Boolean, number, string, data or date written in place, not as an object.
    struct InPlace {
        Value value;
    };
    /// A reference up to an object that holds this one. Not owned, else neither would ever go.
    struct BackReference {
        std::weak_ptr<Object> object;
    };
    /// Values written in place, in order.
    using List = std::shared_ptr<const std::vector<Slot>>;
    /// Keys and values written in place, in order.
    using Record = std::shared_ptr<const std::vector<Field>>;

    /// std::monostate is the reference to nil.
    std::variant<std::monostate, Reference, InPlace, BackReference, List, Record> content;
};

/// A key of an archived object and what stands under it.
struct Field {
    std::string key;
    Slot slot;
};

/// Fields that may be shared by several objects; null for none.
using FieldList = std::shared_ptr<const std::vector<Field>>;

/// The slot under `key`; null when there is none. Owned by `fields`.
const Slot* findSlot(const FieldList& fields, std::string_view key);

/// `fields` and, behind them, a reference to `object` under `key`.
FieldList fieldsWith(const FieldList& fields, std::string key, Value object);

/// The object that `slot` refers to; null when it holds anything else. Owned by `slot`.
const Value* referencedValue(const Slot* slot);

/// An object of a class that the model does not name, kept whole so that it goes back as it came.
/// Shared and mutable; the caller keeps it to one thread at a time.
class OpaqueObject : public Object {
public:
    std::shared_ptr<const ObjectClass> archivedClass;
    FieldList fields;
    /// What the nearest superclass that the model knows reads in the same keys (the text of a
    /// localizable string, say); null when there is none. The `as…` members of a Value look here.
    Value readAs;
};

} // namespace corvid
