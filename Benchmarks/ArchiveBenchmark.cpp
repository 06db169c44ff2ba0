// Keyed archives beside libplist on the same bytes. libplist reads and writes the property list
// alone; ours makes the objects of it, and an archive of objects.

#include "Benchmarks/Figure.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <new>
#include <string>

namespace {

std::size_t allocations = 0;

} // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace corvid::bench {
namespace {

// The processor's time of one call in seconds, the best of all rounds: so other work on the machine
// hardly counts.
struct Timer {
    double best = std::numeric_limits<double>::infinity();

    template <class Work>
    void run(std::size_t calls, Work work) {
        const std::clock_t start = std::clock();
        for (std::size_t i = 0; i < calls; ++i) {
            work();
        }
        const double elapsed = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        best = std::min(best, elapsed / static_cast<double>(calls));
    }
};

Value badgeRequest() {
    return Value::dictionary(
        {{"url",
          Value::url(*URL::fileURL("/Volumes/Corvid/Shared Folders/Q3/Forecast v12.xlsx"))}});
}

Value actionRequest(std::size_t count) {
    std::vector<Value> paths;
    for (std::size_t i = 0; i < count; ++i) {
        paths.push_back(
            Value::url(*URL::fileURL("/Volumes/Corvid/folder/item " + std::to_string(i) + ".txt")));
    }
    return Value::dictionary(
        {{"paths", Value::array(std::move(paths))}, {"operatingOnParent", Value::boolean(false)}});
}

Value menuReply(int count) {
    std::vector<Value> items;
    for (int i = 0; i < count; ++i) {
        auto item = std::make_shared<MenuItem>();
        item->title = "Entry number " + std::to_string(i);
        item->action = Selector{"perform" + std::to_string(i % 10) + ":"};
        item->tag = i;
        items.push_back(Value::menuItem(std::move(item)));
    }
    return Value::array(std::move(items));
}

void parseWithLibplist(const Bytes& archive) {
    plist_t list = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(archive.data()),
                   static_cast<std::uint32_t>(archive.size()), &list);
    if (list == nullptr) {
        std::fprintf(stderr, "libplist cannot read the archive\n");
        std::exit(1);
    }
    plist_free(list);
}

void writeWithLibplist(plist_t list) {
    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(list, &bytes, &size);
    if (bytes == nullptr) {
        std::fprintf(stderr, "libplist cannot write the list\n");
        std::exit(1);
    }
    plist_to_bin_free(bytes);
}

void decode(const Bytes& archive) {
    const auto value = unarchivedObject(archive);
    if (!value) {
        std::fprintf(stderr, "an archive of our own is refused\n");
        std::exit(1);
    }
    keep(value);
}

struct Comparison {
    Timer decodeOurs, decodeTheirs, encodeOurs, encodeTheirs;

    // Interleaved, so that what the machine does meanwhile meets both.
    void run(const Value& value, int rounds, std::size_t calls) {
        const Bytes archive = archivedData(value);
        plist_t list = nullptr;
        plist_from_bin(reinterpret_cast<const char*>(archive.data()),
                       static_cast<std::uint32_t>(archive.size()), &list);
        for (int round = 0; round < rounds; ++round) {
            decodeOurs.run(calls, [&] { decode(archive); });
            decodeTheirs.run(calls, [&] { parseWithLibplist(archive); });
            encodeOurs.run(calls, [&] { keep(archivedData(value)); });
            encodeTheirs.run(calls, [&] { writeWithLibplist(list); });
        }
        plist_free(list);
    }
};

void compareBadgeRequest(bool quick) {
    const Value value = badgeRequest();
    Comparison times;
    times.run(value, quick ? 20 : 300, quick ? 200 : 1000);
    print({"archive_decode_libplist_vs_ours", times.decodeTheirs.best / times.decodeOurs.best,
           "ratio", 6, Better::Higher});
    print({"archive_encode_libplist_vs_ours", times.encodeTheirs.best / times.encodeOurs.best,
           "ratio", 10, Better::Higher});
    print({"archive_decode_badge_request", times.decodeOurs.best * 1e9, "ns", {}});
    print({"archive_encode_badge_request", times.encodeOurs.best * 1e9, "ns", {}});

    const Bytes archive = archivedData(value);
    std::size_t before = allocations;
    decode(archive);
    print({"archive_decode_badge_request_allocations",
           static_cast<double>(allocations - before),
           "allocations",
           {}});
    before = allocations;
    keep(archivedData(value));
    print({"archive_encode_badge_request_allocations",
           static_cast<double>(allocations - before),
           "allocations",
           {}});
}

void compareMenu(bool quick) {
    const Value value = menuReply(500);
    Comparison times;
    times.run(value, quick ? 10 : 40, quick ? 2 : 10);
    print({"archive_decode_menu_500", times.decodeOurs.best * 1e6, "us", {}});
    print({"archive_encode_menu_500", times.encodeOurs.best * 1e6, "us", {}});
    print({"archive_decode_menu_500_libplist_vs_ours",
           times.decodeTheirs.best / times.decodeOurs.best,
           "ratio",
           {},
           Better::Higher});
    print({"archive_encode_menu_500_libplist_vs_ours",
           times.encodeTheirs.best / times.encodeOurs.best,
           "ratio",
           {},
           Better::Higher});
}

void compareSizes(bool quick) {
    const Value few = actionRequest(1000);
    const Value many = actionRequest(100'000);
    const Bytes fewBytes = archivedData(few);
    const Bytes manyBytes = archivedData(many);
    Timer fewTime;
    Timer manyTime;
    for (int round = 0; round < (quick ? 3 : 60); ++round) {
        fewTime.run(100, [&] {
            decode(fewBytes);
            keep(archivedData(few));
        });
        manyTime.run(1, [&] {
            decode(manyBytes);
            keep(archivedData(many));
        });
    }
    print({"archive_100k_vs_1k_per_url", manyTime.best / 100'000 / (fewTime.best / 1000), "ratio",
           1.3});
}

} // namespace
} // namespace corvid::bench

int main(int argc, char** argv) {
    const bool quick = corvid::bench::isQuick(argc, argv);
    corvid::bench::compareBadgeRequest(quick);
    corvid::bench::compareMenu(quick);
    corvid::bench::compareSizes(quick);
    return 0;
}
