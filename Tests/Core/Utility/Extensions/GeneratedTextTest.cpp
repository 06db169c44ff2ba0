// Texts of every kind that a path can be, on which the string extension and its plain second
// reading agree.

#include "Tests/Support/GeneratedText.h"
#include "Tests/Support/StringAgreement.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace corvid {
namespace {

TEST(GeneratedTextTest, bothReadingsAgree) {
    constexpr std::uint64_t kSeed = 20240501;
    constexpr int kTexts = 100000;
    TextGenerator generator(kSeed);
    std::vector<std::size_t> sizes;
    std::string other = "/Volumes/Corvid/Book.xlsx";
    for (int i = 0; i < kTexts; ++i) {
        const std::string text = generator.next();
        const auto member = firstDisagreement(text, other);
        ASSERT_FALSE(member) << *member << " of " << testing::PrintToString(text) << " and "
                             << testing::PrintToString(other) << ", text " << i << " of seed "
                             << kSeed;
        sizes.push_back(text.size());
        // Alone, every second pair would begin alike nowhere.
        other = i % 2 == 0 ? text : text.substr(0, text.size() / 3);
    }
    std::sort(sizes.begin(), sizes.end());
    EXPECT_NEAR(static_cast<double>(sizes[kTexts / 2]), 100, 20);
    const auto longOnes =
        std::count_if(sizes.begin(), sizes.end(), [](std::size_t size) { return size > 4096; });
    EXPECT_GE(longOnes, kTexts / 20000);
}

} // namespace
} // namespace corvid
