#pragma once

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/FirstMemory.h"
#include "Core/Archive/KeyNames.h"
#include "Core/Archive/Menu.h"
#include "Core/Archive/Value.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid {

/// Reads the objects of one keyed archive. Internal: unarchivedObject() is the way in. Borrows the
/// property list; throws ArchiveRefusal. One use, one thread.
class KeyedUnarchiver {
public:
    /// `memory`: how many bytes the objects may take.
    KeyedUnarchiver(const BinaryPropertyList& list, std::size_t memory);

    /// The object that the archive was made of; optional only as the caller hands it on.
    std::optional<Value> root();

private:
    using Item = BinaryPropertyList::Item;
    using Kind = BinaryPropertyList::Kind;
    using Ref = BinaryPropertyList::Ref;
    using Code = ArchiveError::Code;
    using Key = keys::Key;

    /// The classes that become values of their own; any other becomes an opaque object.
    enum class Model : std::uint8_t {
        opaque,
        null,
        string,
        data,
        date,
        url,
        array,
        set,
        dictionary,
        menu,
        menuItem,
    };

    struct Class {
        Model model = Model::opaque;
        bool isMutable = false;
        /// False when `model` belongs to a superclass only.
        bool isExact = false;
        /// Set unless `isExact`.
        std::shared_ptr<const ObjectClass> described;
    };

    struct RawField {
        std::string_view key;
        Ref value = 0;
        Key known;
    };

    /// The keys of one object.
    class Fields {
    public:
        Fields(KeyedUnarchiver& owner, const Item& dictionary, std::uint64_t uid);
        Fields(const Fields&) = delete;
        Fields& operator=(const Fields&) = delete;

        std::uint64_t uid() const { return uid_; }
        std::size_t count() const { return dictionary_.count; }
        RawField at(std::size_t index) const;
        bool has(Key key) const { return keys_.contains(key); }
        /// Absent when the object has no such key.
        Item find(Key key) const {
            return keys_.contains(key) ? owner_.list_.item(values_[key]) : Item{};
        }
        /// Nothing when the object has no such key, or no reference under it.
        std::optional<std::uint64_t> findUID(Key key) const {
            return keys_.contains(key) ? owner_.list_.uid(values_[key]) : std::nullopt;
        }
        /// Calls `read` with the fields under `members`, in an order that is not the archive's,
        /// then `keep` with the others as they come, `$class` left out. So it is no matter of the
        /// archive's order which of two objects that name each other is found to be a part of the
        /// other: the writer has its own order, and what it writes must read the same.
        template <class Read, class Keep>
        void forEach(keys::KeySet members, Read read, Keep keep) const {
            for (auto left = keys_.commonWith(members); !left.isEmpty();) {
                const Key key = left.takeFirst();
                read(RawField{key.text(), values_[key], key});
            }
            members.insert(keys::kClass);
            if (members.contains(keys_)) {
                return;
            }
            for (std::size_t i = 0; i < count(); ++i) {
                if (const RawField field = at(i); !members.contains(field.known)) {
                    keep(field);
                }
            }
        }
        Item require(Key key) const;

    private:
        static constexpr std::size_t kKnownKeys = keys::kKnown.kNone + 1; // And all others as one.
        // More than the platform's classes have, as a rule; those behind are read again.
        static constexpr std::size_t kFirstKeys = 32;

        void checkDistinct() const;

        KeyedUnarchiver& owner_;
        Item dictionary_;
        std::uint64_t uid_;
        keys::KeySet keys_;                  ///< which of `values_` are set
        std::array<Ref, kKnownKeys> values_; ///< by key; not initialised
        std::array<Key, kFirstKeys> order_;  ///< the first keys; not initialised
    };

    /// An item's target, a conditional reference: it counts only when something else brings the
    /// object into being, so it is settled last.
    struct Target {
        MenuItem* item;
        std::uint64_t uid;
    };

    /// What has become of an object of the archive, with its index in `values_`, or that of a class
    /// in `classes_`. One word, since there is one for each object.
    class Mark {
    public:
        enum State : std::uint32_t { untouched, open, done, isClass };
        static constexpr std::uint32_t kLastIndex = 0x3FFFFFFF;

        Mark() = default;
        Mark(State state, std::size_t index)
            : word_(static_cast<std::uint32_t>(index) << 2U | state) {}
        State state() const { return static_cast<State>(word_ & 3U); }
        std::size_t index() const { return word_ >> 2U; }

