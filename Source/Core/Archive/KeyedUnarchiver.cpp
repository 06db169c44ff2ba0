#include "Core/Archive/KeyedUnarchiver.h"

#include "Core/Archive/Limits.h"
#include "Core/Base/UTF8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <string>
#include <utility>

namespace corvid {

namespace {

// What std::make_shared takes besides the object.
constexpr std::size_t kSharedOverhead = 16;
// Longer text than this lives outside its std::string.
constexpr std::size_t kTextInPlace = 15;
// What a URL shares with its copies, and what one with a base has besides.
constexpr std::size_t kURLSize = 3 * sizeof(void*);
constexpr std::size_t kResolvedSize = sizeof(URL) + sizeof(std::string);
constexpr std::size_t kFewClasses = 4;
// Keys of a dictionary up to which each is compared with each.
constexpr std::size_t kFewKeys = 8;

// No value of a property list has this number: there are far fewer.
constexpr BinaryPropertyList::Ref kNoRef = 0xFFFFFFFF;

// 12 for "NS.object." and "NS.object.12"; nothing for any other key.
std::optional<std::size_t> numberBehind(std::string_view prefix, std::string_view key) {
    if (!key.starts_with(prefix)) {
        return std::nullopt;
    }
    key.remove_prefix(prefix.size());
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number);
    const bool isNumber = error == std::errc() && end == key.data() + key.size();
    const bool hasLeadingZero = key.starts_with('0') && key.size() > 1;
    return isNumber && !hasLeadingZero ? std::optional(number) : std::nullopt;
}

bool isLong(const String* key) {
    return key->text.size() > limits::kShortKey;
}

// The object behind `value` if it is one that can be referred to weakly; else null.
std::shared_ptr<Object> sharedObject(const Value& value) {
    if (auto menuItem = value.asMenuItem()) {
        return menuItem;
    }
    if (auto menu = value.asMenu()) {
        return menu;
    }
    return value.asOpaque();
}

bool isSameField(const Field& a, const Field& b) {
    if (a.key != b.key || a.slot.content.index() != b.slot.content.index()) {
        return false;
    }
    if (const auto* reference = std::get_if<Slot::Reference>(&a.slot.content)) {
        return reference->value.isSameObject(std::get<Slot::Reference>(b.slot.content).value);
    }
    if (const auto* inPlace = std::get_if<Slot::InPlace>(&a.slot.content)) {
        return inPlace->value.isSameObject(std::get<Slot::InPlace>(b.slot.content).value);
    }
    return std::holds_alternative<std::monostate>(a.slot.content);
}

} // namespace

KeyedUnarchiver::KeyedUnarchiver(const BinaryPropertyList& list, std::size_t memory)
    : list_(list), memoryLeft_(memory),
      keyTextLeft_(limits::kKeyTextFactor * list.size() + limits::kKeyTextAllowance) {}

std::optional<Value> KeyedUnarchiver::root() {
    const Item archive = list_.item(list_.top());
    if (archive.kind != Kind::dictionary) {
        refuseAtByte(Code::notAnArchive, archive.start);
    }
    const Fields fields(*this, archive, 0);
    const Item archiver = fields.find(keys::kArchiver);
    const Item top = fields.find(keys::kTop);
    if (!archiver.isPresent() && !top.isPresent()) {
        refuseAtByte(Code::notAnArchive, archive.start);
    }
    const auto refuse = [&](Code code, const Item& culprit) {
        refuseAtByte(code, culprit.isPresent() ? culprit.start : archive.start);
    };
    if (!list_.equals(archiver, keys::kKeyedArchiver)) {
        refuse(Code::unknownArchiver, archiver);
    }
    const Item version = fields.find(keys::kVersion);
    if (version.kind != Kind::integer || list_.integer(version) != keys::kArchiveVersion) {
        refuse(Code::unsupportedVersion, version);
    }
    const Item objects = fields.find(keys::kObjects);
    if (objects.kind != Kind::array) {
        refuse(Code::missingObjects, objects);
    }
    if (top.kind != Kind::dictionary) {
        refuse(Code::missingRoot, top);
    }
    const auto rootUID = Fields(*this, top, 0).findUID(keys::kRoot);
    if (!rootUID) {
        refuse(Code::missingRoot, top);
    }
    if (*rootUID == 0) {
        refuseAtObject(Code::nilRoot, 0);
    }
    objects_ = objects;
    static_assert(limits::kPropertyListValues <= Mark::kLastIndex);
    charge(objects_.count * (sizeof(Value) + sizeof(Mark)));
    values_.reserve(objects_.count); // References to values must hold.
    marks_.resize(objects_.count);
    classes_.reserve(kFewClasses);
    std::optional<Value> result(object(*rootUID));
    settleTargets();
    return result;
}

