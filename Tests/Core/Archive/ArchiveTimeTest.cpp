// Reading takes time in proportion to the bytes, whatever they say: archives of some megabytes in
// which one small thing is named very often. Each is read in less than a second; a reader that does
// the small thing anew each time takes minutes.

#include "Core/Archive/BinaryPropertyListWriter.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace corvid {
namespace {

using Writer = BinaryPropertyListWriter;
using Ref = Writer::Ref;

// Bytes that nothing refers to, so that the bound on memory is not what ends the reading.
constexpr std::size_t kPadding = std::size_t{8} << 20U;

// Objects 0 to 3 of each archive; what a test adds follows.
enum : std::uint64_t { kNil, kRoot, kThingClass, kArrayClass, kFirst };

Ref record(Writer& writer, const std::vector<std::pair<Ref, Ref>>& pairs) {
    const auto dictionary = writer.dictionary(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        writer.setPair(dictionary, i, pairs[i].first, pairs[i].second);
    }
    return dictionary.ref;
}

Ref classDefinition(Writer& writer, const std::string& name) {
    const Ref nameKey = writer.text("$classname");
    const Ref chainKey = writer.text("$classes");
    const auto chain = writer.array(1);
    const Ref text = writer.text(name);
    writer.setElement(chain, 0, text);
    return record(writer, {{nameKey, text}, {chainKey, chain.ref}});
}

// An archive of an array of `count` objects, each written by `object` with the number it has.
Bytes archiveOf(std::size_t count, const std::function<Ref(Writer&, std::size_t)>& object) {
    constexpr std::size_t kManyValues = 0x10000; // References of four bytes.
    Writer writer(kManyValues, kPadding);
    writer.data(Bytes(kPadding));
    const auto objects = writer.array(kFirst + count);
    writer.setElement(objects, kNil, writer.text("$null"));
    const Ref classKey = writer.text("$class");
    const auto list = writer.array(count);
    for (std::size_t i = 0; i < count; ++i) {
        writer.setElement(list, i, writer.uid(kFirst + i));
    }
    const Ref elementsKey = writer.text("NS.objects");
    const Ref arrayClass = writer.uid(kArrayClass);
    writer.setElement(objects, kRoot,
                      record(writer, {{classKey, arrayClass}, {elementsKey, list.ref}}));
    writer.setElement(objects, kThingClass, classDefinition(writer, "Thing"));
    writer.setElement(objects, kArrayClass, classDefinition(writer, "NSArray"));
    for (std::size_t i = 0; i < count; ++i) {
        writer.setElement(objects, kFirst + i, object(writer, i));
    }
    const Ref rootKey = writer.text("root");
    const Ref top = record(writer, {{rootKey, writer.uid(kRoot)}});
    const Ref keys[] = {writer.text("$top"), writer.text("$objects"), writer.text("$archiver"),
                        writer.text("$version")};
    const Ref archiver = writer.text("NSKeyedArchiver");
    const Ref version = writer.integer(100000);
    return writer.finish(record(
        writer, {{keys[0], top}, {keys[1], objects.ref}, {keys[2], archiver}, {keys[3], version}}));
}

// Reads `archive` within the deadline; what it says when it is refused.
std::string refusalInTime(const Bytes& archive) {
    constexpr auto kDeadline = std::chrono::seconds(20);
    const auto start = std::chrono::steady_clock::now();
    ArchiveError error;
    const auto value = unarchivedObject(archive, &error);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kDeadline);
    return value ? "" : std::string(name(error.code));
}

