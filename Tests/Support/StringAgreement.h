#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvid {

/// The first member of the string extension that answers for `text` otherwise than the plain
/// second reading (ReferenceStrings.h) does; nothing when all agree. `other` is the argument of
/// the members that take one.
std::optional<std::string> firstDisagreement(std::string_view text, std::string_view other);

} // namespace corvid