void KeyedUnarchiver::charge(std::size_t bytes) {
    if (bytes > memoryLeft_) {
        refuseAtByte(Code::tooMuchMemory, list_.size());
    }
    memoryLeft_ -= bytes;
}

void KeyedUnarchiver::chargeText(std::size_t length) {
    if (length > kTextInPlace) {
        charge(length + 1);
    }
}

// --- Keys -------------------------------------------------------------------------------------

std::string_view KeyedUnarchiver::keyText(const Item& key) {
    if (!key.isString()) {
        refuseAtByte(Code::keyNotString, key.start);
    }
    if (key.count > limits::kKeyLength) {
        refuseAtByte(Code::stringTooLong, key.start);
    }
    if (key.count > keyTextLeft_) {
        refuseAtByte(Code::tooMuchMemory, list_.size());
    }
    keyTextLeft_ -= key.count;
    if (key.kind == Kind::ascii) {
        return list_.ascii(key);
    }
    charge(sizeof(void*) + sizeof(std::string) + 3 * key.count + 1);
    return wideKeys_.emplace_front(list_.text(key));
}

KeyedUnarchiver::Fields::Fields(KeyedUnarchiver& owner, const Item& dictionary, std::uint64_t uid)
    : owner_(owner), dictionary_(dictionary), uid_(uid) {
    if (count() > limits::kKeysPerObject) {
        refuseAtByte(Code::tooManyKeys, dictionary.start);
    }
    const BinaryPropertyList& list = owner.list_;
    bool isRepeated = false;
    keys::KeySet seen;
    for (std::size_t i = 0; i < count(); ++i) {
        const Ref key = list.key(dictionary, i);
        Key known = Key::found(list.shortASCII(key));
        if (!known.isKnown()) {
            known = Key::found(owner.keyText(list.item(key)));
        }
        values_[known] = list.value(dictionary, i);
        if (i < kFirstKeys) {
            order_[i] = known;
        }
        isRepeated |= seen.contains(known);
        seen.insert(known);
    }
    keys_ = seen;
    if (isRepeated) {
        checkDistinct();
    }
}

KeyedUnarchiver::RawField KeyedUnarchiver::Fields::at(std::size_t index) const {
    if (index < kFirstKeys && order_[index].isKnown()) {
        return {order_[index].text(), values_[order_[index]], order_[index]};
    }
    const BinaryPropertyList& list = owner_.list_;
    const std::string_view text = owner_.keyText(list.item(list.key(dictionary_, index)));
    return {text, list.value(dictionary_, index), Key::found(text)};
}

void KeyedUnarchiver::Fields::checkDistinct() const {
    std::vector<std::string_view> texts;
    owner_.charge(count() * sizeof(std::string_view));
    texts.reserve(count());
    for (std::size_t i = 0; i < count(); ++i) {
        texts.push_back(at(i).key);
    }
    std::ranges::sort(texts);
    const auto twin = std::ranges::adjacent_find(texts);
    if (twin != texts.end()) {
        refuseAtObject(Code::duplicateKey, uid_, *twin);
    }
}

BinaryPropertyList::Item KeyedUnarchiver::Fields::require(Key key) const {
    const Item item = find(key);
    if (!item.isPresent()) {
        refuseAtObject(Code::missingKey, uid_, key.text());
    }
    return item;
}

// --- Classes ----------------------------------------------------------------------------------

const KeyedUnarchiver::Class& KeyedUnarchiver::classOf(const Fields& fields) {
    const auto uid = fields.findUID(keys::kClass);
    if (!uid) {
        refuseAtObject(Code::missingClass, fields.uid());
    }
    if (*uid >= objects_.count) {
        refuseAtObject(Code::uidOutOfRange, fields.uid(), keys::kClass);
    }
    const auto index = static_cast<std::size_t>(*uid);
    if (marks_[index].state() != Mark::isClass) {
        if (marks_[index].state() != Mark::untouched) {
            refuseAtObject(Code::badClass, *uid);
        }
        Class type = readClass(*uid);
        charge(2 * sizeof(Class));
        marks_[index] = {Mark::isClass, classes_.size()};
        classes_.push_back(std::move(type));
    }
    return classes_[marks_[index].index()];
}

