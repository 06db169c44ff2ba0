#include "Tests/Support/StringAgreement.h"

#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Core/Utility/Extensions/Characters.h"
#include "Tests/Support/ReferenceStrings.h"

#include <cmath>
#include <vector>

namespace corvid {

namespace {

std::vector<std::string> strings(const std::vector<std::string_view>& views) {
    return {views.begin(), views.end()};
}

std::optional<std::vector<std::string>>
strings(const std::optional<std::vector<std::string_view>>& views) {
    return views ? std::optional(strings(*views)) : std::nullopt;
}

std::vector<int> partsOf(const Color& color) {
    if (color == kGrayColor) {
        return {};
    }
    const auto part = [](double value) { return static_cast<int>(std::lround(value * 255)); };
    return {part(color.red), part(color.green), part(color.blue)};
}

} // namespace

#define CORVID_COMPARE(member, ...)                                                                \
    if (corvid::member(__VA_ARGS__) != reference::member(__VA_ARGS__))                             \
    return #member

std::optional<std::string> firstDisagreement(std::string_view text, std::string_view other) {
    CORVID_COMPARE(characterCount, text);
    CORVID_COMPARE(textEquals, text, other);
    CORVID_COMPARE(beginsWith, text, other);
    CORVID_COMPARE(endsWith, text, other);

    CORVID_COMPARE(lastPathComponent, text);
    CORVID_COMPARE(pathExtension, text);
    CORVID_COMPARE(stringByDeletingLastPathComponent, text);
    CORVID_COMPARE(stringByDeletingPathExtension, text);
    CORVID_COMPARE(stringByAppendingPathComponent, text, other);
    CORVID_COMPARE(stringByAppendingPathExtension, text, other);
    if (strings(pathComponents(text)) != reference::pathComponents(text)) {
        return "pathComponents";
    }
    if (truncateString(text, 5) != reference::truncateString(text, 5, "\u2026")) {
        return "truncateString";
    }
    CORVID_COMPARE(insertStringBeforeExtension, text, other);
    CORVID_COMPARE(deletingPrefix, text, other);
    CORVID_COMPARE(isHidden, text);
    CORVID_COMPARE(isAnyParentHidden, text);
    CORVID_COMPARE(ignorable, text);
    CORVID_COMPARE(forcePreemptiveAttributeNotFound, text);

    CORVID_COMPARE(isTemporaryItem, text);
    if (strings(allExtensions(text)) != reference::allExtensions(text)) {
        return "allExtensions";
    }
    CORVID_COMPARE(isEmpty, text);
    CORVID_COMPARE(isAutoCADTmpFile, text);
    CORVID_COMPARE(isAdobeEditedFile, text);
    CORVID_COMPARE(isTemporaryOnTheBasisOf, text, other);
    CORVID_COMPARE(pathStartingWithDocumentBeingSavedBy, text);
    CORVID_COMPARE(isAdobeFile, text);

    CORVID_COMPARE(isMediaType, text);
    CORVID_COMPARE(isWatermarkEligible, text);
    CORVID_COMPARE(isEligibleForInUseCheck, text);
    CORVID_COMPARE(isOfficeFile, text);
    CORVID_COMPARE(isCoeditSupported, text);
    CORVID_COMPARE(isCompressedFile, text);
    CORVID_COMPARE(getOfficeLockFile, text);
    // The standard library's matcher recurses once a byte.
    if (text.size() < 2000) {
        CORVID_COMPARE(isEmail, text);
    }
    CORVID_COMPARE(toBase64, text);
    CORVID_COMPARE(fromBase64, text);
    if (partsOf(colorFromHex(text)) != reference::colorFromHex(text)) {
        return "colorFromHex";
    }
    CORVID_COMPARE(containsInvalidPlatformFileNameCharacters, text);
    CORVID_COMPARE(isExtractedZip, text);
    CORVID_COMPARE(isLoggable, text);
    CORVID_COMPARE(reduceToItemIDComponent, text);
    CORVID_COMPARE(isPersonalFoldersID, text);
    CORVID_COMPARE(isLinkOrNoteId, text);
    CORVID_COMPARE(isStandardCorvidFolder, text);
    return std::nullopt;
}

} // namespace corvid
