#include "Tools/corvid-host/Rules/PathPattern.h"

#include <algorithm>

namespace corvid {

PathPattern::PathPattern(std::string_view text)
    : isOfNames_(text.find('/') == std::string_view::npos && text != "**") {
    while (!text.empty()) {
        if (text.starts_with("**")) {
            parts_.push_back({Part::Kind::anything});
            text.remove_prefix(2);
        } else {
            const char first = text.front();
            parts_.push_back({first == '*'   ? Part::Kind::anyOfName
                              : first == '?' ? Part::Kind::oneOfName
                                             : Part::Kind::byte,
                              first});
            text.remove_prefix(1);
        }
    }
}

bool PathPattern::matches(std::string_view path) const {
    if (isOfNames_) {
        path = path.substr(path.rfind('/') + 1); // npos + 1 is 0
    }
    // Which parts may come next, after what was read of the path. A byte leads from each of them
    // to itself or to the one behind, so that no part of the path is read twice.
    std::vector<bool> next(parts_.size() + 1);
    std::vector<bool> then(parts_.size() + 1);
    next[0] = true;
    const auto skipEmpty = [this](std::vector<bool>& places) {
        for (std::size_t i = 0; i < parts_.size(); ++i) {
            if (places[i] && parts_[i].isRepeated()) {
                places[i + 1] = true;
            }
        }
    };
    skipEmpty(next);
    for (const char c : path) {
        std::fill(then.begin(), then.end(), false);
        bool isAlive = false;
        for (std::size_t i = 0; i < parts_.size(); ++i) {
            if (next[i] && parts_[i].takes(c)) {
                then[parts_[i].isRepeated() ? i : i + 1] = true;
                isAlive = true;
            }
        }
        if (!isAlive) {
            return false;
        }
        skipEmpty(then);
        next.swap(then);
    }
    return next[parts_.size()];
}

} // namespace corvid
