#include "Core/Utility/Extensions/TemporaryItems.h"

#include "Core/Base/UTF8.h"
#include "Core/Utility/Extensions/Characters.h"
#include "Core/Utility/Extensions/PathStrings.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <tuple>

namespace corvid {

namespace {

template <std::size_t N>
bool beginsWithOneOf(std::string_view text, const std::string_view (&list)[N]) {
    return std::any_of(std::begin(list), std::end(list),
                       [text](std::string_view entry) { return beginsWith(text, entry); });
}

constexpr std::string_view kBeingSavedBy = "(A Document Being Saved By";

constexpr std::string_view kOfficeOwnerExtensions[] = {"docx", "doc", "xlsx", "xls", "ppt", "pptx"};

// The longer entries are covered by "ps", "ai" and "i"; the list stands as its applications do.
constexpr std::string_view kEditedExtensionPrefixes[] = {"pdf", "psd", "ps", "jpg", "jpeg", "png",
                                                         "ers", "prn", "ai", "ait", "i"};

constexpr std::string_view kAdobeExtensions[] = {"pdf",  "psd",  "ps",   "eps",  "prn", "indd",
                                                 "indl", "indt", "indb", "indx", "ai",  "ait"};

// A path, taken apart once for all rules.
struct Item {
    explicit Item(std::string_view text) : Item(text, splitPath(text)) {}
    Item(std::string_view text, PathParts split)
        : path(text), parent(split.parent), name(split.name), ext(extensionOfName(name)) {}

    // How many pieces allExtensions() has; 0 when it has none to give.
    std::size_t parts() const {
        return path == "/"
                   ? 0
                   : 1 + static_cast<std::size_t>(std::count(name.begin(), name.end(), '.'));
    }

