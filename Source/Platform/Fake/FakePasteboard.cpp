#include "Platform/Fake/FakePasteboard.h"

#include <string>

namespace corvid {

void FakePasteboard::declareStringType() {
    calls_.add("declareStringType");
}

void FakePasteboard::setString(std::string_view text) {
    calls_.add("setString " + std::string(text));
}

} // namespace corvid
