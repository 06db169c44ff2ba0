#include "Tools/corvid-host/Rules/PathPattern.h"

namespace corvid {

namespace {

bool matchesText(std::string_view pattern, std::string_view text) {
    while (!pattern.empty()) {
        if (pattern.front() == '*') {
            const bool crossesNames = pattern.starts_with("**");
            pattern.remove_prefix(crossesNames ? 2 : 1);
            for (std::size_t taken = 0;; ++taken) {
                if (matchesText(pattern, text.substr(taken))) {
                    return true;
                }
                if (taken == text.size() || (!crossesNames && text[taken] == '/')) {
                    return false;
                }
            }
        }
        if (text.empty() ||
            (pattern.front() == '?' ? text.front() == '/' : pattern.front() != text.front())) {
            return false;
        }
        pattern.remove_prefix(1);
        text.remove_prefix(1);
    }
    return text.empty();
}

} // namespace

bool PathPattern::matches(std::string_view path) const {
    if (text_.find('/') == std::string::npos && text_ != "**") {
        path = path.substr(path.rfind('/') + 1); // npos + 1 is 0
    }
    return matchesText(text_, path);
}

} // namespace corvid
