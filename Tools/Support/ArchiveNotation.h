#pragma once

#include "Core/Archive/Value.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>

namespace corvid {

/// Values as JSON, as `corvid decode --json` prints and `corvid encode` reads them.
///
/// Booleans, numbers, strings, arrays and dictionaries are JSON's own, mutable or not, dictionaries
/// in their order. The rest are objects whose keys begin with "$": `{"$null": true}`,
/// `{"$url": text, "$base": text}` (the base only where there is one), `{"$data": hexadecimal
/// digits}`, `{"$date": seconds since 2001}`, `{"$set": [...]}`, `{"$real": "nan"}` for the numbers
/// that JSON lacks. A menu item is an object with exactly the keys action, alternate,
/// attributedTitle, enabled, hidden, keyEquivalent, mask, separator, state, submenu, tag and title;
/// a menu one with autoenables, items and title. A dictionary that could be taken for one of these,
/// or whose keys are not all strings, is `{"$dictionary": [[key, value], ...]}`. An object of any
/// other class is `{"$object": {"class", "classes", "fields"}}`, which can be read by people only.
using Notation = nlohmann::ordered_json;

/// How much a notation may say. A value that several others refer to is written out for each of
/// them, so that a few bytes can say terabytes.
struct NotationLimits {
    std::size_t values = 4'000'000;
    /// Bytes of all texts together: twice what a message holds, for data takes two digits a byte.
    std::size_t text = std::size_t{128} << 20U;
};

/// `value` as JSON. Nothing, and `error` says why, when it would say more than `limits`. Any
/// thread.
std::optional<Notation> notationOf(const Value& value, std::string& error,
                                   const NotationLimits& limits = {});

/// The value that `notation` says. Nothing, and `error` says what is wrong with which part, when
/// it says none. Any thread.
std::optional<Value> valueOf(const Notation& notation, std::string& error);

/// The text of a menu item's attributed title; null when it has none. Borrowed from the item.
const std::string* attributedTitle(const MenuItem& item);

} // namespace corvid