KeyedUnarchiver::Class KeyedUnarchiver::readClass(std::uint64_t uid) {
    struct Known {
        std::string_view name;
        Model model;
        bool isMutable;
    };
    static constexpr auto kKnown = std::to_array<Known>({
        {"NSDictionary", Model::dictionary, false},
        {"NSURL", Model::url, false},
        {"NSArray", Model::array, false},
        {"NSMenuItem", Model::menuItem, true},
        {"NSMenu", Model::menu, true},
        {"NSMutableArray", Model::array, true},
        {"NSMutableDictionary", Model::dictionary, true},
        {"NSString", Model::string, false},
        {"NSMutableString", Model::string, true},
        {"NSData", Model::data, false},
        {"NSMutableData", Model::data, true},
        {"NSDate", Model::date, false},
        {"NSSet", Model::set, false},
        {"NSMutableSet", Model::set, true},
        {"NSNull", Model::null, false},
    });
    static constexpr NameTable kKnownNames([] {
        std::array<std::string_view, kKnown.size()> names;
        std::ranges::transform(kKnown, names.begin(), &Known::name);
        return names;
    }());

    const Item item = list_.item(list_.element(objects_, static_cast<std::size_t>(uid)));
    if (item.kind != Kind::dictionary) {
        refuseAtObject(Code::badClass, uid);
    }
    const Fields fields(*this, item, uid);
    const Item className = fields.find(keys::kClassName);
    const Item chain = fields.find(keys::kClasses);
    if (!className.isString() || chain.kind != Kind::array || chain.count == 0 ||
        chain.count > limits::kClassChain) {
        refuseAtObject(Code::badClass, uid);
    }
    const auto names = [&](const Item& array) {
        std::vector<std::string> result;
        charge(array.count * sizeof(std::string));
        result.reserve(array.count);
        for (std::size_t i = 0; i < array.count; ++i) {
            const Item name = list_.item(list_.element(array, i));
            if (!name.isString()) {
                refuseAtObject(Code::badClass, uid);
            }
            chargeText(3 * name.count);
            result.push_back(list_.text(name));
        }
        return result;
    };
    Class type;
    for (std::size_t i = 0; i < chain.count; ++i) {
        const std::size_t place = kKnownNames.find(list_.uncheckedASCII(list_.element(chain, i)));
        if (place != kKnownNames.kNone) {
            type.model = kKnown[place].model;
            type.isMutable = kKnown[place].isMutable;
            type.isExact = i == 0;
            break;
        }
    }
    if (!type.isExact) {
        ObjectClass described;
        chargeText(3 * className.count);
        described.name = list_.text(className);
        described.chain = names(chain);
        const Item hints = fields.find(keys::kClassHints);
        if (hints.kind == Kind::array && hints.count <= limits::kClassChain) {
            described.hints = names(hints);
        }
        charge(kSharedOverhead + sizeof(ObjectClass));
        type.described = std::make_shared<const ObjectClass>(std::move(described));
    }
    return type;
}

// --- Objects ----------------------------------------------------------------------------------

const Value& KeyedUnarchiver::object(std::uint64_t uid) {
    if (uid >= objects_.count) {
        refuseAtObject(Code::uidOutOfRange, uid);
    }
    Mark& mark = marks_[static_cast<std::size_t>(uid)];
    switch (mark.state()) {
    case Mark::done:
        return values_[mark.index()];
    case Mark::open:
        refuseAtObject(Code::cycle, uid);
    case Mark::isClass:
        refuseAtObject(Code::notAnObject, uid);
    case Mark::untouched:
        break;
    }
    if (depth_ == limits::kDepth) {
        refuseAtObject(Code::tooDeep, uid);
    }
    ++depth_;
    mark = {Mark::open, values_.size()};
    Value& value = values_.emplace_back();
    value = read(uid, list_.item(list_.element(objects_, static_cast<std::size_t>(uid))));
    mark = {Mark::done, mark.index()};
    --depth_;
    return value;
}

const Value* KeyedUnarchiver::referenced(std::uint64_t uid) {
    if (uid == 0) {
        return nullptr;
    }
    if (uid >= objects_.count) {
        refuseAtObject(Code::uidOutOfRange, uid);
    }
    // A conditional reference to an object that was not archived leads to this text at an index of
    // its own. Collections cannot hold nil; there the same text is a string.
    const Item item = list_.item(list_.element(objects_, static_cast<std::size_t>(uid)));
    return list_.equals(item, keys::kNil) ? nullptr : &object(uid);
}