    std::string_view path;
    std::string_view parent;
    std::string_view name;
    std::string_view ext;
    // Few folders have a dot in their path, and without one two rules need not look at them.
    bool parentHasDot = parent.find('.') != std::string_view::npos;
};

bool liesInStagingFolder(const Item& item) {
    if (!item.parentHasDot) {
        return false;
    }
    const Item parent(item.parent);
    return beginsWith(parent.ext, "sb-") && parent.parts() >= 3;
}

bool isDrawingScratch(const Item& item) {
    if (beginsWith(item.ext, "dwl") || textEquals(item.ext, "tmp") || textEquals(item.ext, "bak")) {
        return true;
    }
    return item.ext.empty() && (beginsWith(item.name, "atemp") || beginsWith(item.name, "atmp"));
}

template <class Test>
struct Rule {
    std::string_view reason;
    Test matches; // bool(const Item&)
};
template <class Test>
Rule(const char*, Test) -> Rule<Test>;

// The first one that matches decides. Within a rule the test that most names fail comes first.
// Some overlap with the last one, which takes every "tmp".
constexpr std::tuple kRules{
    Rule{"the path begins with a hidden item at the root",
         [](const Item& i) { return beginsWith(i.path, "/."); }},
    Rule{"the path begins with a dot", [](const Item& i) { return beginsWith(i.path, "."); }},
    Rule{"the name begins with a dot", [](const Item& i) { return beginsWith(i.name, "."); }},
    Rule{"a folder above it begins with a dot",
         [](const Item& i) { return i.parentHasDot && hasHiddenComponent(i.parent); }},
    Rule{"office owner file: the name begins with \"~$\" and has an office extension",
         [](const Item& i) {
             return beginsWith(i.name, "~$") && isOneOf(i.ext, kOfficeOwnerExtensions);
         }},
    Rule{"lock file: the name begins with \"~\" and its extension is \"idlk\"",
         [](const Item& i) { return beginsWith(i.name, "~") && textEquals(i.ext, "idlk"); }},
    Rule{"backup: the extension ends with \"~\"",
         [](const Item& i) { return endsWith(i.ext, "~"); }},
    Rule{"editor's save in progress: the extension ends with a number of ten characters",
         [](const Item& i) { return isAdobeEditedFile(i.ext) && i.parts() >= 2; }},
    Rule{"save in progress: the name begins with \"(A Document Being Saved By\"",
         [](const Item& i) { return beginsWith(i.name, kBeingSavedBy); }},
    Rule{"sketch autosave: the name ends with \"~.sketch\"",
         [](const Item& i) { return endsWith(i.name, "~.sketch"); }},
    Rule{"illustrator scratch file: the name begins with \"~ai\" and its extension is \"tmp\"",
         [](const Item& i) { return beginsWith(i.name, "~ai") && textEquals(i.ext, "tmp"); }},
    Rule{"photoshop scratch file: the name begins with \"Adobe Photoshop \" and has no dot",
         [](const Item& i) { return beginsWith(i.name, "Adobe Photoshop ") && i.parts() < 2; }},
    Rule{"after-effects scratch file: the name begins with \"AEtemp-\"",
         [](const Item& i) { return beginsWith(i.name, "AEtemp-"); }},
    Rule{"after-effects scratch file: the name has two dots or more and ends with \"aep\"",
         [](const Item& i) { return endsWith(i.name, "aep") && i.parts() > 2; }},
    // The length is that of the whole path, on purpose.
    Rule{"test file: the name begins with \"TestFile\", without an extension, in a path of 17 "
         "characters or more",
         [](const Item& i) {
             return beginsWith(i.name, "TestFile") && i.ext.empty() &&
                    characterCount(firstCharacters(i.path, 17)) == 17;
         }},
    Rule{"installer scratch file: the extension is \"tmp$$\"",
         [](const Item& i) { return textEquals(i.ext, "tmp$$"); }},
    Rule{"word scratch file: the name begins with \"Word Work File\" and its extension is \"tmp\"",
         [](const Item& i) {
             return beginsWith(i.name, "Word Work File") && textEquals(i.ext, "tmp");
         }},
    Rule{"word recovery file: the name begins with \"~WR\"",
         [](const Item& i) { return beginsWith(i.name, "~WR"); }},
    Rule{"spreadsheet scratch file: the path ends with \"C920\", without an extension",
         [](const Item& i) { return endsWith(i.path, "C920") && isEmpty(i.ext); }},
    Rule{"acrobat scratch file: the name begins with \"Acr\" and its extension is \"tmp\"",
         [](const Item& i) { return beginsWith(i.name, "Acr") && textEquals(i.ext, "tmp"); }},
    Rule{"download: the extension is \"download\"",
         [](const Item& i) { return textEquals(i.ext, "download"); }},
    Rule{"download: the extension is \"crdownload\"",
         [](const Item& i) { return textEquals(i.ext, "crdownload"); }},
    Rule{"partial file: the name has two dots or more and its extension ends with \"part\"",
         [](const Item& i) { return endsWith(i.ext, "part") && i.parts() > 2; }},
    Rule{"safe-save staging: the name has two dots or more and its extension begins with \"sb-\"",
         [](const Item& i) { return beginsWith(i.ext, "sb-") && i.parts() > 2; }},
    Rule{"the folder it lies in is a safe-save staging folder", liesInStagingFolder},
    Rule{"swap file: the extension is \"swap\"",
         [](const Item& i) { return textEquals(i.ext, "swap"); }},
    Rule{"drawing lock, backup or scratch file, by its extension or name", isDrawingScratch},
};

// The reason of the first rule that matches, null when none does.
const std::string_view* decidingReason(std::string_view path) {
    if (path == "/") {
        return nullptr;
    }
    const Item item(path);
    const std::string_view* reason = nullptr;
    const auto decides = [&](const auto& rule) {
        reason = rule.matches(item) ? &rule.reason : nullptr;
        return reason != nullptr;
    };
    std::apply([&](const auto&... rules) { static_cast<void>((decides(rules) || ...)); }, kRules);
    return reason;
}

// Unicode's general category Zs.
constexpr bool isSpaceSeparator(char32_t scalar) {
    return scalar == 0x0020 || scalar == 0x00A0 || scalar == 0x1680 ||
           (scalar >= 0x2000 && scalar <= 0x200A) || scalar == 0x202F || scalar == 0x205F ||
           scalar == 0x3000;
}

bool isBase10Integer(std::string_view text) {
    if (text.starts_with('+') || text.starts_with('-')) {
        text.remove_prefix(1);
    }
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

bool isTemporaryItem(std::string_view path) {
    return decidingReason(path) != nullptr;
}

std::optional<std::string_view> temporaryItemReason(std::string_view path) {
    const std::string_view* reason = decidingReason(path);
    return reason != nullptr ? std::optional(*reason) : std::nullopt;
}

std::optional<std::vector<std::string_view>> allExtensions(std::string_view path) {
    if (path == "/") {
        return std::nullopt;
    }
    std::vector<std::string_view> pieces;
    std::string_view rest = lastPathComponent(path);
    for (;;) {
        const std::size_t dot = rest.find('.');
        pieces.push_back(rest.substr(0, dot));
        if (dot == std::string_view::npos) {
            return pieces;
        }
        rest.remove_prefix(dot + 1);
    }
}

bool isEmpty(std::string_view text) {
    while (!text.empty()) {
        const DecodedScalar decoded = decodeUTF8(text);
        if (!isSpaceSeparator(decoded.scalar) && decoded.scalar != U'\t') {
            return false;
        }
        text.remove_prefix(decoded.length);
    }
    return true;
}

bool isAutoCADTmpFile(std::string_view path) {
    return isDrawingScratch(Item(path));
}

bool isAdobeEditedFile(std::string_view pathExtension) {
    constexpr std::size_t kDigits = AdobeTemporaryNumericCharacterCount;
    // No character takes less than a byte, which spares nearly every name the counting.
    if (pathExtension.size() <= kDigits) {
        return false;
    }
    const std::string_view number = lastCharacters(pathExtension, kDigits);
    return number.size() < pathExtension.size() && isBase10Integer(number) &&
           beginsWithOneOf(pathExtension, kEditedExtensionPrefixes);
}

bool isTemporaryOnTheBasisOf(std::string_view source, std::string_view destination) {
    const std::string_view sourceExt = pathExtension(source);
    const Item target(destination);
    if (isEmpty(target.ext) && beginsWith(sourceExt, "xls")) {
        return true;
    }
    const std::string_view sourceStem = stringByDeletingPathExtension(source);
    if (target.parts() >= 3 && (endsWith(target.ext, "download") || endsWith(target.ext, "part")) &&
        beginsWith(destination, sourceStem)) {
        return true;
    }
    return isTemporaryItem(destination) ||
           (beginsWith(sourceExt, "ppt") && beginsWith(destination, sourceStem));
}

bool pathStartingWithDocumentBeingSavedBy(std::string_view path) {
    return beginsWith(path, kBeingSavedBy);
}

bool isAdobeFile(std::string_view path) {
    return isOneOf(pathExtension(path), kAdobeExtensions);
}

} // namespace corvid
