// What the test for temporary items costs for each item that is shown: on URL texts of ordinary
// names, on text that is not ASCII, beside the plain second reading, and as texts grow.

#include "Benchmarks/Figure.h"
#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Tests/Support/ReferenceStrings.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace {

using corvid::bench::Better;

constexpr double kNanoseconds = 1e9;

// URL texts of 60 to 100 bytes that no rule ends early: names that people give.
std::vector<std::string> asciiTexts() {
    return {
        "file:///Volumes/Corvid/Shared%20Folders/Quarter%203/Forecast%20v12.xlsx",
        "file:///Volumes/Corvid/Personal%20Folders/Photos/2024/Summer/IMG_20240714_183022.jpg",
        "file:///Volumes/Corvid/Projects/controller/Source/Extensions/FinderSync.cpp",
        "file:///Volumes/Corvid/Clients/Hartmann/Contracts/Framework%20agreement%20final.pdf",
        "file:///Volumes/Corvid/Shared%20Folders/Marketing/Campaign/Storyboard.key",
        "file:///Volumes/Corvid/Archive/2019/Accounting/Receipts/receipt-000193.tar.gz",
        "file:///Volumes/Corvid/Music/Recordings/Rehearsal%20of%20the%20third%20act.m4a",
        "file:///Volumes/Corvid/Personal%20Folders/Letters/To%20whom%20it%20may%20concern",
    };
}

// The like without escapes, which no URL has but a path may.
std::vector<std::string> unicodeTexts() {
    return {
        "/Volumes/Corvid/\u5171\u6709\u30D5\u30A9\u30EB\u30C0/\u55B6\u696D\u8CC7\u6599/"
        "\u58F2\u4E0A\u4E88\u6E2C.xlsx",
        "/Volumes/Corvid/Dossiers partag\u00E9s/\u00C9t\u00E9 2024/\u00C9quipe r\u00E9unie.jpg",
        "/Volumes/Corvid/Pers\u00F6nliche Ordner/Bu\u0308cher/U\u0308bersicht u\u0308ber alles.pdf",
        "/Volumes/Corvid/\uACF5\uC720 \uD3F4\uB354/\uBD84\uAE30 \uBCF4\uACE0\uC11C/"
        "\uCD5C\uC885\uBCF8.pptx",
        "/Volumes/Corvid/Photos/\U0001F469\u200D\U0001F469\u200D\U0001F467 family/"
        "\U0001F1E9\U0001F1EA trip.heic",
    };
}

// The fastest of several rounds, so that what else the machine does counts least.
template <class Test>
double nanosecondsPerText(const std::vector<std::string>& texts, int repetitions, Test test) {
    double best = 0;
    for (int round = 0; round < 7; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < repetitions; ++i) {
            for (const std::string& text : texts) {
                const bool answer = test(std::string_view(text));
                corvid::bench::keep(answer);
            }
        }
        const double elapsed = corvid::bench::secondsSince(start) * kNanoseconds /
                               (static_cast<double>(texts.size()) * repetitions);
        best = round == 0 ? elapsed : std::min(best, elapsed);
    }
    return best;
}

// A path of `size` bytes whose last component is nearly all of it, and whose characters have to be
// counted.
std::string longText(std::size_t size) {
    std::string text = "/Volumes/Corvid/TestFile.";
    while (text.size() < size) {
        text += "e\u0301";
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    using namespace corvid;
    const int repetitions = bench::isQuick(argc, argv) ? 2000 : 40000;

    const auto ascii = asciiTexts();
    bench::print({"temporary_item_ascii_ns",
                  nanosecondsPerText(ascii, repetitions, isTemporaryItem), "ns", 100});
    bench::print({"temporary_item_unicode_ns",
                  nanosecondsPerText(unicodeTexts(), repetitions, isTemporaryItem), "ns", 1000});
    bench::print({"temporary_item_and_parent_ns",
                  nanosecondsPerText(ascii, repetitions,
                                     [](std::string_view text) {
                                         return isTemporaryItem(text) ||
                                                isTemporaryItem(
                                                    stringByDeletingLastPathComponent(text));
                                     }),
                  "ns", 200});

    const int fewer = repetitions / 200;
    const double slow = nanosecondsPerText(ascii, fewer, reference::isTemporaryItem);
    const double fast = nanosecondsPerText(ascii, fewer, isTemporaryItem);
    bench::print({"temporary_item_slow_vs_fast", slow / fast, "x", 10, Better::Higher});

    // Linear: sixteen times the text takes about sixteen times as long.
    const int once = 1;
    const auto readAll = [](std::string_view text) {
        return isTemporaryItem(text) || insertStringBeforeExtension(text, "2").empty();
    };
    const double small = nanosecondsPerText({longText(std::size_t{1} << 16U)}, once, readAll);
    const double large = nanosecondsPerText({longText(std::size_t{1} << 20U)}, once, readAll);
    bench::print({"temporary_item_mebibyte_growth", large / small / 16, "x", 2});
    return 0;
}
