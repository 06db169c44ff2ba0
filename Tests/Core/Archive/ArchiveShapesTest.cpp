// Reading takes time in proportion to the bytes, whatever is shared in them: each shape is read in
// a small and in a 16 times larger size, and a byte of the large one may take only a few times
// longer. A reader that does something anew for each reference takes 16 times longer and more.

#include "Core/Archive/BinaryPropertyListWriter.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"
#include "Tests/Support/BytesOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace corvid {
namespace {

using Writer = BinaryPropertyListWriter;
using Ref = Writer::Ref;
using UID = std::uint64_t;

/// An archive in the making, in which everything can be shared: the values of the property list,
/// and the objects.
class Shape {
public:
    Shape() { add(writer.text("$null")); }

    /// One more object, which is the value `ref`.
    UID add(Ref ref) {
        objects_.push_back(ref);
        return objects_.size() - 1;
    }
    UID text(const std::string& text) { return add(writer.text(text)); }

    /// A reference, one value for each object.
    Ref to(UID uid) {
        references_.resize(std::max<std::size_t>(references_.size(), uid + 1), kNone);
        if (references_[uid] == kNone) {
            references_[uid] = writer.uid(uid);
        }
        return references_[uid];
    }
    Ref list(const std::vector<UID>& uids) {
        const auto array = writer.array(uids.size());
        for (std::size_t i = 0; i < uids.size(); ++i) {
            writer.setElement(array, i, to(uids[i]));
        }
        return array.ref;
    }
    Ref record(const std::vector<std::pair<Ref, Ref>>& pairs) {
        const auto dictionary = writer.dictionary(pairs.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            writer.setPair(dictionary, i, pairs[i].first, pairs[i].second);
        }
        return dictionary.ref;
    }
    UID classNamed(const std::string& name) {
        const Ref text = writer.text(name);
        const auto chain = writer.array(1);
        writer.setElement(chain, 0, text);
        return add(
            record({{writer.text("$classname"), text}, {writer.text("$classes"), chain.ref}}));
    }
    UID object(UID type, std::vector<std::pair<Ref, Ref>> pairs) {
        pairs.emplace_back(classKey_, to(type));
        return add(record(pairs));
    }
    UID collection(UID type, const std::vector<UID>& elements) {
        return object(type, {{elementsKey_, list(elements)}});
    }
    UID dictionary(UID type, const std::vector<UID>& names, const std::vector<UID>& values) {
        return object(type, {{namesKey_, list(names)}, {elementsKey_, list(values)}});
    }

