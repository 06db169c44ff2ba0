#include "Tests/Core/Archive/ArchiveComparison.h"

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/Menu.h"
#include "Core/Archive/OpaqueObject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <vector>

namespace corvid {

namespace {

std::string layoutOf(const BinaryPropertyList& list, BinaryPropertyList::Ref ref) {
    using Kind = BinaryPropertyList::Kind;
    const auto item = list.item(ref);
    switch (item.kind) {
    case Kind::absent:
        break;
    case Kind::boolean:
        return item.count != 0 ? "true" : "false";
    case Kind::integer:
        return "i" + std::to_string(item.count) + ":" + std::to_string(list.integer(item));
    case Kind::real:
        return "r" + std::to_string(item.count) + ":" + std::to_string(list.real(item));
    case Kind::date:
        return "t:" + std::to_string(list.date(item));
    case Kind::uid:
        return "u" + std::to_string(item.count) + ":" + std::to_string(list.uid(item));
    case Kind::data: {
        const ByteView bytes = list.data(item);
        return "d:" + std::string(bytes.begin(), bytes.end());
    }
    case Kind::ascii:
        return "a:" + list.text(item);
    case Kind::utf16:
        return "w:" + list.text(item);
    case Kind::array: {
        std::string text = "[";
        for (std::size_t i = 0; i < item.count; ++i) {
            text += layoutOf(list, list.element(item, i)) + ",";
        }
        return text + "]";
    }
    case Kind::dictionary: {
        std::vector<std::string> entries;
        for (std::size_t i = 0; i < item.count; ++i) {
            entries.push_back(layoutOf(list, list.key(item, i)) + "=" +
                              layoutOf(list, list.value(item, i)));
        }
        std::ranges::sort(entries);
        std::string text = "{";
        for (const std::string& entry : entries) {
            text += entry + ",";
        }
        return text + "}";
    }
    }
    return {};
}

class Describer {
public:
    std::string describe(const Value& value) {
        write(value);
        return out_.str();
    }

private:
    bool begin(const char* kind, const void* address) {
        const auto [place, isNew] = numbers_.try_emplace(address, numbers_.size());
        out_ << kind << '#' << place->second;
        return isNew;
    }

    void write(const Value& value) {
        if (const auto opaque = value.asOpaque()) {
            if (begin("opaque", opaque.get())) {
                write(*opaque->archivedClass);
                write(opaque->fields);
            }
        } else if (const auto item = value.asMenuItem()) {
            if (begin("item", item.get())) {
                write(*item);
            }
        } else if (const auto menu = value.asMenu()) {
            if (begin("menu", menu.get())) {
                write(*menu);
            }
        } else if (const bool* boolean = value.asBoolean()) {
            out_ << (*boolean ? "true" : "false");
        } else if (const auto* integer = value.asInteger()) {
            out_ << *integer;
        } else if (const double* real = value.asReal()) {
            out_ << "real " << *real;
        } else if (const String* string = value.asStringObject()) {
            if (begin(string->isMutable ? "mutable string" : "string", value.identity())) {
                out_ << '"' << string->text << '"';
            }
        } else if (const Date* date = value.asDate()) {
            out_ << "date " << date->secondsSinceReferenceDate;
        } else if (const Data* data = value.asData()) {
            out_ << (data->isMutable ? "mutable data " : "data ")
                 << std::string(data->bytes.begin(), data->bytes.end());
        } else if (const URL* url = value.asURL()) {
            if (begin("url", value.identity())) {
                out_ << url->relativeString();
                if (url->base() != nullptr) {
                    out_ << " on ";
                    write(Value::url(*url->base()));
                }
            }
        } else if (const Array* array = value.asArray()) {
            if (begin(array->isMutable ? "mutable array" : "array", value.identity())) {
                write(array->elements);
            }
        } else if (const Set* set = value.asSet()) {
            if (begin(set->isMutable ? "mutable set" : "set", value.identity())) {
                write(set->elements);
            }
        } else if (const Dictionary* dictionary = value.asDictionary()) {
            if (begin(dictionary->isMutable ? "mutable dictionary" : "dictionary",
                      value.identity())) {
                for (const auto& [key, element] : dictionary->entries) {
                    out_ << "\n(";
                    write(key);
                    out_ << " = ";
                    write(element);
                    out_ << ')';
                }
            }
        } else {
            out_ << "null";
        }
    }