Value KeyedUnarchiver::read(std::uint64_t uid, const Item& item) {
    switch (item.kind) {
    case Kind::dictionary:
        return readKeyed(uid, item);
    case Kind::uid:
    case Kind::array:
        refuseAtObject(Code::notAnObject, uid);
    default:
        return inPlace(item);
    }
}

Value KeyedUnarchiver::inPlace(const Item& item) {
    switch (item.kind) {
    case Kind::boolean:
        return Value::boolean(item.count != 0);
    case Kind::integer:
        return Value::integer(list_.integer(item));
    case Kind::real:
        return Value::real(list_.real(item));
    case Kind::date:
        return Value::date({list_.date(item)});
    case Kind::data: {
        charge(kSharedOverhead + sizeof(Data) + item.count);
        const ByteView view = list_.data(item);
        return Value::data(Bytes(view.begin(), view.end()));
    }
    case Kind::ascii:
    case Kind::utf16:
        charge(kSharedOverhead + sizeof(String));
        chargeText(item.kind == Kind::ascii ? item.count : 3 * item.count);
        return Value::of(String{list_.text(item)});
    default:
        refuseAtByte(Code::wrongType, item.start);
    }
}

Value KeyedUnarchiver::readKeyed(std::uint64_t uid, const Item& item) {
    const Fields fields(*this, item, uid);
    // A copy: reading on may add classes.
    const Class type = classOf(fields);
    switch (type.model) {
    case Model::menu:
        return readMenu(type, fields);
    case Model::menuItem:
        return readMenuItem(type, fields);
    default:
        return type.isExact ? readModel(type, fields) : readOpaque(type, fields);
    }
}

Value KeyedUnarchiver::readModel(const Class& type, const Fields& fields) {
    switch (type.model) {
    case Model::string: {
        const Item string = fields.find(keys::kString);
        charge(kSharedOverhead + sizeof(String));
        if (string.isPresent()) {
            return Value::of(
                String{text(fields, keys::kString, string).value_or(""), type.isMutable});
        }
        const Bytes raw = bytes(fields, fields.require(keys::kStringBytes), keys::kStringBytes);
        std::string utf8(raw.begin(), raw.end());
        chargeText(utf8.size());
        if (!isValidUTF8(utf8)) {
            refuseAtObject(Code::badText, fields.uid(), keys::kStringBytes);
        }
        return Value::of(String{std::move(utf8), type.isMutable});
    }
    case Model::data: {
        const Item data = fields.find(keys::kData);
        const Key key = data.isPresent() ? Key(keys::kData) : Key(keys::kStringBytes);
        charge(kSharedOverhead + sizeof(Data));
        return Value::of(Data{bytes(fields, fields.require(key), key.text()), type.isMutable});
    }
    case Model::date: {
        const Item time = fields.require(keys::kTime);
        if (time.kind != Kind::real) {
            refuseAtObject(Code::wrongType, fields.uid(), keys::kTime);
        }
        return Value::date({list_.real(time)});
    }
    case Model::url:
        return Value::url(url(fields));
    case Model::array:
        charge(kSharedOverhead + sizeof(Array));
        return Value::of(Array{elements(fields), type.isMutable});
    case Model::set:
        charge(kSharedOverhead + sizeof(Set));
        return Value::of(Set{elements(fields), type.isMutable});
    case Model::dictionary: {
        charge(kSharedOverhead + sizeof(Dictionary));
        Dictionary result = dictionary(fields);
        result.isMutable = type.isMutable;
        return Value::of(std::move(result));
    }
    default:
        return {};
    }
}

KeyedUnarchiver::References KeyedUnarchiver::references(const Fields& fields, Key key,
                                                        std::string_view numberedKey) {
    References result{fields.uid(), key.text(), fields.find(key), {}};
    if (result.list.isPresent()) {
        if (result.list.kind != Kind::array) {
            refuseAtObject(Code::wrongType, fields.uid(), result.key);
        }
        result.count = result.list.count;
        return result;
    }
    // From 0 on, up to the first number that is missing.
    result.key = numberedKey;
    charge(fields.count() * sizeof(Ref));
    result.numbered.resize(fields.count(), kNoRef);
    for (std::size_t i = 0; i < fields.count(); ++i) {
        const RawField field = fields.at(i);
        const auto number = numberBehind(numberedKey, field.key);
        if (number && *number < result.numbered.size()) {
            result.numbered[*number] = field.value;
        }
    }
    while (result.count < result.numbered.size() && result.numbered[result.count] != kNoRef) {
        ++result.count;
    }
    return result;
}

