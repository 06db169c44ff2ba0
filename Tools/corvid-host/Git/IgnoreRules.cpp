#include "Tools/corvid-host/Git/IgnoreRules.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

namespace corvid {

namespace {

constexpr std::string_view kWildcards = "*?[\\";

std::size_t index(char c) {
    return static_cast<unsigned char>(c);
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Drops spaces at the end; one after a backslash stays, as do those before it.
std::string_view withoutFinalSpaces(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '\\') {
            at = std::min(at + 1, line.size() - 1);
            end = at + 1;
        } else if (line[at] != ' ') {
            end = at + 1;
        }
    }
    return line.substr(0, end);
}

/// The characters of a class such as "alpha"; nothing when there is no such class.
std::optional<std::bitset<256>> classOf(std::string_view name) {
    constexpr std::pair<std::string_view, int (*)(int)> kClasses[] = {
        {"alnum", std::isalnum}, {"alpha", std::isalpha}, {"blank", std::isblank},
        {"cntrl", std::iscntrl}, {"digit", std::isdigit}, {"graph", std::isgraph},
        {"lower", std::islower}, {"print", std::isprint}, {"punct", std::ispunct},
        {"space", std::isspace}, {"upper", std::isupper}, {"xdigit", std::isxdigit}};
    for (const auto& [known, test] : kClasses) {
        if (known == name) {
            std::bitset<256> set;
            for (int c = 0; c < 128; ++c) {
                set[static_cast<std::size_t>(c)] = test(c) != 0;
            }
            return set;
        }
    }
    return std::nullopt;
}

} // namespace

IgnoreRules IgnoreRules::parse(std::string_view text, bool ignoresCase) {
    IgnoreRules rules;
    rules.ignoresCase_ = ignoresCase;
    constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        line = line.substr(0, line.find('\0'));
        if (line.starts_with('#')) {
            continue;
        }
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        line = withoutFinalSpaces(line);
        Pattern pattern;
        if (line.starts_with('!')) {
            pattern.isNegative = true;
            line.remove_prefix(1);
        }
        if (line.ends_with('/')) {
            pattern.isForFolders = true;
            line.remove_suffix(1);
        }
        if (line.empty()) {
            continue;
        }
        pattern.isForNames = line.find('/') == std::string_view::npos;
        if (!pattern.isForNames && line.front() == '/') {
            line.remove_prefix(1);
        }
        const std::size_t wildcard = std::min(line.find_first_of(kWildcards), line.size());
        pattern.literal = line.substr(0, wildcard);
        if (ignoresCase) {
            std::ranges::transform(pattern.literal, pattern.literal.begin(), lower);
        }
        addSteps(pattern, line.substr(wildcard));
        rules.patterns_.push_back(std::move(pattern));
    }
    return rules;
}

void IgnoreRules::addSteps(Pattern& pattern, std::string_view text) {
    const auto add = [&](Step step) { pattern.steps.push_back(step); };
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at];
        if (c == '[') {
            if (!addSet(pattern, text, at)) {
                pattern.isBroken = true;
                return;
            }
        } else if (c == '?') {
            Step any{Step::Kind::anyOf};
            any.set.set().reset('/');
            add(any);
            ++at;
        } else if (c == '*') {
            std::size_t end = text.find_first_not_of('*', at);
            end = std::min(end, text.size());
            const std::string_view rest = text.substr(end);
            // "**" is special between separators only; here the literal part counts as one.
            const bool isWhole = end - at > 1 && (at == 0 || text[at - 1] == '/') &&
                                 (rest.empty() || rest.front() == '/' || rest.starts_with("\\/"));
            if (isWhole && rest.starts_with('/')) {
                add({Step::Kind::orNextButTwo}); // no folder at all
            }
            add({isWhole ? Step::Kind::starStar : Step::Kind::star});
            at = end;
        } else {
            at += c == '\\' ? 1 : 0;
            if (at == text.size()) {
                pattern.isBroken = true;
                return;
            }
            add({Step::Kind::character, text[at]});
            ++at;
        }
    }
}

