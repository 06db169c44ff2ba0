#include "Support/StringMembers.h"

#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Core/Utility/Extensions/Characters.h"

#include <cmath>
#include <optional>
#include <vector>

namespace corvid {

namespace {

std::vector<int> partsOf(const Color& color) {
    if (color == kGrayColor) {
        return {};
    }
    const auto part = [](double value) { return static_cast<int>(std::lround(value * 255)); };
    return {part(color.red), part(color.green), part(color.blue)};
}

std::optional<std::vector<int>> numbers(const std::optional<Bytes>& bytes) {
    return bytes ? std::optional(std::vector<int>(bytes->begin(), bytes->end())) : std::nullopt;
}

} // namespace

void addStringMembers(JSONObjectWriter& object, std::string_view text, const Bundle& bundle) {
    object.add("in", text);

    object.add("lastPathComponent", lastPathComponent(text));
    object.add("pathExtension", pathExtension(text));
    object.add("deletingLastPathComponent", deletingLastPathComponent(text));
    object.add("stringByDeletingLastPathComponent", stringByDeletingLastPathComponent(text));
    object.add("deletePathExtension", deletePathExtension(text));
    object.add("stringByDeletingPathExtension", stringByDeletingPathExtension(text));
    object.add("pathComponents", pathComponents(text));
    object.add("localized", bundle.localizedString(text));
    object.add("count", characterCount(text));
    object.add("isHidden", isHidden(text));
    object.add("isAnyParentHidden", isAnyParentHidden(text));
    object.add("ignorable", ignorable(text));
    object.add("forcePreemptiveAttributeNotFound", forcePreemptiveAttributeNotFound(text));

    object.add("isTemporaryItem", isTemporaryItem(text));
    object.add("allExtensions", allExtensions(text));
    object.add("isEmpty", isEmpty(text));
    object.add("isAutoCADTmpFile", isAutoCADTmpFile(text));
    object.add("pathStartingWithDocumentBeingSavedBy", pathStartingWithDocumentBeingSavedBy(text));
    object.add("isAdobeFile", isAdobeFile(text));

    object.add("isMediaType", isMediaType(text));
    object.add("isWatermarkEligible", isWatermarkEligible(text));
    object.add("isEligibleForInUseCheck", isEligibleForInUseCheck(text));
    object.add("isOfficeFile", isOfficeFile(text));
    object.add("isCoeditSupported", isCoeditSupported(text));
    object.add("isCompressedFile", isCompressedFile(text));
    object.add("getOfficeLockFile", getOfficeLockFile(text));
    object.add("isEmail", isEmail(text));
    object.add("toBase64", toBase64(text));
    object.add("fromBase64", fromBase64(text));
    object.add("colorFromHex", partsOf(colorFromHex(text)));
    object.add("toPointer", numbers(toPointer(text)));
    object.add("containsInvalidPlatformFileNameCharacters",
               containsInvalidPlatformFileNameCharacters(text));
    object.add("isExtractedZip", isExtractedZip(text));
    object.add("isLoggable", isLoggable(text));
    object.add("reduceToItemIDComponent", reduceToItemIDComponent(text));
    object.add("isPersonalFoldersID", isPersonalFoldersID(text));
    object.add("isLinkOrNoteId", isLinkOrNoteId(text));
    object.add("isStandardCorvidFolder", isStandardCorvidFolder(text));
}

} // namespace corvid
