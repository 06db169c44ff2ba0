#include "Core/Archive/ArchiveError.h"

#include <array>

namespace corvid {

namespace {

using Code = ArchiveError::Code;

struct Words {
    Code code;
    std::string_view name;
    std::string_view sentence;
};

// In the order of the enumeration, which lets a code be its own index.
constexpr auto kWords = std::to_array<Words>({
    {Code::notAPropertyList, "notAPropertyList", "neither a binary nor an XML property list"},
    {Code::tooLarge, "tooLarge", "larger than the largest message"},
    {Code::truncated, "truncated", "ends before it is complete"},
    {Code::badTrailer, "badTrailer", "the trailer contradicts itself or the file"},
    {Code::trailingBytes, "trailingBytes", "bytes that belong to nothing follow the content"},
    {Code::tooManyObjects, "tooManyObjects", "more objects than the reader takes"},
    {Code::badOffset, "badOffset", "an object begins outside the object area"},
    {Code::referenceOutOfRange, "referenceOutOfRange",
     "a reference to an object that is not there"},
    {Code::unknownType, "unknownType", "a value of a type that the format does not have"},
    {Code::badLength, "badLength", "a value reaches beyond the object area"},
    {Code::integerOutOfRange, "integerOutOfRange", "an integer of more than 64 bits"},
    {Code::badText, "badText", "text that is not valid in its encoding"},
    {Code::stringTooLong, "stringTooLong", "a string longer than the reader takes"},
    {Code::keyNotString, "keyNotString", "a key that is not a string"},
    {Code::duplicateKey, "duplicateKey", "the same key twice"},
    {Code::tooManyKeys, "tooManyKeys", "an object with more keys than the reader takes"},
    {Code::tooDeep, "tooDeep", "nested deeper than the reader goes"},
    {Code::cycle, "cycle", "an object that holds itself"},
    {Code::tooMuchMemory, "tooMuchMemory",
     "would need far more memory or time than the archive has bytes"},
    {Code::notAnArchive, "notAnArchive", "a property list, but not a keyed archive"},
    {Code::unknownArchiver, "unknownArchiver", "written by another archiver than NSKeyedArchiver"},
    {Code::unsupportedVersion, "unsupportedVersion", "not of archive version 100000"},
    {Code::missingObjects, "missingObjects", "no list of objects"},
    {Code::missingRoot, "missingRoot", "no reference to a root object"},
    {Code::nilRoot, "nilRoot", "the root object is nil"},
    {Code::uidOutOfRange, "uidOutOfRange", "a reference beyond the list of objects"},
    {Code::notAnObject, "notAnObject", "not of a form that an object has"},
    {Code::missingClass, "missingClass", "an object without a class"},
    {Code::badClass, "badClass", "a class without a usable name or chain"},
    {Code::missingKey, "missingKey", "a key that its class needs is missing"},
    {Code::wrongType, "wrongType", "a value of a type that its key does not take"},
    {Code::nilElement, "nilElement", "nil where a collection needs an object"},
    {Code::keysWithoutObjects, "keysWithoutObjects",
     "a dictionary with unequal numbers of keys and "
     "values"},
    {Code::badURL, "badURL", "text that is no URL"},
    {Code::badXML, "badXML", "not well-formed XML"},
    {Code::unsupportedEncoding, "unsupportedEncoding", "XML in another encoding than UTF-8"},
    {Code::unknownElement, "unknownElement", "an element that property lists do not have"},
    {Code::badNesting, "badNesting", "an element where a property list has none"},
    {Code::badNumber, "badNumber", "text that is no number of its kind"},
    {Code::badDate, "badDate", "text that is no date"},
    {Code::badBase64, "badBase64", "text that is no Base64"},
});

constexpr bool inOrder() {
    for (std::size_t i = 0; i < kWords.size(); ++i) {
        if (static_cast<std::size_t>(kWords[i].code) != i) {
            return false;
        }
    }
    return true;
}
static_assert(inOrder() && kWords.size() == static_cast<std::size_t>(Code::badBase64) + 1);

const Words& words(Code code) {
    return kWords.at(static_cast<std::size_t>(code));
}

} // namespace

std::string ArchiveError::message() const {
    std::string text(words(code).sentence);
    text += where == Where::byte ? ", at byte " : ", object ";
    text += std::to_string(at);
    if (!key.empty()) {
        text += ", key \"" + key + "\"";
    }
    return text;
}

std::string_view name(ArchiveError::Code code) {
    return words(code).name;
}

} // namespace corvid
