#pragma once

#import <Foundation/Foundation.h>

#include "Core/Archive/Value.h"
#include "Core/Base/URL.h"

#include <optional>
#include <string>
#include <string_view>

// Conversions between the portable values and those of Foundation. Objects returned are
// autoreleased. Any thread.

namespace corvid {

/// Bytes that are not UTF-8 become U+FFFD. Never nil.
NSString* foundationString(std::string_view text);

/// Empty for nil. What UTF-8 cannot say, an unpaired surrogate, is replaced.
std::string utf8String(NSString* string);

/// Keeps base and relative text. Nil when Foundation refuses the text.
NSURL* foundationURL(const URL& url);

/// Keeps base and relative text. Nothing for nil and for a text that is not a URI reference.
std::optional<URL> portableURL(NSURL* url);

/// The object that `value` stands for, made by way of a keyed archive. Only the classes that a
/// menu item may carry are made: property-list classes, URLs, attributed strings with their fonts,
/// colours and paragraph styles, and images. Nil for every other.
id foundationObject(const Value& value);

/// The portable form of `object`, by way of a keyed archive: opaque where the portable values know
/// no such class. The null value for nil and for what cannot be archived.
Value portableValue(id object);

} // namespace corvid
