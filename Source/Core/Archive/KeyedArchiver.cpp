#include "Core/Archive/KeyedArchiver.h"

#include "Core/Archive/KeyNames.h"
#include "Core/Base/URL.h"

#include <algorithm>
#include <bit>
#include <string>
#include <utility>

namespace corvid {

namespace {

using KeyKind = IdentityMap::Key::Kind;

// The values of the container itself: the top dictionary and its four keys, the version, the
// archiver's name, the list of objects, "$top"'s dictionary with one key and one reference.
constexpr std::size_t kFrameValues = 11;
// What `valueCount` values take besides the texts, in a message full of URLs: references are wider
// in a larger one.
constexpr std::size_t typicalSize(std::size_t valueCount) {
    return valueCount * (valueCount <= 0xFFFF ? 11 : 14);
}

// Objects, classes or fields: enough for a badge request.
constexpr std::size_t kFew = 16;

template <class Vector>
void makeRoom(Vector& vector, std::size_t count) {
    if (count > vector.capacity() - vector.size()) {
        vector.reserve(std::max(2 * vector.capacity(), vector.size() + count));
    }
}

// What the platform writes for an item in its own places, so that it is not written again behind.
// The picture is last: it is left out only when the item has a new one.
constexpr auto kPlacedItemKeys = std::to_array<std::string_view>(
    {keys::kTitle, keys::kKeyEquivalent, keys::kMnemonicLocation, keys::kOnImage, keys::kMixedImage,
     keys::kAction, keys::kToolTip, keys::kLocalizesKey, keys::kMirrorsKey,
     keys::kHiddenInRepresentation, keys::kImage});

// Classes of the platform, each before those above it.
constexpr auto kMutableDictionaryChain =
    std::to_array<std::string_view>({"NSMutableDictionary", "NSDictionary", "NSObject"});
constexpr auto kDictionaryChain = std::to_array<std::string_view>({"NSDictionary", "NSObject"});
constexpr auto kMutableArrayChain =
    std::to_array<std::string_view>({"NSMutableArray", "NSArray", "NSObject"});
constexpr auto kArrayChain = std::to_array<std::string_view>({"NSArray", "NSObject"});
constexpr auto kMutableSetChain =
    std::to_array<std::string_view>({"NSMutableSet", "NSSet", "NSObject"});
constexpr auto kSetChain = std::to_array<std::string_view>({"NSSet", "NSObject"});
constexpr auto kMutableStringChain =
    std::to_array<std::string_view>({"NSMutableString", "NSString", "NSObject"});
constexpr auto kMutableDataChain =
    std::to_array<std::string_view>({"NSMutableData", "NSData", "NSObject"});
constexpr auto kDateChain = std::to_array<std::string_view>({"NSDate", "NSObject"});
constexpr auto kNullChain = std::to_array<std::string_view>({"NSNull", "NSObject"});
constexpr auto kURLChain = std::to_array<std::string_view>({"NSURL", "NSObject"});
constexpr auto kMenuChain = std::to_array<std::string_view>({"NSMenu", "NSObject"});
constexpr auto kMenuItemChain = std::to_array<std::string_view>({"NSMenuItem", "NSObject"});

IdentityMap::Key addressKey(const void* address) {
    return {KeyKind::address, reinterpret_cast<std::uintptr_t>(address)};
}

// Equal numbers are one object, as on the platform, where small ones are one by construction.
IdentityMap::Key keyOf(const Value& value) {
    if (const void* address = value.identity()) {
        return addressKey(address);
    }
    if (const bool* boolean = value.asBoolean()) {
        return {KeyKind::boolean, *boolean ? 1U : 0U};
    }
    if (const std::int64_t* integer = value.asInteger()) {
        return {KeyKind::integer, std::bit_cast<std::uint64_t>(*integer)};
    }
    if (const double* real = value.asReal()) {
        return {KeyKind::real, std::bit_cast<std::uint64_t>(*real)};
    }
    if (const Date* date = value.asDate()) {
        return {KeyKind::date, std::bit_cast<std::uint64_t>(date->secondsSinceReferenceDate)};
    }
    return {KeyKind::null, 0};
}

} // namespace

KeyedArchiver::KeyedArchiver() {
    objects_.reserve(kFew);
    fields_.reserve(kFew);
    uids_.reserve(kFew);
    classes_.reserve(kFew / 2);
}

Bytes KeyedArchiver::archive(const Value& root) {
    newObject(); // Number 0 is nil.
    return write(encode(root));
}

void KeyedArchiver::expect(std::size_t count) {
    makeRoom(uids_, count);
    makeRoom(objects_, 2 * count + kFew); // A URL and its text, and what stands around them.
    known_.expect(count);
}

// --- Numbering --------------------------------------------------------------------------------

KeyedArchiver::UID KeyedArchiver::newObject() {
    objects_.emplace_back();
    return static_cast<UID>(objects_.size() - 1);
}

std::pair<KeyedArchiver::UID, bool> KeyedArchiver::claim(IdentityMap::Key key) {
    UID& known = known_[key];
    if (known == 0) {
        known = newObject();
        return {known, true};
    }
    Node& node = objects_[known];
    if (node.form != Form::nil) {
        return {known, false};
    }
    return {known, true};
}

KeyedArchiver::UID KeyedArchiver::encode(const Value& value) {
    if (const auto menu = value.asMenu()) {
        return encodeMenu(*menu);
    }
    if (const auto item = value.asMenuItem()) {
        return encodeMenuItem(*item, nullptr);
    }
    const auto opaque = value.asOpaque();
    if (opaque == nullptr) {
        if (const URL* url = value.asURL()) {
            return encodeURL(*url);
        }
    }
    const auto [uid, isNew] = claim(keyOf(value));
    if (!isNew) {
        return uid;
    }
    if (opaque != nullptr) {
        objects_[uid].form = Form::object;
        std::vector<NodeField> fields;
        append(fields, opaque->fields, {});
        fill(uid, fields, classUID(*opaque->archivedClass));
        return uid;
    }
    if (const Dictionary* dictionary = value.asDictionary()) {
        objects_[uid].form = Form::object;
        const std::size_t count = dictionary->entries.size();
        expect(2 * count);
        const std::size_t first = uids_.size();
        uids_.resize(first + 2 * count);
        for (std::size_t i = 0; i < count; ++i) {
            const UID key = encode(dictionary->entries[i].first);
            uids_[first + i] = key;
        }
        for (std::size_t i = 0; i < count; ++i) {
            const UID element = encode(dictionary->entries[i].second);
            uids_[first + count + i] = element;
        }
        const NodeField fields[] = {{keys::kDictionaryKeys, {Form::uids, 0, {first}, count}},
                                    {keys::kElements, {Form::uids, 0, {first + count}, count}}};
        fill(uid, fields,
             dictionary->isMutable ? classUID(kMutableDictionaryChain)
                                   : classUID(kDictionaryChain));
    } else if (const Array* array = value.asArray()) {
        objects_[uid].form = Form::object;
        const NodeField fields[] = {{keys::kElements, uidsOf(array->elements)}};
        fill(uid, fields, array->isMutable ? classUID(kMutableArrayChain) : classUID(kArrayChain));
    } else if (const Set* set = value.asSet()) {
        objects_[uid].form = Form::object;
        const NodeField fields[] = {{keys::kElements, uidsOf(set->elements)}};
        fill(uid, fields, set->isMutable ? classUID(kMutableSetChain) : classUID(kSetChain));
    } else if (const String* string = value.asStringObject(); string && string->isMutable) {
        const NodeField fields[] = {{keys::kString, textNode(string->text)}};
        fill(uid, fields, classUID(kMutableStringChain));
    } else if (const Data* data = value.asData(); data && data->isMutable) {
        const NodeField fields[] = {{keys::kData, inPlaceNode(value)}};
        fill(uid, fields, classUID(kMutableDataChain));
    } else if (const Date* date = value.asDate()) {
        const NodeField fields[] = {
            {keys::kTime, inPlaceNode(Value::real(date->secondsSinceReferenceDate))}};
        fill(uid, fields, classUID(kDateChain));
    } else if (value.isNull()) {
        fill(uid, {}, classUID(kNullChain));
    } else {
        objects_[uid] = inPlaceNode(value);
        count(objects_[uid]);
    }
    return uid;
}

KeyedArchiver::UID KeyedArchiver::encodeText(std::string_view text) {
    const auto [place, isNew] = texts_.try_emplace(text, 0);
    if (isNew) {
        place->second = newText(text);
    }
    return place->second;
}

KeyedArchiver::UID KeyedArchiver::newText(std::string_view text) {
    const UID uid = newObject();
    if (text == keys::kNil) {
        // Under a key this text would be read as nil; as an object of its own it is not.
        const NodeField fields[] = {{keys::kString, textNode(text)}};
        fill(uid, fields, classUID(kMutableStringChain));
    } else {
        objects_[uid] = textNode(text);
        count(objects_[uid]);
        textSize_ += text.size();
    }
    return uid;
}

KeyedArchiver::UID KeyedArchiver::encodeURL(const URL& url) {
    const auto [uid, isNew] = claim(addressKey(url.identity()));
    if (!isNew) {
        return uid;
    }
    objects_[uid].form = Form::object;
    const UID base = url.base() != nullptr ? encodeURL(*url.base()) : 0;
    const UID text = newText(url.relativeString());
    objects_[uid] = {Form::url, classUID(kURLChain), {base}, text};
    // The dictionary, its three keys and the references under them.
    valueCount_ += 7;
    return uid;
}

KeyedArchiver::UID KeyedArchiver::encodeMenu(const Menu& menu) {
    const auto [uid, isNew] = claim(addressKey(&menu));
    if (!isNew) {
        return uid;
    }
    objects_[uid].form = Form::object;
    std::vector<NodeField> fields;
    fields.push_back(member(menu.otherFields, keys::kTitle, menu.title));
    const UID list = newObject();
    objects_[list].form = Form::object;
    fields.push_back({keys::kMenuItems, uidNode(list)});
    const std::size_t first = uids_.size();
    uids_.resize(first + menu.items.size());
    for (std::size_t i = 0; i < menu.items.size(); ++i) {
        const UID item = encodeMenuItem(*menu.items[i], &menu);
        uids_[first + i] = item;
    }
    const NodeField elements[] = {{keys::kElements, {Form::uids, 0, {first}, menu.items.size()}}};
    fill(list, elements, classUID(kMutableArrayChain));
    if (!menu.autoenablesItems) {
        fields.push_back({keys::kNoAutoenable, inPlaceNode(Value::boolean(true))});
    }
    append(fields, menu.otherFields, {&keys::kTitle, 1});
    fill(uid, fields,
         menu.archivedClass != nullptr ? classUID(*menu.archivedClass) : classUID(kMenuChain));
    return uid;
}

KeyedArchiver::UID KeyedArchiver::encodeMenuItem(const MenuItem& item, const Menu* container) {
    const auto [uid, isNew] = claim(addressKey(&item));
    if (!isNew) {
        return uid;
    }
    objects_[uid].form = Form::object;
    std::vector<NodeField> fields;
    fields.reserve(20);
    const auto flag = [&](std::string_view key, bool isSet) {
        if (isSet) {
            fields.push_back({key, inPlaceNode(Value::boolean(true))});
        }
    };
    const auto number = [&](std::string_view key, std::int64_t value) {
        if (value != 0) {
            fields.push_back({key, inPlaceNode(Value::integer(value))});
        }
    };
    const auto kept = [&](std::string_view key) {
        const Slot* slot = findSlot(item.otherFields, key);
        if (slot != nullptr) {
            fields.push_back({key, slotNode(*slot)});
        }
        return slot != nullptr;
    };

    // In the order of the platform's own calls, which is the order of the numbers.
    const std::shared_ptr<const Menu> menu = item.menu.lock();
    if (container != nullptr || menu != nullptr) {
        const Menu& above = container != nullptr ? *container : *menu;
        fields.push_back({keys::kMenu, uidNode(conditional(above))});
    }
    flag(keys::kIsDisabled, !item.isEnabled);
    flag(keys::kIsHidden, item.isHidden);
    flag(keys::kIsSeparator, item.isSeparator);
    flag(keys::kIsAlternate, item.isAlternate);
    kept(keys::kLocalizesKey);
    kept(keys::kMirrorsKey);
    fields.push_back(member(item.otherFields, keys::kTitle, item.title));
    fields.push_back(member(item.otherFields, keys::kKeyEquivalent, item.keyEquivalent));
    number(keys::kModifierMask, std::bit_cast<std::int64_t>(item.keyEquivalentModifierMask));
    if (!kept(keys::kMnemonicLocation)) {
        number(keys::kMnemonicLocation, keys::kNoMnemonic);
    }
    number(keys::kState, static_cast<std::int64_t>(item.state));
    kept(keys::kOnImage);
    kept(keys::kMixedImage);
    if (item.action) {
        fields.push_back(member(item.otherFields, keys::kAction, item.action->name));
    }
    number(keys::kTag, item.tag);
    if (const std::shared_ptr<Object> target = item.target.lock()) {
        fields.push_back({keys::kTarget, uidNode(conditional(*target))});
    }
    if (item.submenu != nullptr) {
        fields.push_back({keys::kSubmenu, uidNode(encodeMenu(*item.submenu))});
    }
    kept(keys::kHiddenInRepresentation);
    number(keys::kIndentation, item.indentationLevel);
    if (item.toolTip) {
        fields.push_back(member(item.otherFields, keys::kToolTip, *item.toolTip));
    }
    const std::span<const std::string_view> placed(kPlacedItemKeys);
    append(fields, item.otherFields,
           item.image != nullptr ? placed : placed.first(placed.size() - 1));
    fill(uid, fields,
         item.archivedClass != nullptr ? classUID(*item.archivedClass) : classUID(kMenuItemChain));
    return uid;
}

KeyedArchiver::UID KeyedArchiver::conditional(const Object& object) {
    // The address of the whole object, which is what its values are known by.
    UID& known = known_[addressKey(dynamic_cast<const void*>(&object))];
    if (known == 0) {
        known = newObject();
        count(objects_[known]);
    }
    return known;
}

KeyedArchiver::UID KeyedArchiver::classUID(Chain chain) {
    for (const ClassNames& known : classes_) {
        if (known.chain.data() == chain.data()) {
            return known.uid;
        }
    }
    const UID uid = newObject();
    objects_[uid] = {Form::classDefinition, 0, {classes_.size()}};
    // The dictionary, its two keys, the name, the chain and its names.
    valueCount_ += 5 + chain.size();
    classes_.push_back({chain, nullptr, uid});
    return uid;
}

KeyedArchiver::UID KeyedArchiver::classUID(const ObjectClass& described) {
    for (const ClassNames& known : classes_) {
        if (known.described != nullptr && *known.described == described) {
            return known.uid;
        }
    }
    const UID uid = newObject();
    objects_[uid] = {Form::classDefinition, 0, {classes_.size()}};
    valueCount_ += 5 + described.chain.size();
    if (!described.hints.empty()) {
        valueCount_ += 2 + described.hints.size();
    }
    classes_.push_back({{}, &described, uid});
    return uid;
}

void KeyedArchiver::fill(UID uid, std::span<const NodeField> fields, UID type) {
    objects_[uid] = {Form::object, type, {fields_.size()}, fields.size()};
    fields_.insert(fields_.end(), fields.begin(), fields.end());
    for (const NodeField& field : fields) {
        ++valueCount_;
        count(field.node);
    }
    // The dictionary, the key of the class and the reference to it.
    valueCount_ += 3;
}

void KeyedArchiver::count(const Node& node) {
    valueCount_ += 1 + (node.form == Form::uids ? node.size : 0);
}

KeyedArchiver::Node KeyedArchiver::uidNode(UID uid) {
    return {Form::uid, 0, {uid}};
}

KeyedArchiver::Node KeyedArchiver::bytesNode(Form form, const void* data, std::size_t size) {
    Node node;
    node.form = form;
    node.data = data;
    node.size = size;
    return node;
}

KeyedArchiver::Node KeyedArchiver::textNode(std::string_view text) {
    return bytesNode(Form::text, text.data(), text.size());
}

KeyedArchiver::Node KeyedArchiver::uidsOf(std::span<const Value> values) {
    expect(values.size());
    const std::size_t first = uids_.size();
    uids_.resize(first + values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        const UID uid = encode(values[i]);
        uids_[first + i] = uid;
    }
    return {Form::uids, 0, {first}, values.size()};
}

KeyedArchiver::Node KeyedArchiver::inPlaceNode(const Value& value) {
    if (const bool* boolean = value.asBoolean()) {
        return {Form::boolean, 0, {*boolean ? 1U : 0U}};
    }
    if (const std::int64_t* integer = value.asInteger()) {
        return {Form::integer, 0, {std::bit_cast<std::uint64_t>(*integer)}};
    }
    if (const double* real = value.asReal()) {
        return {Form::real, 0, {std::bit_cast<std::uint64_t>(*real)}};
    }
    if (const Data* data = value.asData()) {
        return bytesNode(Form::data, data->bytes.data(), data->bytes.size());
    }
    const std::string* text = value.asString();
    return text != nullptr ? textNode(*text) : Node{};
}

KeyedArchiver::Node KeyedArchiver::slotNode(const Slot& slot) {
    if (const auto* reference = std::get_if<Slot::Reference>(&slot.content)) {
        return uidNode(encode(reference->value));
    }
    if (const auto* inPlace = std::get_if<Slot::InPlace>(&slot.content)) {
        if (const Date* date = inPlace->value.asDate()) {
            return {Form::date, 0, {std::bit_cast<std::uint64_t>(date->secondsSinceReferenceDate)}};
        }
        return inPlaceNode(inPlace->value);
    }
    if (const auto* back = std::get_if<Slot::BackReference>(&slot.content)) {
        const std::shared_ptr<Object> object = back->object.lock();
        if (object == nullptr) {
            return uidNode(0);
        }
        retained_.push_back(object);
        if (auto menu = std::dynamic_pointer_cast<Menu>(object)) {
            return uidNode(encodeMenu(*menu));
        }
        if (auto item = std::dynamic_pointer_cast<MenuItem>(object)) {
            return uidNode(encodeMenuItem(*item, nullptr));
        }
        auto opaque = std::dynamic_pointer_cast<OpaqueObject>(object);
        return uidNode(opaque != nullptr ? encode(Value::opaque(std::move(opaque))) : 0);
    }
    const auto append = [this](std::vector<NodeField> children, Form form) {
        const Node node{form, 0, {fields_.size()}, children.size()};
        for (const NodeField& child : children) {
            valueCount_ += form == Form::record ? 1 : 0;
            count(child.node);
        }
        fields_.insert(fields_.end(), children.begin(), children.end());
        return node;
    };
    if (const auto* list = std::get_if<Slot::List>(&slot.content)) {
        std::vector<NodeField> children;
        for (const Slot& child : **list) {
            children.push_back({{}, slotNode(child)});
        }
        return append(std::move(children), Form::list);
    }
    if (const auto* record = std::get_if<Slot::Record>(&slot.content)) {
        std::vector<NodeField> children;
        for (const Field& child : **record) {
            children.push_back({child.key, slotNode(child.slot)});
        }
        return append(std::move(children), Form::record);
    }
    return uidNode(0);
}

void KeyedArchiver::append(std::vector<NodeField>& fields, const FieldList& others,
                           std::span<const std::string_view> except) {
    if (others == nullptr) {
        return;
    }
    for (const Field& field : *others) {
        if (std::ranges::find(except, field.key) == except.end()) {
            fields.push_back({field.key, slotNode(field.slot)});
        }
    }
}

KeyedArchiver::NodeField KeyedArchiver::member(const FieldList& otherFields, std::string_view key,
                                               const std::string& text) {
    const Value* special = referencedValue(findSlot(otherFields, key));
    if (special != nullptr && special->asString() != nullptr && *special->asString() == text) {
        return {key, uidNode(encode(*special))};
    }
    return {key, uidNode(encodeText(text))};
}

// --- Writing ----------------------------------------------------------------------------------

Bytes KeyedArchiver::write(UID root) {
    // "$null" is the first object.
    const std::size_t valueCount = kFrameValues + 1 + valueCount_;
    BinaryPropertyListWriter writer(valueCount, typicalSize(valueCount) + textSize_);
    writer_ = &writer;
    writtenUIDs_.resize(objects_.size());

    const auto archive = writer.dictionary(4);
    const Ref version = writer.name<keys::kVersion>();
    const Ref archiver = writer.name<keys::kArchiver>();
    const Ref top = writer.name<keys::kTop>();
    const Ref objects = writer.name<keys::kObjects>();
    writer.setPair(archive, 0, version, writer.integer(keys::kArchiveVersion));
    writer.setPair(archive, 1, archiver, writer.text(keys::kKeyedArchiver));
    const auto roots = writer.dictionary(1);
    const Ref rootKey = writer.name<keys::kRoot>();
    writer.setPair(roots, 0, rootKey, writeUID(root));
    writer.setPair(archive, 2, top, roots.ref);
    const auto list = writer.array(objects_.size());
    writer.setPair(archive, 3, objects, list.ref);
    for (std::size_t i = 0; i < objects_.size(); ++i) {
        writer.setElement(list, i, write(objects_[i]));
    }
    return writer.finish(archive.ref);
}

KeyedArchiver::Ref KeyedArchiver::write(const Node& node) {
    switch (node.form) {
    case Form::nil:
        return writer_->name<keys::kNil>();
    case Form::boolean:
        return writeBoolean(node.bits != 0);
    case Form::integer:
        return writer_->integer(std::bit_cast<std::int64_t>(node.bits));
    case Form::real:
        return writer_->real(std::bit_cast<double>(node.bits));
    case Form::date:
        return writer_->date(std::bit_cast<double>(node.bits));
    case Form::text:
        return writer_->text({static_cast<const char*>(node.data), node.size});
    case Form::data:
        return writer_->data({static_cast<const std::uint8_t*>(node.data), node.size});
    case Form::uid:
        return writeUID(static_cast<UID>(node.bits));
    case Form::uids: {
        const auto array = writer_->array(node.size);
        for (std::size_t i = 0; i < node.size; ++i) {
            writer_->setElement(array, i, writeUID(uids_[node.bits + i]));
        }
        return array.ref;
    }
    case Form::list: {
        const auto array = writer_->array(node.size);
        for (std::size_t i = 0; i < node.size; ++i) {
            writer_->setElement(array, i, write(fields_[node.bits + i].node));
        }
        return array.ref;
    }
    case Form::record:
    case Form::object: {
        const bool isObject = node.form == Form::object;
        const auto dictionary = writer_->dictionary(node.size + (isObject ? 1 : 0));
        const Ref firstKey = writer_->valueCount();
        for (std::size_t i = 0; i < node.size; ++i) {
            writer_->text(fields_[node.bits + i].key);
        }
        if (isObject) {
            writer_->name<keys::kClass>();
        }
        for (std::size_t i = 0; i < node.size; ++i) {
            writer_->setPair(dictionary, i, firstKey + i, write(fields_[node.bits + i].node));
        }
        if (isObject) {
            writer_->setPair(dictionary, node.size, firstKey + node.size, writeUID(node.classUID));
        }
        return dictionary.ref;
    }
    case Form::url:
        return writeURL(node);
    case Form::classDefinition:
        return writeClass(classes_[node.bits]);
    }
    return 0;
}

// The platform keeps one object for each reference and Boolean value, lists it wherever it stands,
// and refers to its first place: the others remain, unused. Their bytes are part of the layout.
KeyedArchiver::Ref KeyedArchiver::writeUID(UID uid) {
    const Ref ref = writer_->uid(uid);
    if (writtenUIDs_[uid] == 0) {
        writtenUIDs_[uid] = static_cast<std::uint32_t>(ref); // As many as there are offsets.
    }
    return writtenUIDs_[uid];
}

KeyedArchiver::Ref KeyedArchiver::writeBoolean(bool value) {
    const Ref ref = writer_->boolean(value);
    Ref& first = writtenBooleans_[value ? 1 : 0];
    if (first == 0) {
        first = ref;
    }
    return first;
}

KeyedArchiver::Ref KeyedArchiver::writeURL(const Node& url) {
    const auto dictionary = writer_->dictionary(3);
    const Ref base = writer_->name<keys::kBase>();
    const Ref relative = writer_->name<keys::kRelative>();
    const Ref type = writer_->name<keys::kClass>();
    writer_->setPair(dictionary, 0, base, writeUID(static_cast<UID>(url.bits)));
    writer_->setPair(dictionary, 1, relative, writeUID(static_cast<UID>(url.size)));
    writer_->setPair(dictionary, 2, type, writeUID(url.classUID));
    return dictionary.ref;
}

KeyedArchiver::Ref KeyedArchiver::writeClass(const ClassNames& names) {
    const auto list = [this](const auto& texts) {
        const auto array = writer_->array(texts.size());
        std::size_t index = 0;
        for (const auto& text : texts) {
            writer_->setElement(array, index++, writer_->text(text));
        }
        return array.ref;
    };
    const ObjectClass* described = names.described;
    const bool hasHints = described != nullptr && !described->hints.empty();
    const auto dictionary = writer_->dictionary(hasHints ? 3 : 2);
    const Ref name = writer_->name<keys::kClassName>();
    const Ref chain = writer_->name<keys::kClasses>();
    const Ref hints = hasHints ? writer_->name<keys::kClassHints>() : 0;
    writer_->setPair(dictionary, 0, name,
                     writer_->text(described != nullptr ? described->name : names.chain.front()));
    writer_->setPair(dictionary, 1, chain,
                     described != nullptr ? list(described->chain) : list(names.chain));
    if (hasHints) {
        writer_->setPair(dictionary, 2, hints, list(described->hints));
    }
    return dictionary.ref;
}

} // namespace corvid
