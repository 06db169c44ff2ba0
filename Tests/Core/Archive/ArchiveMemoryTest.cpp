// What decoding takes in memory, counted where it is allocated; hence a program of its own.

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"
#include "Core/Archive/Menu.h"
#include "Tests/Core/Archive/ArchiveComparison.h"
#include "Tests/Core/Archive/BrokenArchives.h"
#include "Tests/Support/BytesOf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

namespace {

// In front of each block: its size. As wide as the strictest alignment.
constexpr std::size_t kHeader = alignof(std::max_align_t);

std::size_t live = 0;
std::size_t peak = 0;

void release(void* memory) noexcept {
    if (memory != nullptr) {
        void* const block = static_cast<std::byte*>(memory) - kHeader;
        live -= *static_cast<std::size_t*>(block);
        std::free(block);
    }
}

} // namespace

void* operator new(std::size_t size) {
    void* const block = std::malloc(size + kHeader);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    *static_cast<std::size_t*>(block) = size;
    live += size;
    peak = std::max(peak, live);
    return static_cast<std::byte*>(block) + kHeader;
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}

namespace corvid {
namespace {

// How many bytes more than before were in use at once while `archive` was read.
std::size_t memoryOfReading(const Bytes& archive) {
    const std::size_t before = live;
    peak = live;
    const auto value = unarchivedObject(archive);
    return peak - before;
}

void expectWithinBound(const Bytes& archive, const std::string& name) {
    EXPECT_LE(memoryOfReading(archive),
              limits::kMemoryFactor * archive.size() + limits::kMemoryAllowance)
        << name;
}

TEST(ArchiveMemory, OfFoundationsArchivesIsBounded) {
    for (const auto& entry : std::filesystem::directory_iterator(CORVID_TEST_DATA "/archives")) {
        if (entry.path().extension() == ".archive") {
            expectWithinBound(readTestFile(entry.path()), entry.path());
        }
    }
}

TEST(ArchiveMemory, OfBrokenArchivesIsBounded) {
    for (const BrokenArchive& broken : brokenArchives()) {
        expectWithinBound(broken.bytes, broken.name);
    }
}

TEST(ArchiveMemory, OfManyItemsIsBounded) {
    std::vector<Value> urls;
    for (int i = 0; i < 20'000; ++i) {
        urls.push_back(
            Value::url(*URL::fileURL("/Volumes/Corvid/folder/item " + std::to_string(i))));
    }
    const Bytes archive = archivedData(Value::array(urls));
    ASSERT_TRUE(unarchivedObject(archive));
    expectWithinBound(archive, "URLs");

    std::vector<Value> items;
    for (int i = 0; i < 2'000; ++i) {
        auto item = std::make_shared<MenuItem>();
        item->title = "Entry " + std::to_string(i);
        item->action = Selector{"perform:"};
        items.push_back(Value::menuItem(std::move(item)));
    }
    const Bytes menu = archivedData(Value::array(items));
    ASSERT_TRUE(unarchivedObject(menu));
    expectWithinBound(menu, "menu items");
}

TEST(ArchiveMemory, IsGivenBack) {
    const Bytes archive = bytesOf(archiveXML(
        "<string>$null</string><dict><key>$class</key>@2<key>whole</key>@1<key>part</key>@3</dict>"
        "<dict><key>$classname</key><string>Thing</string><key>$classes</key><array>"
        "<string>Thing</string></array></dict>"
        "<dict><key>$class</key>@2<key>up</key>@1</dict>"));
    const std::size_t before = live;
    ASSERT_TRUE(unarchivedObject(archive)) << "objects that refer to those above them";
    EXPECT_EQ(live, before);
}

} // namespace
} // namespace corvid
