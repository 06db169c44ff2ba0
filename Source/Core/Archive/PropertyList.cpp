#include "Core/Archive/PropertyList.h"

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/Limits.h"
#include "Core/Archive/XMLPropertyList.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace corvid {

namespace {

using Code = ArchiveError::Code;
using Kind = BinaryPropertyList::Kind;

class Reader {
public:
    explicit Reader(const BinaryPropertyList& list)
        : list_(list), values_(list.valueCount()),
          memoryLeft_(limits::kPlainMemoryFactor * list.size() + limits::kMemoryAllowance) {}

    Value read(BinaryPropertyList::Ref ref) {
        // A value that is referred to twice is made once; null stands for one not made yet, which
        // a property list cannot hold.
        if (!values_[ref].isNull()) {
            return values_[ref];
        }
        const BinaryPropertyList::Item item = list_.item(ref);
        if (depth_ == limits::kDepth) {
            refuseAtByte(Code::tooDeep, item.start);
        }
        ++depth_;
        values_[ref] = make(item);
        --depth_;
        return values_[ref];
    }

private:
    void charge(std::size_t bytes, const BinaryPropertyList::Item& item) {
        if (bytes > memoryLeft_) {
            refuseAtByte(Code::tooMuchMemory, item.start);
        }
        memoryLeft_ -= bytes;
    }

    Value make(const BinaryPropertyList::Item& item) {
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
            const ByteView view = list_.data(item);
            return Value::data(Bytes(view.begin(), view.end()));
        }
        case Kind::ascii:
        case Kind::utf16:
            return Value::string(list_.text(item));
        case Kind::uid:
            return Value::dictionary(
                {{"CF$UID", Value::integer(static_cast<std::int64_t>(list_.uid(item)))}});
        case Kind::array: {
            charge(item.count * sizeof(Value), item);
            std::vector<Value> elements;
            elements.reserve(item.count);
            for (std::size_t i = 0; i < item.count; ++i) {
                elements.push_back(read(list_.element(item, i)));
            }
            return Value::array(std::move(elements));
        }
        case Kind::dictionary:
            return dictionary(item);
        case Kind::absent:
            break;
        }
        refuseAtByte(Code::unknownType, item.start);
    }

    Value dictionary(const BinaryPropertyList::Item& item) {
        charge(item.count * sizeof(std::pair<Value, Value>), item);
        Dictionary result;
        std::set<std::string_view> names;
        for (std::size_t i = 0; i < item.count; ++i) {
            const auto keyRef = list_.key(item, i);
            const BinaryPropertyList::Item key = list_.item(keyRef);
            if (!key.isString()) {
                refuseAtByte(Code::keyNotString, key.start);
            }
            result.entries.emplace_back(read(keyRef), read(list_.value(item, i)));
            if (!names.insert(*result.entries.back().first.asString()).second) {
                refuseAtByte(Code::duplicateKey, item.start);
            }
        }
        return Value::of(std::move(result));
    }

    const BinaryPropertyList& list_;
    std::vector<Value> values_;
    std::size_t memoryLeft_;
    std::size_t depth_ = 0;
};

} // namespace

std::optional<Value> propertyListValue(ByteView bytes, ArchiveError* error) {
    try {
        const Bytes converted = looksLikeXML(bytes) ? binaryPropertyListFromXML(bytes) : Bytes();
        const BinaryPropertyList list(converted.empty() ? bytes : converted);
        return Reader(list).read(list.top());
    } catch (ArchiveRefusal& refusal) {
        if (error != nullptr) {
            *error = std::move(refusal.error);
        }
        return std::nullopt;
    }
}

} // namespace corvid