std::uint64_t KeyedUnarchiver::uid(const References& references, std::size_t index) const {
    const bool isListed = references.list.isPresent();
    const auto refuse = [&](Code code) {
        std::string key(references.key);
        refuseAtObject(code, references.uid, isListed ? key : key + std::to_string(index));
    };
    const auto uid =
        list_.uid(isListed ? list_.element(references.list, index) : references.numbered[index]);
    if (!uid) {
        refuse(Code::wrongType);
    }
    if (*uid == 0) {
        refuse(Code::nilElement);
    }
    return *uid;
}

std::vector<Value> KeyedUnarchiver::elements(const Fields& fields) {
    const References listed = references(fields, keys::kElements, keys::kNumberedElement);
    charge(listed.count * sizeof(Value));
    std::vector<Value> result;
    result.reserve(listed.count);
    for (std::size_t i = 0; i < listed.count; ++i) {
        result.push_back(object(uid(listed, i)));
    }
    return result;
}

Dictionary KeyedUnarchiver::dictionary(const Fields& fields) {
    const References names = references(fields, keys::kDictionaryKeys, keys::kNumberedKey);
    const References listed = references(fields, keys::kElements, keys::kNumberedElement);
    if (names.count != listed.count) {
        refuseAtObject(Code::keysWithoutObjects, fields.uid());
    }
    Dictionary result;
    charge(names.count * sizeof(std::pair<Value, Value>));
    result.entries.reserve(names.count);
    for (std::size_t i = 0; i < names.count; ++i) {
        const Value& key = object(uid(names, i));
        result.entries.emplace_back(key, object(uid(listed, i)));
    }
    if (names.count > 1) {
        checkDistinct(result, fields.uid());
    }
    return result;
}

void KeyedUnarchiver::checkDistinct(const Dictionary& dictionary, std::uint64_t uid) {
    const auto refuse = [uid](const String* twin) {
        refuseAtObject(Code::duplicateKey, uid, twin->text);
    };
    if (dictionary.entries.size() <= kFewKeys) { // As in every message.
        std::array<const String*, kFewKeys> names;
        std::size_t count = 0;
        for (const auto& [key, value] : dictionary.entries) {
            const String* name = key.asStringObject();
            if (name == nullptr) {
                continue;
            }
            for (std::size_t i = 0; i < count; ++i) {
                if (isSameKey(names[i], name)) {
                    refuse(name);
                }
            }
            names[count++] = name;
        }
        return;
    }
    std::vector<const String*> names;
    charge(dictionary.entries.size() * sizeof(const String*));
    names.reserve(dictionary.entries.size());
    for (const auto& [key, value] : dictionary.entries) {
        if (const String* name = key.asStringObject()) {
            names.push_back(isLong(name) ? firstOfText(name) : name);
        }
    }
    std::ranges::sort(names, [](const String* a, const String* b) {
        if (isLong(a) || isLong(b)) {
            return isLong(a) && isLong(b) ? std::less<>()(a, b) : isLong(b);
        }
        return a != b && a->text < b->text;
    });
    const auto twin = std::ranges::adjacent_find(
        names, [this](const String* a, const String* b) { return isSameKey(a, b); });
    if (twin != names.end()) {
        refuse(*twin);
    }
}

bool KeyedUnarchiver::isSameKey(const String* a, const String* b) {
    if (a == b || a->text.size() != b->text.size()) {
        return a == b;
    }
    return isLong(a) ? firstOfText(a) == firstOfText(b) : a->text == b->text;
}

const String* KeyedUnarchiver::firstOfText(const String* string) {
    if (longKeys_ == nullptr) {
        longKeys_ = std::make_unique<LongKeys>();
    }
    if (const auto known = longKeys_->firsts.find(string); known != longKeys_->firsts.end()) {
        return known->second;
    }
    constexpr std::size_t kNodes = 16 * sizeof(void*); // Of both containers, and the buckets.
    charge(kNodes);
    const String* const first = longKeys_->byText.emplace(string->text, string).first->second;
    longKeys_->firsts.emplace(string, first);
    return first;
}

