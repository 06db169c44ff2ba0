// The string extension against its plain second reading: on the input as it is, and on the text
// that its bytes choose from pieces that the rules make something of.

#include "Tests/Support/GeneratedText.h"
#include "Tests/Support/StringAgreement.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void check(const std::string& text) {
    const std::string other = text.substr(0, text.size() / 2);
    if (const auto member = corvid::firstDisagreement(text, other)) {
        std::fprintf(stderr, "%s answers otherwise\n", member->c_str());
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check(std::string(data, data + size));
    check("file:///Volumes/Corvid/" + corvid::textFromChoices({data, size}));
    return 0;
}