    Bytes archive(UID root, std::size_t padding) {
        writer.data(Bytes(padding));
        const auto objects = writer.array(objects_.size());
        for (std::size_t i = 0; i < objects_.size(); ++i) {
            writer.setElement(objects, i, objects_[i]);
        }
        const Ref top = record({{writer.text("root"), to(root)}});
        return writer.finish(record({{writer.text("$top"), top},
                                     {writer.text("$objects"), objects.ref},
                                     {writer.text("$archiver"), writer.text("NSKeyedArchiver")},
                                     {writer.text("$version"), writer.integer(100'000)}}));
    }

    Writer writer{0x10000, 0}; // References of four bytes.

private:
    static constexpr Ref kNone = ~Ref{0};
    const Ref classKey_ = writer.text("$class");
    const Ref elementsKey_ = writer.text("NS.objects");
    const Ref namesKey_ = writer.text("NS.keys");
    std::vector<Ref> objects_;
    std::vector<Ref> references_;
};

/// A kind of archive, in sizes: `scale` is 1 or 16.
struct Kind {
    const char* name;
    std::function<Bytes(std::size_t scale)> archive;
    const char* refusal; ///< empty when it is read
};

constexpr std::size_t kText = 60'000;            // Characters of a long text.
constexpr std::size_t kMany = 2'000;             // References to one thing.
constexpr std::size_t kPaddingOfShape = 100'000; // So that the bound on memory is not what ends it.

std::vector<UID> repeated(UID uid, std::size_t count) {
    return std::vector<UID>(count, uid);
}

Bytes longKeyManyTimes(std::size_t scale) {
    Shape shape;
    const UID key = shape.text(std::string(scale * kText, 'k'));
    return shape.archive(shape.dictionary(shape.classNamed("NSDictionary"),
                                          repeated(key, scale * kMany),
                                          repeated(key, scale * kMany)),
                         scale * kPaddingOfShape);
}

Bytes equalKeys(std::size_t scale) {
    Shape shape;
    const Ref text = shape.writer.text(std::string(50, 'k'));
    std::vector<UID> keys(scale * kMany);
    std::ranges::generate(keys, [&] { return shape.add(text); });
    return shape.archive(shape.dictionary(shape.classNamed("NSDictionary"), keys, keys),
                         scale * kPaddingOfShape);
}

// Dictionaries of the same long keys, which differ in their last character only. The keys grow
// faster than the rest, so that it is them one sees.
Bytes longKeysInManyDictionaries(std::size_t scale, std::size_t keyCount) {
    Shape shape;
    std::vector<UID> keys;
    for (std::size_t i = 0; i < keyCount; ++i) {
        keys.push_back(shape.text(std::string(scale * scale * kText / 16 / keyCount, 'k') +
                                  static_cast<char>('0' + i)));
    }
    const UID type = shape.classNamed("NSDictionary");
    std::vector<UID> dictionaries(scale * kMany);
    std::ranges::generate(dictionaries, [&] { return shape.dictionary(type, keys, keys); });
    return shape.archive(shape.collection(shape.classNamed("NSArray"), dictionaries),
                         scale * keyCount * kPaddingOfShape / 4);
}

// Pairs of keys that a person cannot tell apart: the same text composed and decomposed, behind a
// long start. They are two keys.
Bytes canonicalTwins(std::size_t scale) {
    Shape shape;
    const std::string start(scale * scale * kText / 64, 'k');
    const std::vector<UID> keys{shape.text(start + "\u00E9"), shape.text(start + "e\u0301"),
                                shape.text("\u00E9" + start), shape.text("e\u0301" + start)};
    const UID type = shape.classNamed("NSDictionary");
    std::vector<UID> dictionaries(scale * kMany);
    std::ranges::generate(dictionaries, [&] { return shape.dictionary(type, keys, keys); });
    return shape.archive(shape.collection(shape.classNamed("NSArray"), dictionaries),
                         scale * kPaddingOfShape);
}

// Each level holds the one before many times.
Bytes deepArrays(std::size_t scale) {
    Shape shape;
    const UID type = shape.classNamed("NSArray");
    UID inner = shape.text(std::string(scale * kText, 't'));
    for (std::size_t level = 0; level < 150; ++level) {
        inner = shape.collection(type, repeated(inner, scale * 20));
    }
    return shape.archive(inner, scale * kPaddingOfShape);
}

Bytes deepDictionaries(std::size_t scale) {
    Shape shape;
    const UID type = shape.classNamed("NSDictionary");
    std::vector<UID> keys;
    for (std::size_t i = 0; i < scale * 10; ++i) {
        keys.push_back(shape.text("key " + std::to_string(i)));
    }
    UID inner = shape.text("innermost");
    for (std::size_t level = 0; level < 150; ++level) {
        inner = shape.dictionary(type, keys, repeated(inner, keys.size()));
    }
    return shape.archive(inner, 2 * scale * kPaddingOfShape);
}

// One plist string or data behind many objects.
Bytes sharedContent(std::size_t scale, bool isData) {
    Shape shape;
    const Ref content = isData ? shape.writer.data(Bytes(scale * kText / 8))
                               : shape.writer.text(std::string(scale * kText / 8, 't'));
    std::vector<UID> objects(scale * kMany);
    std::ranges::generate(objects, [&] { return shape.add(content); });
    return shape.archive(shape.collection(shape.classNamed("NSArray"), objects),
                         scale * kPaddingOfShape);
}

Bytes sets(std::size_t scale) {
    Shape shape;
    const UID text = shape.text(std::string(scale * kText, 't'));
    const UID set = shape.collection(shape.classNamed("NSSet"), repeated(text, scale * kMany));
    return shape.archive(set, scale * kPaddingOfShape);
}

Bytes itemsThatShareASubmenu(std::size_t scale) {
    Shape shape;
    const UID itemType = shape.classNamed("NSMenuItem");
    const UID arrayType = shape.classNamed("NSMutableArray");
    const Ref title = shape.writer.text("NSTitle");
    const Ref words = shape.to(shape.text(std::string(15, 't')));
    std::vector<UID> entries(scale * kMany / 4);
    std::ranges::generate(entries, [&] { return shape.object(itemType, {{title, words}}); });
    const UID menu = shape.object(
        shape.classNamed("NSMenu"),
        {{title, words},
         {shape.writer.text("NSMenuItems"), shape.to(shape.collection(arrayType, entries))}});
    const Ref submenuKey = shape.writer.text("NSSubmenu");
    std::vector<UID> items(scale * kMany / 4);
    std::ranges::generate(items, [&] {
        return shape.object(itemType, {{title, words}, {submenuKey, shape.to(menu)}});
    });
    return shape.archive(shape.collection(arrayType, items), 2 * scale * kPaddingOfShape);
}

Bytes menusThatShareTheirItems(std::size_t scale) {
    Shape shape;
    const UID itemType = shape.classNamed("NSMenuItem");
    const UID arrayType = shape.classNamed("NSMutableArray");
    const UID menuType = shape.classNamed("NSMenu");
    std::vector<UID> entries(scale * 200);
    std::ranges::generate(entries, [&] { return shape.object(itemType, {}); });
    const UID held = shape.collection(arrayType, entries);
    const Ref itemsKey = shape.writer.text("NSMenuItems");
    std::vector<UID> menus(scale * 200);
    std::ranges::generate(menus,
                          [&] { return shape.object(menuType, {{itemsKey, shape.to(held)}}); });
    return shape.archive(shape.collection(arrayType, menus), scale * kPaddingOfShape);
}

// Objects that all are one value of the property list, with as many long keys as an object may
// have. In UTF-16 when `start` is not ASCII.
Bytes sharedRecord(std::size_t scale, const std::string& start) {
    Shape shape;
    const Ref number = shape.writer.integer(7);
    std::vector<std::pair<Ref, Ref>> pairs;
    const std::size_t length = limits::kKeyLength - 10;
    for (std::size_t i = 0; i < 40; ++i) {
        pairs.emplace_back(
            shape.writer.text(start + std::string(length, 'k') + std::to_string(1'000 + i)),
            number);
    }
    const UID first = shape.object(shape.classNamed("NSArray"), {});
    pairs.emplace_back(shape.writer.text("$class"), shape.to(first - 1));
    const Ref record = shape.record(pairs);
    std::vector<UID> objects(scale * kMany / 4);
    std::ranges::generate(objects, [&] { return shape.add(record); });
    return shape.archive(shape.collection(shape.classNamed("NSMutableArray"), objects),
                         2 * scale * kPaddingOfShape);
}

Bytes longClassNames(std::size_t scale) {
    Shape shape;
    const Ref name = shape.writer.text(std::string(scale * kText / 8, 'C'));
    const auto chain = shape.writer.array(limits::kClassChain);
    for (std::size_t i = 0; i < limits::kClassChain; ++i) {
        shape.writer.setElement(chain, i, name);
    }
    const Ref definition = shape.record(
        {{shape.writer.text("$classname"), name}, {shape.writer.text("$classes"), chain.ref}});
    std::vector<UID> objects;
    for (std::size_t i = 0; i < scale * kMany / 4; ++i) {
        const UID type = shape.add(definition);
        objects.push_back(shape.object(type, {}));
    }
    return shape.archive(shape.collection(shape.classNamed("NSArray"), objects),
                         scale * kPaddingOfShape);
}

Bytes urlsOfOneLongText(std::size_t scale, bool isBase) {
    Shape shape;
    const UID type = shape.classNamed("NSURL");
    const Ref baseKey = shape.writer.text("NS.base");
    const Ref textKey = shape.writer.text("NS.relative");
    const UID path = shape.text("file:///" + std::string(scale * kText / 8, 'u') + "/");
    const UID whole = shape.object(type, {{textKey, shape.to(path)}});
    const UID name = shape.text("name");
    std::vector<UID> urls(scale * kMany);
    std::ranges::generate(urls, [&] {
        return isBase ? shape.object(type, {{baseKey, shape.to(whole)}, {textKey, shape.to(name)}})
                      : shape.object(type, {{textKey, shape.to(path)}});
    });
    return shape.archive(shape.collection(shape.classNamed("NSArray"), urls),
                         scale * kPaddingOfShape);
}

// Objects of an unknown class that say the same, so that they share what they say.
Bytes unknownObjectsThatAreAlike(std::size_t scale) {
    Shape shape;
    const UID type = shape.classNamed("Thing");
    const Ref number = shape.writer.integer(7);
    std::vector<std::pair<Ref, Ref>> pairs;
    for (std::size_t i = 0; i < 40; ++i) {
        pairs.emplace_back(shape.writer.text("field " + std::to_string(i)), number);
    }
    pairs.emplace_back(shape.writer.text("$class"), shape.to(type));
    const Ref record = shape.record(pairs);
    std::vector<UID> objects(scale * kMany / 4);
    std::ranges::generate(objects, [&] { return shape.add(record); });
    return shape.archive(shape.collection(shape.classNamed("NSArray"), objects),
                         4 * scale * kPaddingOfShape);
}

Bytes xmlOfManyStrings(std::size_t scale) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><array>";
    for (std::size_t i = 0; i < scale * kMany; ++i) {
        text += "<string>a &amp; b &lt; &#xE9;</string><!-- no -->";
    }
    return bytesOf(text + "</array></plist>");
}

const std::vector<Kind>& kinds() {
    using namespace std::placeholders;
    static const std::vector<Kind> all{
        {"oneLongKeyManyTimes", longKeyManyTimes, "duplicateKey"},
        {"equalKeys", equalKeys, "duplicateKey"},
        {"twoLongKeysInManyDictionaries", std::bind(longKeysInManyDictionaries, _1, 2), ""},
        {"twentyLongKeysInManyDictionaries", std::bind(longKeysInManyDictionaries, _1, 20), ""},
        {"canonicalTwins", canonicalTwins, ""},
        {"deepArrays", deepArrays, ""},
        {"deepDictionaries", deepDictionaries, ""},
        {"oneTextInManyObjects", std::bind(sharedContent, _1, false), "tooMuchMemory"},
        {"oneDataInManyObjects", std::bind(sharedContent, _1, true), "tooMuchMemory"},
        {"setsOfOneText", sets, ""},
        {"itemsThatShareASubmenu", itemsThatShareASubmenu, ""},
        {"menusThatShareTheirItems", menusThatShareTheirItems, "tooMuchMemory"},
        {"longASCIIKeys", std::bind(sharedRecord, _1, ""), "tooMuchMemory"},
        {"longUTF16Keys", std::bind(sharedRecord, _1, "\u00E9"), "tooMuchMemory"},
        {"longClassNames", longClassNames, "tooMuchMemory"},
        {"urlsOfOneText", std::bind(urlsOfOneLongText, _1, false), "tooMuchMemory"},
        {"urlsOfOneBase", std::bind(urlsOfOneLongText, _1, true), "tooMuchMemory"},
        {"unknownObjectsThatAreAlike", unknownObjectsThatAreAlike, "tooMuchMemory"},
        {"xmlOfManyStrings", xmlOfManyStrings, "notAnArchive"},
    };
    return all;
}

class ArchiveShapes : public ::testing::TestWithParam<std::size_t> {
protected:
    /// The processor's time for a byte of the archive, in seconds, the best of some; what else the
    /// machine does hardly counts.
    static double timeOfAByte(const Kind& kind, std::size_t scale) {
        const Bytes archive = kind.archive(scale);
        double best = 0;
        for (int round = 0; round < 3; ++round) {
            ArchiveError error;
            timespec start{};
            timespec end{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
            const bool isRead = unarchivedObject(archive, &error).has_value();
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
            EXPECT_EQ(isRead ? "" : std::string(name(error.code)), kind.refusal);
            const double time = static_cast<double>(end.tv_sec - start.tv_sec) +
                                static_cast<double>(end.tv_nsec - start.tv_nsec) / 1e9;
            best = round == 0 ? time : std::min(best, time);
        }
        return best / static_cast<double>(archive.size());
    }
};

TEST_P(ArchiveShapes, takeTimeByTheByte) {
    const Kind& kind = kinds().at(GetParam());
    // What a byte of an ordinary message takes is far below, so is the noise of a small one, and so
    // are the caches that a large one does not fit into. Time by the square of the bytes would be
    // sixteen times as long a byte.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
    constexpr double kAlwaysGood = 250e-9; // the sanitizers' builds, whose caches hold less
#else
    constexpr double kAlwaysGood = 20e-9;
#endif
    constexpr double kFactor = 3;
    constexpr auto kDeadline = std::chrono::seconds(30);
    const auto start = std::chrono::steady_clock::now();
    const double small = timeOfAByte(kind, 1);
    const double large = timeOfAByte(kind, 16);
    EXPECT_LT(large, std::max(kFactor * small, kAlwaysGood));
    EXPECT_LT(std::chrono::steady_clock::now() - start, kDeadline);
    RecordProperty("nanosecondsOfAByteSmall", std::to_string(small * 1e9));
    RecordProperty("nanosecondsOfAByteLarge", std::to_string(large * 1e9));
    std::printf("%s: %.1f and %.1f ns a byte\n", kind.name, small * 1e9, large * 1e9);
}

INSTANTIATE_TEST_SUITE_P(All, ArchiveShapes, ::testing::Range<std::size_t>(0, kinds().size()),
                         [](const auto& kind) { return std::string(kinds()[kind.param].name); });

} // namespace
} // namespace corvid