URL KeyedUnarchiver::url(const Fields& fields) {
    std::optional<URL> base;
    if (fields.has(keys::kBase)) {
        const auto uid = fields.findUID(keys::kBase);
        if (!uid) {
            refuseAtObject(Code::wrongType, fields.uid(), keys::kBase);
        }
        if (const Value* value = referenced(*uid)) {
            const URL* held = value->asURL();
            if (held == nullptr) {
                refuseAtObject(Code::wrongType, fields.uid(), keys::kBase);
            }
            base = *held;
        }
    }
    const Item item = fields.require(keys::kRelative);
    const Item plain = plainString(item);
    std::string copy;
    std::string_view relative;
    if (plain.kind == Kind::ascii && !list_.equals(plain, keys::kNil)) {
        relative = list_.uncheckedASCII(plain); // No URL holds anything but ASCII.
    } else {
        auto read = text(fields, keys::kRelative, item);
        if (!read) {
            refuseAtObject(Code::wrongType, fields.uid(), keys::kRelative);
        }
        copy = *std::move(read);
        relative = copy;
    }
    charge(kURLSize + relative.size());
    if (base) {
        // The absolute text is at most base and text joined, in a string that grew.
        charge(kResolvedSize + 2 * (base->absoluteString().size() + relative.size()));
    }
    auto url = base ? URL::fromText(relative, *base) : URL::fromText(relative);
    if (!url) {
        if (plain.kind == Kind::ascii) {
            static_cast<void>(list_.ascii(plain)); // Refuses what is not even text.
        }
        refuseAtObject(Code::badURL, fields.uid(), keys::kRelative);
    }
    return *std::move(url);
}

Bytes KeyedUnarchiver::bytes(const Fields& fields, const Item& item, std::string_view key) {
    if (item.kind == Kind::data) {
        const ByteView view = list_.data(item);
        charge(view.size());
        return Bytes(view.begin(), view.end());
    }
    const Value* value = item.kind == Kind::uid ? referenced(list_.uid(item)) : nullptr;
    const Data* data = value != nullptr ? value->asData() : nullptr;
    if (data == nullptr) {
        refuseAtObject(Code::wrongType, fields.uid(), key);
    }
    charge(data->bytes.size());
    return data->bytes;
}

// --- Opaque objects ---------------------------------------------------------------------------

Value KeyedUnarchiver::readOpaque(const Class& type, const Fields& fields) {
    charge(kSharedOverhead + sizeof(OpaqueObject));
    auto result = std::make_shared<OpaqueObject>();
    result->archivedClass = type.described;
    openValue(fields.uid()) = Value::opaque(result);
    std::vector<Field> kept;
    for (std::size_t i = 0; i < fields.count(); ++i) {
        if (fields.at(i).known != Key(keys::kClass)) {
            keep(kept, fields, fields.at(i));
        }
    }
    result->fields = share(std::move(kept));
    if (type.model != Model::opaque) {
        result->readAs = readModel(type, fields);
    }
    return Value::opaque(std::move(result));
}

void KeyedUnarchiver::keep(std::vector<Field>& otherFields, const Fields& fields,
                           const RawField& field) {
    chargeText(field.key.size());
    const std::string_view key = field.key;
    Slot content = slot(field.value, fields.uid());
    if (otherFields.size() == otherFields.capacity()) {
        const std::size_t wanted = std::max<std::size_t>(2 * otherFields.size(), 2);
        charge(wanted * sizeof(Field));
        otherFields.reserve(wanted);
    }
    otherFields.push_back({std::string(key), std::move(content)});
}

FieldList KeyedUnarchiver::share(std::vector<Field> fields) {
    if (fields.empty()) {
        return nullptr;
    }
    if (lastFields_ != nullptr && std::ranges::equal(*lastFields_, fields, isSameField)) {
        // What was charged for these goes with them.
        memoryLeft_ += fields.capacity() * sizeof(Field);
        return lastFields_;
    }
    charge(kSharedOverhead + sizeof(std::vector<Field>));
    lastFields_ = std::make_shared<const std::vector<Field>>(std::move(fields));
    return lastFields_;
}

Slot KeyedUnarchiver::slot(Ref ref, std::uint64_t owner) {
    const Item item = list_.item(ref);
    switch (item.kind) {
    case Kind::uid: {
        const std::uint64_t uid = list_.uid(item);
        if (uid < objects_.count && marks_[static_cast<std::size_t>(uid)].state() == Mark::open) {
            if (auto open = sharedObject(openValue(uid))) {
                return {Slot::BackReference{open}};
            }
        }
        const Value* value = referenced(uid);
        return value != nullptr ? Slot{Slot::Reference{*value}} : Slot{};
    }
    case Kind::array:
    case Kind::dictionary:
        break;
    default:
        return {Slot::InPlace{inPlace(item)}};
    }
    if (depth_ == limits::kDepth) {
        refuseAtObject(Code::tooDeep, owner);
    }
    ++depth_;
    Slot result;
    if (item.kind == Kind::array) {
        charge(kSharedOverhead + sizeof(std::vector<Slot>) + item.count * sizeof(Slot));
        std::vector<Slot> list;
        list.reserve(item.count);
        for (std::size_t i = 0; i < item.count; ++i) {
            list.push_back(slot(list_.element(item, i), owner));
        }
        result.content = std::make_shared<const std::vector<Slot>>(std::move(list));
    } else {
        const Fields fields(*this, item, owner);
        charge(kSharedOverhead + sizeof(std::vector<Field>) + item.count * sizeof(Field));
        std::vector<Field> record;
        record.reserve(item.count);
        for (std::size_t i = 0; i < fields.count(); ++i) {
            keep(record, fields, fields.at(i));
        }
        result.content = std::make_shared<const std::vector<Field>>(std::move(record));
    }
    --depth_;
    return result;
}

