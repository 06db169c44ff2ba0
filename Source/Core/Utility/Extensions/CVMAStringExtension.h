#pragma once

// The string extension: what the system asks of a path, a file name or an identifier. Every member
// is a function of that string, under the member's own name, and says nothing on failure: any
// text, valid UTF-8 or not, gets an answer.
//
// `localized`, the three localized path constants and `copyToClipboard` need the bundle and the
// pasteboard of the system, and live one layer up: App/Strings/LocalizedStrings.h.

#include "Core/Utility/Extensions/FileTypes.h"      // IWYU pragma: export
#include "Core/Utility/Extensions/PathStrings.h"    // IWYU pragma: export
#include "Core/Utility/Extensions/TemporaryItems.h" // IWYU pragma: export
