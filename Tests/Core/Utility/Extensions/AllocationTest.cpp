// The rules run for every item that is shown, so they allocate nothing; counted, not believed.

#include "Core/Utility/Extensions/CVMAStringExtension.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <string_view>

namespace {
std::atomic<std::size_t> allocations{0};
}

void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
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

namespace corvid {
namespace {

TEST(AllocationTest, isCounted) {
    const std::size_t before = allocations;
    const std::string text(100, 'x');
    EXPECT_GT(allocations, before);
}

TEST(AllocationTest, noRuleAllocates) {
    const std::string_view texts[] = {
        "file:///Volumes/Corvid/Shared%20Folders/Quarter%203/Forecast%20v12.xlsx",
        "file:///Volumes/Corvid/Personal%20Folders/Photos/2024/IMG_20240714.jpeg1234567890",
        "file:///Volumes/Corvid/a.b.sb-1/TestFile",
        "/Volumes/Corvid/Adobe Photoshop Autosave.psd",
        "/Volumes/Corvid/~$R\u00E9sum\u00E9.docx",
        "/Volumes/Corvid/\u8CC7\u6599/\U0001F469\u200D\U0001F467.x\u0301tmp",
    };
    for (const std::string_view text : texts) {
        const std::size_t before = allocations;
        bool answer = isTemporaryItem(text);
        answer |= isTemporaryItem(stringByDeletingLastPathComponent(text));
        answer |= temporaryItemReason(text).has_value();
        answer |= isHidden(text) || ignorable(text) || forcePreemptiveAttributeNotFound(text);
        answer |= isMediaType(text) || isOfficeFile(text) || isLoggable(text);
        const std::size_t after = allocations;
        EXPECT_EQ(after, before) << text << answer;
    }
}

} // namespace
} // namespace corvid