// --- Menus ------------------------------------------------------------------------------------

Value KeyedUnarchiver::readMenu(const Class& type, const Fields& fields) {
    charge(kSharedOverhead + sizeof(Menu));
    auto menu = std::make_shared<Menu>();
    menu->archivedClass = type.described;
    openValue(fields.uid()) = Value::menu(menu);
    std::vector<Field> otherFields;
    const auto read = [&](const RawField& field) {
        switch (field.known) {
        case Key(keys::kTitle):
            menu->title = text(fields, field, otherFields).value_or("");
            break;
        case Key(keys::kNoAutoenable):
            menu->autoenablesItems = !boolean(fields, field);
            break;
        default:
            readItems(*menu, fields, field);
        }
    };
    fields.forEach({keys::kTitle, keys::kNoAutoenable, keys::kMenuItems}, read,
                   [&](const RawField& field) { keep(otherFields, fields, field); });
    menu->otherFields = share(std::move(otherFields));
    return Value::menu(std::move(menu));
}

void KeyedUnarchiver::readItems(Menu& menu, const Fields& fields, const RawField& field) {
    const Item item = list_.item(field.value);
    const Value* value = item.kind == Kind::uid ? referenced(list_.uid(item)) : nullptr;
    const Array* items = value != nullptr ? value->asArray() : nullptr;
    if (items == nullptr) {
        refuseAtObject(Code::wrongType, fields.uid(), field.key);
    }
    charge(items->elements.size() * sizeof(std::shared_ptr<MenuItem>));
    menu.items.reserve(items->elements.size());
    for (const Value& element : items->elements) {
        auto menuItem = element.asMenuItem();
        if (menuItem == nullptr) {
            refuseAtObject(Code::wrongType, fields.uid(), field.key);
        }
        menu.add(std::move(menuItem));
    }
}

Value KeyedUnarchiver::readMenuItem(const Class& type, const Fields& fields) {
    charge(kSharedOverhead + sizeof(MenuItem));
    auto item = std::make_shared<MenuItem>();
    item->archivedClass = type.described;
    openValue(fields.uid()) = Value::menuItem(item);
    std::vector<Field> otherFields;
    static constexpr keys::KeySet kMembers{
        keys::kTitle,    keys::kKeyEquivalent, keys::kModifierMask, keys::kMnemonicLocation,
        keys::kTag,      keys::kState,         keys::kIndentation,  keys::kIsDisabled,
        keys::kIsHidden, keys::kIsAlternate,   keys::kIsSeparator,  keys::kToolTip,
        keys::kAction,   keys::kTarget,        keys::kSubmenu,      keys::kMenu};
    fields.forEach(
        kMembers, [&](const RawField& field) { readMember(*item, otherFields, fields, field); },
        [&](const RawField& field) { keep(otherFields, fields, field); });
    item->otherFields = share(std::move(otherFields));
    return Value::menuItem(std::move(item));
}