bool IgnoreRules::addSet(Pattern& pattern, std::string_view text, std::size_t& at) {
    Step step{Step::Kind::anyOf};
    std::size_t next = at + 1;
    const bool isNegated = next < text.size() && (text[next] == '!' || text[next] == '^');
    next += isNegated ? 1 : 0;
    // Where a range may begin, if it may: at the byte before. (Not an optional, which g++ 12 takes
    // for uninitialised.)
    bool mayBeRange = false;
    std::size_t previous = 0;
    // A "]" that comes first stands for itself.
    for (bool isFirst = true; isFirst || next >= text.size() || text[next] != ']';
         isFirst = false) {
        if (next >= text.size()) {
            return false;
        }
        char c = text[next];
        if (c == '-' && mayBeRange && next + 1 < text.size() && text[next + 1] != ']') {
            c = text[++next];
            if (c == '\\') {
                if (++next >= text.size()) {
                    return false;
                }
                c = text[next];
            }
            for (std::size_t in = previous; in <= index(c); ++in) {
                step.set.set(in);
            }
            mayBeRange = false;
        } else if (text.substr(next).starts_with("[:")) {
            const std::size_t end = text.find(']', next + 2);
            if (end == std::string_view::npos) {
                return false;
            }
            if (end > next + 2 && text[end - 1] == ':') {
                const auto named = classOf(text.substr(next + 2, end - next - 3));
                if (!named) {
                    return false;
                }
                step.set |= *named;
                next = end;
                mayBeRange = false;
            } else {
                step.set.set(index('['));
                mayBeRange = true;
                previous = index('[');
            }
        } else {
            if (c == '\\') {
                if (++next >= text.size()) {
                    return false;
                }
                c = text[next];
            }
            step.set.set(index(c));
            mayBeRange = true;
            previous = index(c);
        }
        ++next;
    }
    if (isNegated) {
        step.set.flip();
    }
    step.set.reset('/');
    pattern.steps.push_back(step);
    at = next + 1;
    return true;
}

bool IgnoreRules::matches(const Pattern& pattern, std::string_view text) const {
    if (pattern.isBroken || text.size() < pattern.literal.size()) {
        return false;
    }
    for (std::size_t i = 0; i < pattern.literal.size(); ++i) {
        if ((ignoresCase_ ? lower(text[i]) : text[i]) != pattern.literal[i]) {
            return false;
        }
    }
    text.remove_prefix(pattern.literal.size());
    const std::vector<Step>& steps = pattern.steps;
    if (steps.empty()) {
        return text.empty();
    }
    const auto takes = [this](const Step& step, char c) {
        if (step.kind == Step::Kind::anyOf) {
            return step.set[index(c)] ||
                   (ignoresCase_ && c != '/' &&
                    (step.set[index(lower(c))] ||
                     step.set[static_cast<std::size_t>(std::toupper(static_cast<int>(index(c))))]));
        }
        return step.kind == Step::Kind::character &&
               (ignoresCase_ ? lower(step.character) == lower(c) : step.character == c);
    };
    // "*.o" and its like, which most patterns are.
    if (steps.front().kind == Step::Kind::star && pattern.isForNames &&
        std::all_of(steps.begin() + 1, steps.end(),
                    [](const Step& step) { return step.kind == Step::Kind::character; })) {
        const std::size_t length = steps.size() - 1;
        return text.size() >= length &&
               std::equal(steps.begin() + 1, steps.end(),
                          text.end() - static_cast<std::ptrdiff_t>(length), takes);
    }
    // All places in the pattern at once, so that no pattern takes more than its length times that
    // of the text.
    std::vector<char> places(steps.size() + 1);
    std::vector<char> next(steps.size() + 1);
    places[0] = 1;
    const auto skip = [&](std::vector<char>& marked) {
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (marked[i] == 0) {
                continue;
            }
            if (steps[i].kind == Step::Kind::orNextButTwo) {
                marked[i + 1] = 1;
                marked[i + 3] = 1;
            } else if (steps[i].kind == Step::Kind::star || steps[i].kind == Step::Kind::starStar) {
                marked[i + 1] = 1;
            }
        }
    };
    skip(places);
    for (const char c : text) {
        std::ranges::fill(next, 0);
        bool isAlive = false;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            if (places[i] == 0) {
                continue;
            }
            const Step& step = steps[i];
            if (step.kind == Step::Kind::starStar || (step.kind == Step::Kind::star && c != '/')) {
                next[i] = 1;
                isAlive = true;
            } else if (takes(step, c)) {
                next[i + 1] = 1;
                isAlive = true;
            }
        }
        if (!isAlive) {
            return false;
        }
        places.swap(next);
        skip(places);
    }
    return places.back() != 0;
}

IgnoreRules::Verdict IgnoreRules::verdictOn(std::string_view path, bool isFolder) const {
    const std::string_view name = path.substr(path.rfind('/') + 1); // npos + 1 is 0
    for (auto pattern = patterns_.rbegin(); pattern != patterns_.rend(); ++pattern) {
        if ((isFolder || !pattern->isForFolders) &&
            matches(*pattern, pattern->isForNames ? name : path)) {
            return pattern->isNegative ? Verdict::kept : Verdict::ignored;
        }
    }
    return Verdict::none;
}

} // namespace corvid