    void write(const std::vector<Value>& elements) {
        for (const Value& element : elements) {
            out_ << "\n- ";
            write(element);
        }
    }

    void write(const ObjectClass& described) {
        out_ << " of " << described.name;
        for (const auto* names : {&described.chain, &described.hints}) {
            out_ << " <";
            for (const std::string& name : *names) {
                out_ << name << ' ';
            }
            out_ << '>';
        }
    }

    void write(const FieldList& fields) {
        if (fields == nullptr) {
            return;
        }
        // The writer has its own order for the keys that it knows.
        std::vector<const Field*> sorted;
        for (const Field& field : *fields) {
            sorted.push_back(&field);
        }
        std::ranges::sort(sorted, {}, &Field::key);
        for (const Field* field : sorted) {
            out_ << "\n  " << field->key << ": ";
            write(field->slot);
        }
    }

    void write(const Slot& slot) {
        if (const auto* reference = std::get_if<Slot::Reference>(&slot.content)) {
            out_ << "-> ";
            write(reference->value);
        } else if (const auto* inPlace = std::get_if<Slot::InPlace>(&slot.content)) {
            const String* string = inPlace->value.asStringObject();
            string != nullptr ? static_cast<void>(out_ << '"' << string->text << '"')
                              : write(inPlace->value);
        } else if (const auto* list = std::get_if<Slot::List>(&slot.content)) {
            out_ << "list";
            for (const Slot& element : **list) {
                out_ << "\n  - ";
                write(element);
            }
        } else if (const auto* record = std::get_if<Slot::Record>(&slot.content)) {
            out_ << "record";
            write(*record);
        } else if (const auto* back = std::get_if<Slot::BackReference>(&slot.content)) {
            begin("back to ", back->object.lock().get());
        } else {
            out_ << "nil";
        }
    }

    void write(const MenuItem& item) {
        out_ << " \"" << item.title << "\" key \"" << item.keyEquivalent << "\" mask "
             << item.keyEquivalentModifierMask << " tag " << item.tag << " state "
             << static_cast<int>(item.state) << " indent " << item.indentationLevel << " enabled "
             << item.isEnabled << " hidden " << item.isHidden << " alternate " << item.isAlternate
             << " separator " << item.isSeparator << " tip " << item.toolTip.value_or("none")
             << " action " << (item.action ? item.action->name : "none");
        if (const auto target = item.target.lock()) {
            out_ << " target ";
            begin("", target.get());
        }
        if (const auto menu = item.menu.lock()) {
            out_ << " in ";
            begin("", menu.get());
        }
        if (item.archivedClass != nullptr) {
            write(*item.archivedClass);
        }
        write(item.otherFields);
        if (item.submenu != nullptr) {
            out_ << "\n submenu ";
            write(Value::menu(item.submenu));
        }
    }

    void write(const Menu& menu) {
        out_ << " \"" << menu.title << "\" autoenables " << menu.autoenablesItems;
        if (menu.archivedClass != nullptr) {
            write(*menu.archivedClass);
        }
        write(menu.otherFields);
        for (const auto& item : menu.items) {
            out_ << "\n  * ";
            write(Value::menuItem(item));
        }
    }

    std::ostringstream out_;
    std::map<const void*, std::size_t> numbers_;
};

} // namespace

Bytes readTestFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in) << "cannot read " << path;
    return Bytes{std::istreambuf_iterator<char>(in), {}};
}

std::string comparableLayout(ByteView archive) {
    const BinaryPropertyList list(archive);
    const ByteView widths = archive.subspan(archive.size() - 26, 2);
    return std::to_string(archive.size()) + " bytes, widths " + std::to_string(widths[0]) + " " +
           std::to_string(widths[1]) + ", " + std::to_string(list.valueCount()) +
           " values: " + layoutOf(list, list.top());
}

std::string completeDescription(const Value& value) {
    return Describer().describe(value);
}

} // namespace corvid
