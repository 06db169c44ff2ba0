#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

/// The patterns of one file of rules as gitignore(5) has them. Immutable. Any thread.
class IgnoreRules {
public:
    /// The rules that `text` says, one on each line; every text is valid. `ignoresCase` is git's
    /// core.ignorecase.
    static IgnoreRules parse(std::string_view text, bool ignoresCase);

    bool isEmpty() const { return patterns_.empty(); }

    enum class Verdict {
        none,    ///< no rule speaks of the item
        ignored, ///< the last rule that speaks of it ignores it
        kept,    ///< the last rule that speaks of it begins with "!"
    };

    /// What the rules say of the item at `path`, which is relative to the folder of the rules.
    /// Takes time in proportion to the bytes of the rules times those of the path, at worst.
    Verdict verdictOn(std::string_view path, bool isFolder) const;

private:
    /// One step of a pattern with wildcards.
    struct Step {
        enum class Kind : std::uint8_t {
            character,
            anyOf,       ///< a character of `set`
            star,        ///< any number of characters but "/"
            starStar,    ///< any number of characters
            orNextButTwo ///< goes on with the next step, or with the third one
        };
        Kind kind;
        char character = 0;
        std::bitset<256> set = {};
    };

    struct Pattern {
        std::string literal; ///< what the path, or the name, begins with
        std::vector<Step> steps;
        bool isNegative = false;
        bool isForFolders = false;
        bool isForNames = false; ///< matches the last component, in whatever folder
        bool isBroken = false;   ///< matches nothing
    };

    static void addSteps(Pattern& pattern, std::string_view text);
    static bool addSet(Pattern& pattern, std::string_view text, std::size_t& at);
    bool matches(const Pattern& pattern, std::string_view text) const;

    std::vector<Pattern> patterns_;
    bool ignoresCase_ = false;
};

} // namespace corvid