TEST(ArchiveTime, ObjectsThatShareALongKey) {
    const auto archiveWith = [](std::size_t length) {
        Ref longKey = 0;
        Ref classKey = 0;
        return archiveOf(50'000, [=](Writer& writer, std::size_t i) mutable {
            if (i == 0) {
                longKey = writer.text(std::string(length, 'k'));
                classKey = writer.text("$class");
            }
            // An array that has no elements, and a key that arrays do not know.
            const Ref number = writer.integer(7);
            return record(writer, {{longKey, number}, {classKey, writer.uid(kArrayClass)}});
        });
    };
    EXPECT_EQ(refusalInTime(archiveWith(limits::kKeyLength)), "");
    EXPECT_EQ(refusalInTime(archiveWith(limits::kKeyLength + 1)), "stringTooLong");
    EXPECT_EQ(refusalInTime(archiveWith(limits::kStringLength)), "stringTooLong");
}

TEST(ArchiveTime, ArraysWithAsManyNumberedKeysAsAnObjectMayHave) {
    std::vector<Ref> keys;
    Ref element = 0;
    const Bytes archive = archiveOf(1'000, [&](Writer& writer, std::size_t i) {
        if (i == 0) {
            return writer.text("element");
        }
        if (i == 1) {
            keys.push_back(writer.text("$class"));
            for (std::size_t n = 0; n + 1 < limits::kKeysPerObject; ++n) {
                keys.push_back(writer.text("NS.object." + std::to_string(n)));
            }
            element = writer.uid(kFirst);
        }
        std::vector<std::pair<Ref, Ref>> pairs{{keys.front(), writer.uid(kArrayClass)}};
        for (std::size_t n = 1; n < keys.size(); ++n) {
            pairs.emplace_back(keys[n], element);
        }
        return record(writer, pairs);
    });
    EXPECT_EQ(refusalInTime(archive), "");
}

TEST(ArchiveTime, AClassForEachObject) {
    constexpr std::size_t kPairs = 20'000;
    Ref classKey = 0;
    const Bytes archive = archiveOf(kPairs, [&](Writer& writer, std::size_t i) {
        if (i == 0) {
            classKey = writer.text("$class");
        }
        // The second half are the classes of the first; as elements of an array they are refused,
        // but only when all the others have been read.
        return i < kPairs / 2 ? record(writer, {{classKey, writer.uid(kFirst + kPairs / 2 + i)}})
                              : classDefinition(writer, "Class" + std::to_string(i));
    });
    EXPECT_EQ(refusalInTime(archive), "notAnObject");
}

TEST(ArchiveTime, ListsInPlaceThatUnfold) {
    // Each list holds the one before twice: a few hundred bytes that say 2^40 values.
    const Bytes archive = archiveOf(1, [&](Writer& writer, std::size_t) {
        Ref inner = writer.integer(7);
        for (int level = 0; level < 40; ++level) {
            const auto list = writer.array(2);
            writer.setElement(list, 0, inner);
            writer.setElement(list, 1, inner);
            inner = list.ref;
        }
        const Ref key = writer.text("list");
        const Ref classKey = writer.text("$class");
        return record(writer, {{key, inner}, {classKey, writer.uid(kThingClass)}});
    });
    EXPECT_EQ(refusalInTime(archive), "tooMuchMemory");
}

TEST(ArchiveTime, OneLongTextInManyPlaces) {
    Ref text = 0;
    Ref key = 0;
    Ref classKey = 0;
    const Bytes archive = archiveOf(50'000, [&](Writer& writer, std::size_t i) {
        if (i == 0) {
            text = writer.text(std::string(limits::kStringLength, 't'));
            key = writer.text("text");
            classKey = writer.text("$class");
        }
        return record(writer, {{key, text}, {classKey, writer.uid(kThingClass)}});
    });
    EXPECT_EQ(refusalInTime(archive), "tooMuchMemory");
}

TEST(ArchiveTime, ADictionaryWithManyKeys) {
    std::vector<std::pair<std::string, Value>> entries;
    for (int i = 0; i < 100'000; ++i) {
        entries.emplace_back("key " + std::to_string(i), Value::boolean(true));
    }
    EXPECT_EQ(refusalInTime(archivedData(Value::dictionary(std::move(entries)))), "");
}

} // namespace
} // namespace corvid
