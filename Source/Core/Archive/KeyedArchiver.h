#pragma once

#include "Core/Archive/BinaryPropertyListWriter.h"
#include "Core/Archive/FirstMemory.h"
#include "Core/Archive/IdentityMap.h"
#include "Core/Archive/Menu.h"
#include "Core/Archive/OpaqueObject.h"
#include "Core/Archive/Value.h"
#include "Core/Base/Bytes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace corvid {

/// Writes one keyed archive. Internal: archivedData() is the way in. Borrows what it archives
/// until it is done. One use, one thread.
///
/// It first numbers the objects in the order in which the platform's archiver meets them, then
/// writes them all: the width of references depends on how many there are.
class KeyedArchiver {
public:
    KeyedArchiver();

    Bytes archive(const Value& root);

private:
    using UID = std::uint32_t;
    using Ref = BinaryPropertyListWriter::Ref;

    enum class Form : std::uint8_t {
        nil, ///< an object that was referred to but, so far, not archived
        boolean,
        integer,
        real,
        date, ///< in place
        text,
        data,
        uid,
        uids,
        list,
        record,
        object,
        url, ///< an object that needs no fields: `bits` is the UID of its base
        classDefinition,
    };

    /// What is written: an object, or what stands under a key. Small, since a message may have
    /// hundreds of thousands.
    struct Node {
        Form form = Form::nil;
        UID classUID = 0;
        union {
            std::uint64_t bits =
                0;            ///< the number itself, or the first index in `uids_` or `fields_`
            const void* data; ///< of `text` and `data`
        };
        std::size_t size = 0; ///< counts from there; of a URL, the UID of its text
    };

    struct NodeField {
        std::string_view key;
        Node node;
    };

    using Chain = std::span<const std::string_view>;

    /// A class to be written; borrowed. Either one of the platform's, by its chain, or another.
    struct ClassNames {
        Chain chain;
        const ObjectClass* described = nullptr;
        UID uid = 0;
    };

    /// Makes room for `count` more values at once, since growing step by step copies and touches
    /// twice the memory.
    void expect(std::size_t count);

    // Numbering. Each `encode…` gives the number of the object, new or met before.
    UID newObject();
    UID encode(const Value& value);
    UID encodeText(std::string_view text);
    UID newText(std::string_view text);
    UID encodeURL(const URL& url);
    UID encodeMenu(const Menu& menu);
    UID encodeMenuItem(const MenuItem& item, const Menu* container);
    UID conditional(const Object& object);
    UID classUID(Chain chain);
    UID classUID(const ObjectClass& described);
    /// The number that stands for `key`, and whether the object is still to be written there.
    std::pair<UID, bool> claim(IdentityMap::Key key);

    void fill(UID uid, std::span<const NodeField> fields, UID type);
    static Node uidNode(UID uid);
    static Node bytesNode(Form form, const void* data, std::size_t size);
    static Node textNode(std::string_view text);
    Node uidsOf(std::span<const Value> values);
    Node slotNode(const Slot& slot);
    void append(std::vector<NodeField>& fields, const FieldList& others,
                std::span<const std::string_view> except);
    Node inPlaceNode(const Value& value);
    NodeField member(const FieldList& otherFields, std::string_view key, const std::string& text);
    void count(const Node& node);

    // Writing.
    Bytes write(UID root);
    Ref write(const Node& node);
    Ref writeUID(UID uid);
    Ref writeBoolean(bool value);
    Ref writeURL(const Node& url);
    Ref writeClass(const ClassNames& names);

    FirstMemoryOf<4096> memory_;
    FirstVector<Node> objects_{memory_};
    FirstVector<NodeField> fields_{memory_};
    FirstVector<UID> uids_{memory_};
    FirstVector<ClassNames> classes_{memory_};
    IdentityMap known_{memory_};
    std::unordered_map<std::string_view, UID> texts_;
    std::vector<std::shared_ptr<const void>> retained_;
    std::size_t valueCount_ = 0;
    std::size_t textSize_ = 0; ///< bytes of the texts, but for keys and names of classes

    BinaryPropertyListWriter* writer_ = nullptr;
    FirstVector<std::uint32_t> writtenUIDs_{memory_};
    std::array<Ref, 2> writtenBooleans_{};
};

} // namespace corvid
