// Every member against what the platform's own string types answered: one line a string.

#include "Core/Base/URL.h"
#include "Core/Utility/Extensions/CVMAStringExtension.h"
#include "Core/Utility/Extensions/Characters.h"

#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace corvid {
namespace {

using nlohmann::json;

template <class T>
json orNull(const std::optional<T>& value) {
    return value ? json(*value) : json();
}

json asList(const Color& color) {
    if (color == kGrayColor) {
        return json::array();
    }
    const auto part = [](double value) { return static_cast<int>(std::lround(value * 255)); };
    return {part(color.red), part(color.green), part(color.blue)};
}

// Answers one member for the string `in`; `want` is what its line says, arguments included.
using Answer = std::function<json(const std::string& in, const json& want)>;

std::string text(const json& want, const char* key) {
    return want.at(key).get<std::string>();
}

template <class Member>
Answer plain(Member member) {
    return [member](const std::string& in, const json&) { return json(member(in)); };
}

const std::map<std::string, Answer> kAnswers = {
    {"lastPathComponent", plain(lastPathComponent)},
    {"pathExtension", plain(pathExtension)},
    {"stringByDeletingLastPathComponent", plain(stringByDeletingLastPathComponent)},
    {"stringByDeletingPathExtension", plain(stringByDeletingPathExtension)},
    {"pathComponents", plain(pathComponents)},
    {"stringByAppendingPathComponent",
     [](const std::string& in, const json& want) {
         return json(stringByAppendingPathComponent(text(want, "to"), in));
     }},
    {"stringByAppendingPathExtension",
     [](const std::string& in, const json& want) {
         return orNull(stringByAppendingPathExtension(in, text(want, "ext")));
     }},
    {"isTemporaryItem", plain(isTemporaryItem)},
    {"isAutoCADTmpFile", plain(isAutoCADTmpFile)},
    {"isEmpty", plain(isEmpty)},
    {"isAnyParentHidden", plain(isAnyParentHidden)},
    {"isHidden", plain(isHidden)},
    {"ignorable", plain(ignorable)},
    {"forcePreemptiveAttributeNotFound", plain(forcePreemptiveAttributeNotFound)},
    {"count", plain(characterCount)},
    {"truncateString",
     [](const std::string& in, const json& want) {
         return json(truncateString(in, want.at("length").get<std::ptrdiff_t>()));
     }},
    {"insertStringBeforeExtension",
     [](const std::string& in, const json& want) {
         return json(insertStringBeforeExtension(in, text(want, "insert")));
     }},
    {"deletingPrefix",
     [](const std::string& in, const json& want) {
         return json(deletingPrefix(in, text(want, "prefix")));
     }},
    {"isTemporaryOnTheBasisOf",
     [](const std::string& in, const json& want) {
         return json(isTemporaryOnTheBasisOf(text(want, "source"), in));
     }},
    {"equals", [](const std::string& in,
                  const json& want) { return json(textEquals(in, text(want, "other"))); }},
    {"hasPrefix", [](const std::string& in,
                     const json& want) { return json(beginsWith(in, text(want, "prefix"))); }},
    {"isMediaType", plain(isMediaType)},
    {"isOfficeFile", plain(isOfficeFile)},
    {"isEligibleForInUseCheck", plain(isEligibleForInUseCheck)},
    {"isWatermarkEligible", plain(isWatermarkEligible)},
    {"isCoeditSupported", plain(isCoeditSupported)},
    {"isCompressedFile", plain(isCompressedFile)},
    {"isAdobeFile", plain(isAdobeFile)},
    {"pathStartingWithDocumentBeingSavedBy", plain(pathStartingWithDocumentBeingSavedBy)},
    {"getOfficeLockFile", plain(getOfficeLockFile)},
    {"isEmail", plain(isEmail)},
    {"containsInvalidPlatformFileNameCharacters", plain(containsInvalidPlatformFileNameCharacters)},
    {"isExtractedZip", plain(isExtractedZip)},
    {"isPersonalFoldersID", plain(isPersonalFoldersID)},
    {"isLinkOrNoteId", plain(isLinkOrNoteId)},
    {"isStandardCorvidFolder", plain(isStandardCorvidFolder)},
    {"isLoggable", plain(isLoggable)},
    {"reduceToItemIDComponent", plain(reduceToItemIDComponent)},
    {"toBase64", plain(toBase64)},
    {"fromBase64", [](const std::string& in, const json&) { return orNull(fromBase64(in)); }},
    {"colorFromHex", [](const std::string& in, const json&) { return asList(colorFromHex(in)); }},
    {"fileURL",
     [](const std::string& in, const json&) {
         const auto url = URL::fileURL(in);
         return url ? json{{"absoluteString", url->absoluteString()}, {"path", url->path()}}
                    : json();
     }},
};

TEST(PlatformAnswersTest, everyMemberAgreesOnEveryString) {
    std::ifstream file(CORVID_TEST_DATA "/strings.jsonl");
    ASSERT_TRUE(file) << "cannot read " CORVID_TEST_DATA "/strings.jsonl";
    int lines = 0;
    std::map<std::string, int> answers;
    for (std::string line; std::getline(file, line); ++lines) {
        const json row = json::parse(line);
        const auto in = row.at("in").get<std::string>();
        for (const auto& [member, want] : row.items()) {
            if (member == "in") {
                continue;
            }
            ASSERT_TRUE(kAnswers.contains(member)) << member;
            ++answers[member];
            const bool hasArgument = want.is_object() && want.contains("out");
            EXPECT_EQ(kAnswers.at(member)(in, want), hasArgument ? want.at("out") : want)
                << member << " of " << row.at("in");
        }
    }
    EXPECT_EQ(lines, 1700);
    EXPECT_EQ(answers.size(), kAnswers.size());
}

} // namespace
} // namespace corvid
