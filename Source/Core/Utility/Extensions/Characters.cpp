#include "Core/Utility/Extensions/Characters.h"

#include "Core/Base/UTF8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utf8proc.h>

namespace corvid {

namespace {

using detail::isASCII;

// No canonical decomposition of one scalar is longer (Unicode, annex 15).
constexpr std::size_t kLongestDecomposition = 4;

struct Decomposition {
    std::array<utf8proc_int32_t, kLongestDecomposition> scalars;
    std::size_t count;
};

Decomposition decompose(char32_t scalar) {
    Decomposition result{};
    int boundClass = 0;
    const utf8proc_ssize_t count =
        utf8proc_decompose_char(static_cast<utf8proc_int32_t>(scalar), result.scalars.data(),
                                kLongestDecomposition, UTF8PROC_DECOMPOSE, &boundClass);
    result.count = static_cast<std::size_t>(count);
    return result;
}

int combiningClass(char32_t scalar) {
    return utf8proc_get_property(static_cast<utf8proc_int32_t>(scalar))->combining_class;
}

// Normalization form D: decomposed, and each run of marks in the order of their classes.
std::u32string decomposed(std::string_view text) {
    std::u32string scalars;
    while (!text.empty()) {
        const DecodedScalar decoded = decodeUTF8(text);
        text.remove_prefix(decoded.length);
        const Decomposition parts = decompose(decoded.scalar);
        for (std::size_t i = 0; i < parts.count; ++i) {
            scalars += static_cast<char32_t>(parts.scalars[i]);
        }
    }
    const auto isStarter = [](char32_t scalar) { return combiningClass(scalar) == 0; };
    for (auto run = scalars.begin(); run != scalars.end();) {
        run = std::find_if_not(run, scalars.end(), isStarter);
        const auto end = std::find_if(run, scalars.end(), isStarter);
        std::stable_sort(
            run, end, [](char32_t a, char32_t b) { return combiningClass(a) < combiningClass(b); });
        run = end;
    }
    return scalars;
}

// A few scalars beyond ASCII are canonically equivalent to an ASCII character: U+212A to "K".
bool isEquivalentToASCII(std::string_view character, char ascii) {
    if (isASCII(character.front())) {
        return character.size() == 1 && character.front() == ascii;
    }
    const DecodedScalar decoded = decodeUTF8(character);
    if (decoded.length != character.size()) {
        return false;
    }
    const Decomposition parts = decompose(decoded.scalar);
    return parts.count == 1 && parts.scalars[0] == ascii;
}

bool isSameCharacter(std::string_view a, std::string_view b) {
    if (a.size() == 1 && isASCII(a.front())) {
        return isEquivalentToASCII(b, a.front());
    }
    if (b.size() == 1 && isASCII(b.front())) {
        return isEquivalentToASCII(a, b.front());
    }
    return a == b || decomposed(a) == decomposed(b);
}

// Takes the first character off `text`.
std::string_view takeCharacter(std::string_view& text) {
    const std::size_t length = characterLength(text);
    const std::string_view character = text.substr(0, length);
    text.remove_prefix(length);
    return character;
}

// The last scalar of `text`, as its bytes; empty when the text does not end in a good one.
std::string_view lastScalar(std::string_view text) {
    for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
        const std::string_view tail = text.substr(text.size() - length);
        const DecodedScalar decoded = decodeUTF8(tail);
        if (decoded.valid && decoded.length == length) {
            return tail;
        }
    }
    return {};
}

// Whether the first bytes that differ show that `text` does not begin with `prefix`: when two
// characters begin there, one of them with ASCII, and the other cannot be decomposed to begin so.
// Most texts are told apart by this.
bool differsFromTheFront(std::string_view text, std::string_view prefix) {
    const auto [t, p] = std::mismatch(text.begin(), text.end(), prefix.begin(), prefix.end());
    if (p == prefix.end() || !isASCII(*p)) {
        return false;
    }
    if (t == text.end() || isASCII(*t)) {
        return true;
    }
    const DecodedScalar decoded = decodeUTF8({t, text.end()});
    // A byte that goes on with a bad sequence begins nothing.
    return decoded.valid && decompose(decoded.scalar).scalars[0] != *p;
}

// The same from the back. There the whole decomposition has to be the ASCII character, since marks
// after it would be part of the character.
bool differsFromTheBack(std::string_view text, std::string_view suffix) {
    const auto [t, s] = std::mismatch(text.rbegin(), text.rend(), suffix.rbegin(), suffix.rend());
    if (s == suffix.rend() || !isASCII(*s)) {
        return false;
    }
    if (t == text.rend() || isASCII(*t)) {
        return true;
    }
    const std::string_view scalar = lastScalar({text.begin(), t.base()});
    return !scalar.empty() && !isEquivalentToASCII(scalar, *s);
}

// Takes the characters of `prefix` off `text`; false when they are not there.
bool takePrefix(std::string_view& text, std::string_view prefix) {
    if (differsFromTheFront(text, prefix)) {
        return false;
    }
    while (!prefix.empty()) {
        if (text.empty() || !isSameCharacter(takeCharacter(text), takeCharacter(prefix))) {
            return false;
        }
    }
    return true;
}

} // namespace

