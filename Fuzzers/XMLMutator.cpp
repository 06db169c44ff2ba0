// Puts whole tags and entities into an XML property list, or takes them away.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t limit);

namespace {

constexpr auto kPieces =
    std::to_array<std::string_view>({"<dict>",
                                     "</dict>",
                                     "<array>",
                                     "</array>",
                                     "<key>",
                                     "</key>",
                                     "<string>",
                                     "</string>",
                                     "<integer>",
                                     "</integer>",
                                     "<real>",
                                     "</real>",
                                     "<true/>",
                                     "<false/>",
                                     "<data>",
                                     "</data>",
                                     "<date>",
                                     "</date>",
                                     "<dict/>",
                                     "<array/>",
                                     "<string/>",
                                     "<plist>",
                                     "</plist>",
                                     "<dict><key>CF$UID</key><integer>1</integer></dict>",
                                     "<key>$class</key>",
                                     "<key>NS.objects</key>",
                                     "<key>NS.keys</key>",
                                     "<key>NSTitle</key>",
                                     "&amp;",
                                     "&#x20AC;",
                                     "<![CDATA[",
                                     "]]>",
                                     "<!--",
                                     "-->",
                                     "<?xml version=\"1.0\"?>",
                                     "<!DOCTYPE plist>",
                                     "2001-01-01T00:00:00Z",
                                     "1e300",
                                     "-0x7F",
                                     "AAEC/w=="});

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t limit, unsigned seed) {
    std::minstd_rand random(seed);
    if (random() % 3 == 0) {
        return LLVMFuzzerMutate(data, size, limit);
    }
    std::string text(data, data + size);
    const std::size_t start = text.empty() ? 0 : random() % text.size();
    const std::size_t tag = text.find('<', start);
    const std::size_t at = tag == std::string::npos ? start : tag;
    if (random() % 3 == 0) {
        const std::size_t end = text.find('>', at);
        text.erase(at, end == std::string::npos ? 1 : end + 1 - at);
    } else {
        text.insert(at, kPieces[random() % kPieces.size()]);
    }
    const std::size_t result = text.size() < limit ? text.size() : limit;
    std::memcpy(data, text.data(), result);
    return result;
}