    private:
        std::uint32_t word_ = untouched;
    };

    /// The long keys of all dictionaries, and for each the first of its text. A tree for the texts:
    /// whoever writes an archive can make texts of the same hash.
    struct LongKeys {
        std::unordered_map<const String*, const String*> firsts;
        std::map<std::string_view, const String*> byText;
    };

    void charge(std::size_t bytes);
    void chargeText(std::size_t length);

    /// The object `uid`, which must not be nil. Owned by `values_`.
    const Value& object(std::uint64_t uid);
    /// The place of an object that is being read: null, until it is known what it becomes.
    Value& openValue(std::uint64_t uid) {
        return values_[marks_[static_cast<std::size_t>(uid)].index()];
    }
    /// The object that a field refers to; null for nil.
    const Value* referenced(std::uint64_t uid);
    Value read(std::uint64_t uid, const Item& item);
    Value readKeyed(std::uint64_t uid, const Item& item);
    Value readModel(const Class& type, const Fields& fields);
    Value readOpaque(const Class& type, const Fields& fields);
    Value readMenu(const Class& type, const Fields& fields);
    void readItems(Menu& menu, const Fields& fields, const RawField& field);
    Value readMenuItem(const Class& type, const Fields& fields);
    void readMember(MenuItem& item, std::vector<Field>& otherFields, const Fields& fields,
                    const RawField& field);
    void settleTargets();

    const Class& classOf(const Fields& fields);
    Class readClass(std::uint64_t uid);

    /// The references that a collection lists under a key, or under numbered keys, as archives of
    /// old have them.
    struct References {
        std::uint64_t uid; ///< the collection's
        std::string_view key;
        Item list;                 ///< absent when the keys are numbered
        std::vector<Ref> numbered; ///< under the key with each number
        std::size_t count = 0;
    };

    References references(const Fields& fields, Key key, std::string_view numberedKey);
    /// The UID of element `index`, which is not nil.
    std::uint64_t uid(const References& references, std::size_t index) const;
    std::vector<Value> elements(const Fields& fields);
    Dictionary dictionary(const Fields& fields);
    void checkDistinct(const Dictionary& dictionary, std::uint64_t uid);
    /// The string that stands for all long ones of this text: the first that was met. Each string
    /// is looked at once, however many dictionaries have it as a key.
    const String* firstOfText(const String* string);
    /// True when two keys of a dictionary say the same.
    bool isSameKey(const String* a, const String* b);
    URL url(const Fields& fields);
    Bytes bytes(const Fields& fields, const Item& item, std::string_view key);

    Slot slot(Ref ref, std::uint64_t owner);
    Value inPlace(const Item& item);

    bool boolean(const Fields& fields, const RawField& field) const;
    std::int64_t integer(const Fields& fields, const RawField& field) const;
    std::uint64_t uid(const Fields& fields, const RawField& field) const;
    /// The string that `item` is or refers to, when it is no object of its own; it is then read
    /// where it is wanted, without becoming a value first. Else absent.
    Item plainString(const Item& item) const;
    /// The text under a key: a string in place or a reference to one; nothing when nil.
    std::optional<std::string> text(const Fields& fields, std::string_view key, const Item& item);
    /// The same for a member of a menu or an item, whose special forms stay in `otherFields`.
    std::optional<std::string> text(const Fields& fields, const RawField& field,
                                    std::vector<Field>& otherFields);
    void keep(std::vector<Field>& otherFields, const Fields& fields, const RawField& field);
    /// `fields` as a list, which is the last one when that says the same: the items of a menu
    /// mostly differ in nothing but their members.
    FieldList share(std::vector<Field> fields);

    std::string_view keyText(const Item& key);

    const BinaryPropertyList& list_;
    Item objects_{};
    std::size_t memoryLeft_;
    std::size_t depth_ = 0;
    FirstMemoryOf<2048> memory_;
    FirstVector<Value> values_{memory_};
    FirstVector<Mark> marks_{memory_};
    FirstVector<Class> classes_{memory_};
    std::vector<Target> targets_;
    std::forward_list<std::string> wideKeys_;
    FieldList lastFields_;
    std::size_t keyTextLeft_;            ///< characters of keys that are not known
    std::unique_ptr<LongKeys> longKeys_; ///< null until a dictionary has one
};

} // namespace corvid