std::size_t characterLength(std::string_view text) {
    if (isASCII(text[0]) && (text.size() == 1 || isASCII(text[1]))) {
        return text.starts_with("\r\n") ? 2 : 1;
    }
    DecodedScalar last = decodeUTF8(text);
    std::size_t length = last.length;
    for (utf8proc_int32_t state = 0; length < text.size();) {
        const DecodedScalar next = decodeUTF8(text.substr(length));
        if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(last.scalar),
                                             static_cast<utf8proc_int32_t>(next.scalar), &state)) {
            break;
        }
        last = next;
        length += next.length;
    }
    return length;
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (; !text.empty(); ++count) {
        takeCharacter(text);
    }
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    std::string_view rest = text;
    for (; count > 0 && !rest.empty(); --count) {
        takeCharacter(rest);
    }
    return text.substr(0, text.size() - rest.size());
}

std::string_view lastCharacters(std::string_view text, std::size_t count) {
    for (std::size_t surplus = characterCount(text); surplus > count; --surplus) {
        takeCharacter(text);
    }
    return text;
}

bool containsText(std::string_view text, std::string_view needle) {
    for (; !text.empty(); takeCharacter(text)) {
        if (beginsWith(text, needle)) {
            return true;
        }
    }
    return false;
}

std::string withoutText(std::string_view text, std::string_view needle) {
    std::string kept;
    while (!text.empty()) {
        std::string_view after = text;
        if (beginsWith(text, needle) && takePrefix(after, needle)) {
            text = after;
        } else {
            kept += takeCharacter(text);
        }
    }
    return kept;
}

bool equalsWhenLowercased(std::string_view text, std::string_view literal) {
    // U+0130 has a small letter of two scalars, "i" and a dot above, of which utf8proc knows the
    // first only.
    constexpr char32_t kCapitalIWithDot = 0x0130;
    for (const char expected : literal) {
        if (text.empty()) {
            return false;
        }
        const std::string_view character = takeCharacter(text);
        const DecodedScalar decoded = decodeUTF8(character);
        if (decoded.length != character.size() || decoded.scalar == kCapitalIWithDot) {
            return false;
        }
        const auto lower =
            static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(decoded.scalar)));
        const Decomposition parts = decompose(lower);
        if (parts.count != 1 || parts.scalars[0] != expected) {
            return false;
        }
    }
    return text.empty();
}

bool detail::textEqualsInFull(std::string_view a, std::string_view b) {
    return a == b || (takePrefix(a, b) && a.empty());
}

bool detail::beginsWithInFull(std::string_view text, std::string_view prefix) {
    return takePrefix(text, prefix);
}

bool detail::endsWithInFull(std::string_view text, std::string_view suffix) {
    if (differsFromTheBack(text, suffix)) {
        return false;
    }
    const std::size_t count = characterCount(suffix);
    return textEquals(lastCharacters(text, count), suffix);
}

} // namespace corvid
