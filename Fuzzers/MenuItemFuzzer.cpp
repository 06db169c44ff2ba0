// Menus and their items, with every key that the platform writes, holding anything: the input is
// not an archive but says which objects one has and what they refer to.

#include "Core/Archive/BinaryPropertyListWriter.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace corvid;

constexpr std::size_t kMostObjects = 64;
// More than references of one byte can tell apart. Room is made for as many, so no more than that.
constexpr std::size_t kManyValues = 0x100;

constexpr auto kKeys = std::to_array<std::string_view>({"NSTitle",
                                                        "NSKeyEquiv",
                                                        "NSKeyEquivModMask",
                                                        "NSMnemonicLoc",
                                                        "NSTag",
                                                        "NSState",
                                                        "NSIndent",
                                                        "NSIsDisabled",
                                                        "NSIsHidden",
                                                        "NSIsAlternate",
                                                        "NSIsSeparator",
                                                        "NSToolTip",
                                                        "NSAction",
                                                        "NSTarget",
                                                        "NSSubmenu",
                                                        "NSMenu",
                                                        "NSImage",
                                                        "NSOnImage",
                                                        "NSMixedImage",
                                                        "NSAttributedTitle",
                                                        "NSRepObject",
                                                        "NSMenuItems",
                                                        "NSNoAutoenable",
                                                        "NSName",
                                                        "NS.objects",
                                                        "NS.keys",
                                                        "NS.string",
                                                        "NS.object.0",
                                                        "NS.key.0",
                                                        "NS.relative",
                                                        "NS.base",
                                                        "NS.data",
                                                        "NS.time",
                                                        "NSHiddenInRepresentation"});

constexpr auto kChains =
    std::to_array<std::array<std::string_view, 3>>({{"NSMenuItem", "NSObject", ""},
                                                    {"NSMenu", "NSObject", ""},
                                                    {"NSArray", "NSObject", ""},
                                                    {"NSMutableArray", "NSArray", "NSObject"},
                                                    {"NSString", "NSObject", ""},
                                                    {"NSMutableString", "NSString", "NSObject"},
                                                    {"NSLocalizableString", "NSString", "NSObject"},
                                                    {"NSDictionary", "NSObject", ""},
                                                    {"NSSet", "NSObject", ""},
                                                    {"NSURL", "NSObject", ""},
                                                    {"NSCustomResource", "NSObject", ""},
                                                    {"HostItem", "NSMenuItem", "NSObject"},
                                                    {"%NSX", "NSMenu", "NSObject"}});

class Builder {
public:
    Builder(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    Bytes build() {
        const std::size_t own = 1 + next() % kMostObjects;
        count_ = 1 + own + kChains.size();
        const auto top = writer_.dictionary(4);
        const auto pair = [&](std::size_t index, std::string_view key, std::size_t value) {
            writer_.setPair(top, index, writer_.text(key), value);
        };
        pair(0, "$version", writer_.integer(100000));
        pair(1, "$archiver", writer_.text("NSKeyedArchiver"));
        const auto roots = writer_.dictionary(1);
        writer_.setPair(roots, 0, writer_.text("root"), writer_.uid(1));
        pair(2, "$top", roots.ref);
        const auto objects = writer_.array(count_);
        pair(3, "$objects", objects.ref);
        writer_.setElement(objects, 0, writer_.text("$null"));
        for (std::size_t i = 0; i < own; ++i) {
            writer_.setElement(objects, 1 + i, object(1 + own));
        }
        for (std::size_t i = 0; i < kChains.size(); ++i) {
            writer_.setElement(objects, 1 + own + i, classDefinition(kChains[i]));
        }
        return writer_.finish(top.ref);
    }

private:
    std::size_t next() { return at_ < size_ ? data_[at_++] : 0; }

    std::size_t object(std::size_t firstClass) {
        const std::size_t kind = next();
        if (kind < 64) {
            return scalar(kind);
        }
        const std::size_t fields = next() % 16;
        const auto dictionary = writer_.dictionary(fields + 1);
        writer_.setPair(dictionary, 0, writer_.text("$class"),
                        writer_.uid(firstClass + kind % kChains.size()));
        // In turn from a first one, so that no key comes twice.
        const std::size_t first = next();
        for (std::size_t i = 0; i < fields; ++i) {
            const std::size_t key = writer_.text(kKeys[(first + i) % kKeys.size()]);
            writer_.setPair(dictionary, 1 + i, key, slot(3));
        }
        return dictionary.ref;
    }

    std::size_t slot(int depth) {
        const std::size_t kind = next();
        if (kind < 128) {
            return writer_.uid(next() % count_);
        }
        if (kind < 192 || depth == 0) {
            return scalar(kind);
        }
        const std::size_t elements = next() % 8;
        if (kind < 240) {
            const auto list = writer_.array(elements);
            for (std::size_t i = 0; i < elements; ++i) {
                writer_.setElement(list, i, slot(depth - 1));
            }
            return list.ref;
        }
        const auto record = writer_.dictionary(elements);
        for (std::size_t i = 0; i < elements; ++i) {
            const std::size_t key = writer_.text(std::to_string(i));
            writer_.setPair(record, i, key, slot(depth - 1));
        }
        return record.ref;
    }

    std::size_t scalar(std::size_t kind) {
        switch (kind % 6) {
        case 0:
            return writer_.boolean(next() % 2 != 0);
        case 1:
            return writer_.integer(static_cast<std::int64_t>(next()) - 128);
        case 2:
            return writer_.real(static_cast<double>(next()));
        case 3:
            return writer_.data(ByteView(data_, next() % (size_ + 1)));
        case 4:
            return writer_.date(static_cast<double>(next()));
        default:
            return writer_.text(next() % 4 == 0 ? "$null" : "été:");
        }
    }

    std::size_t classDefinition(const std::array<std::string_view, 3>& chain) {
        const auto dictionary = writer_.dictionary(2);
        writer_.setPair(dictionary, 0, writer_.text("$classname"), writer_.text(chain[0]));
        const std::size_t key = writer_.text("$classes");
        const std::size_t length = chain[2].empty() ? 2 : 3;
        const auto names = writer_.array(length);
        for (std::size_t i = 0; i < length; ++i) {
            writer_.setElement(names, i, writer_.text(chain[i]));
        }
        writer_.setPair(dictionary, 1, key, names.ref);
        return dictionary.ref;
    }

    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
    std::size_t count_ = 0;
    BinaryPropertyListWriter writer_{kManyValues, 4096};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = unarchivedObject(Builder(data, size).build());
    if (!value) {
        return 0;
    }
    if (const auto item = value->asMenuItem()) {
        item->image = std::make_shared<Image>();
        item->action = Selector{"performAction:"};
        if (item->submenu != nullptr) {
            for (const auto& below : item->submenu->items) {
                below->target = item;
            }
        }
    }
    const Bytes archive = archivedData(*value);
    const auto again = unarchivedObject(archive);
    if (!again || archivedData(*again).size() > archive.size()) {
        std::abort();
    }
    return 0;
}