void KeyedUnarchiver::readMember(MenuItem& item, std::vector<Field>& otherFields,
                                 const Fields& fields, const RawField& field) {
    switch (field.known) {
    case Key(keys::kTitle):
        item.title = text(fields, field, otherFields).value_or("");
        break;
    case Key(keys::kKeyEquivalent):
        item.keyEquivalent = text(fields, field, otherFields).value_or("");
        break;
    case Key(keys::kModifierMask):
        item.keyEquivalentModifierMask = static_cast<std::uint64_t>(integer(fields, field));
        break;
    case Key(keys::kTag):
        item.tag = integer(fields, field);
        break;
    case Key(keys::kState): {
        const std::int64_t state = integer(fields, field);
        item.state = state < 0   ? MenuItemState::mixed
                     : state > 0 ? MenuItemState::on
                                 : MenuItemState::off;
        break;
    }
    case Key(keys::kIndentation):
        item.indentationLevel = integer(fields, field);
        break;
    case Key(keys::kIsDisabled):
        item.isEnabled = !boolean(fields, field);
        break;
    case Key(keys::kIsHidden):
        item.isHidden = boolean(fields, field);
        break;
    case Key(keys::kIsAlternate):
        item.isAlternate = boolean(fields, field);
        break;
    case Key(keys::kIsSeparator):
        item.isSeparator = boolean(fields, field);
        break;
    case Key(keys::kToolTip):
        item.toolTip = text(fields, field, otherFields);
        break;
    case Key(keys::kAction):
        if (auto name = text(fields, field, otherFields)) {
            item.action = Selector{*std::move(name)};
        }
        break;
    case Key(keys::kSubmenu):
        if (const Value* value = referenced(uid(fields, field))) {
            item.submenu = value->asMenu();
            if (item.submenu == nullptr) {
                refuseAtObject(Code::wrongType, fields.uid(), field.key);
            }
        }
        break;
    case Key(keys::kTarget): {
        const std::uint64_t target = uid(fields, field);
        if (target >= objects_.count) {
            refuseAtObject(Code::uidOutOfRange, fields.uid(), field.key);
        }
        if (target != 0) {
            charge(2 * sizeof(Target));
            targets_.push_back({&item, target});
        }
        break;
    }
    case Key(keys::kMnemonicLocation): {
        const Item number = list_.item(field.value);
        if (number.kind != Kind::integer || list_.integer(number) != keys::kNoMnemonic) {
            keep(otherFields, fields, field);
        }
        break;
    }
    default:
        break; // NSMenu: the menu that an item stands in says so itself.
    }
}

void KeyedUnarchiver::settleTargets() {
    for (const Target& target : targets_) {
        const Mark mark = marks_[static_cast<std::size_t>(target.uid)];
        if (mark.state() == Mark::done) {
            target.item->target = sharedObject(values_[mark.index()]);
        }
    }
}

bool KeyedUnarchiver::boolean(const Fields& fields, const RawField& field) const {
    const Item item = list_.item(field.value);
    if (item.kind != Kind::boolean) {
        refuseAtObject(Code::wrongType, fields.uid(), field.key);
    }
    return item.count != 0;
}

std::int64_t KeyedUnarchiver::integer(const Fields& fields, const RawField& field) const {
    const Item item = list_.item(field.value);
    if (item.kind != Kind::integer) {
        refuseAtObject(Code::wrongType, fields.uid(), field.key);
    }
    return list_.integer(item);
}

std::uint64_t KeyedUnarchiver::uid(const Fields& fields, const RawField& field) const {
    const auto uid = list_.uid(field.value);
    if (!uid) {
        refuseAtObject(Code::wrongType, fields.uid(), field.key);
    }
    return *uid;
}

BinaryPropertyList::Item KeyedUnarchiver::plainString(const Item& item) const {
    Item string = item;
    if (item.kind == Kind::uid) {
        const std::uint64_t uid = list_.uid(item);
        if (uid == 0 || uid >= objects_.count) {
            return {};
        }
        string = list_.item(list_.element(objects_, static_cast<std::size_t>(uid)));
    }
    return string.isString() ? string : Item{};
}

std::optional<std::string> KeyedUnarchiver::text(const Fields& fields, std::string_view key,
                                                 const Item& item) {
    if (const Item plain = plainString(item); plain.isPresent()) {
        if (item.kind == Kind::uid && list_.equals(plain, keys::kNil)) {
            return std::nullopt;
        }
        chargeText(plain.kind == Kind::ascii ? plain.count : 3 * plain.count);
        return list_.text(plain);
    }
    if (item.kind != Kind::uid) {
        refuseAtObject(Code::wrongType, fields.uid(), key);
    }
    const Value* value = referenced(list_.uid(item));
    if (value == nullptr) {
        return std::nullopt;
    }
    const std::string* string = value->asString();
    if (string == nullptr) {
        refuseAtObject(Code::wrongType, fields.uid(), key);
    }
    chargeText(string->size());
    return *string;
}

std::optional<std::string> KeyedUnarchiver::text(const Fields& fields, const RawField& field,
                                                 std::vector<Field>& otherFields) {
    const Item item = list_.item(field.value);
    auto result = text(fields, field.key, item);
    if (result && !plainString(item).isPresent()) {
        keep(otherFields, fields, field);
    }
    return result;
}

} // namespace corvid
