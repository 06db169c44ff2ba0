// Texts of every kind that a path can be, on which the string extension and its plain second
// reading agree.

#include "Tests/Support/GeneratedText.h"
#include "Tests/Support/StringAgreement.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace corvid {
namespace {

// What the variable says, where it is set: script/fuzz asks for more texts, of several seeds.
std::uint64_t numberFrom(const char* variable, std::uint64_t otherwise) {
    const char* text = std::getenv(variable);
    return text != nullptr ? std::stoull(text) : otherwise;
}

TEST(GeneratedTextTest, bothReadingsAgree) {
    const std::uint64_t seed = numberFrom("CORVID_TEXTS_SEED", 20240501);
    const std::uint64_t count = numberFrom("CORVID_TEXTS", 100'000);
    TextGenerator generator(seed);
    std::vector<std::size_t> sizes;
    std::string other = "/Volumes/Corvid/Book.xlsx";
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::string text = generator.next();
        const auto member = firstDisagreement(text, other);
        ASSERT_FALSE(member) << *member << " of " << testing::PrintToString(text) << " and "
                             << testing::PrintToString(other) << ", text " << i << " of seed "
                             << seed;
        sizes.push_back(text.size());
        // Alone, every second pair would begin alike nowhere.
        other = i % 2 == 0 ? text : text.substr(0, text.size() / 3);
    }
    std::sort(sizes.begin(), sizes.end());
    EXPECT_NEAR(static_cast<double>(sizes[count / 2]), 100, 20);
    const auto longOnes =
        std::count_if(sizes.begin(), sizes.end(), [](std::size_t size) { return size > 4096; });
    EXPECT_GE(longOnes, static_cast<std::ptrdiff_t>(count / 20'000));
}

} // namespace
} // namespace corvid
