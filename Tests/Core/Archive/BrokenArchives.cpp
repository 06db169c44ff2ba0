#include "Tests/Core/Archive/BrokenArchives.h"

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Limits.h"
#include "Tests/Support/BytesOf.h"

#include <cctype>
#include <functional>
#include <string_view>
#include <utility>

namespace corvid {

namespace {

using namespace std::string_literals;
using Code = ArchiveError::Code;
using Where = ArchiveError::Where;

ArchiveError atByte(Code code, std::uint64_t at) {
    return {code, Where::byte, at};
}

ArchiveError atObject(Code code, std::uint64_t at, std::string key = {}) {
    return {code, Where::object, at, std::move(key)};
}

std::string element(const std::string& tag, const std::string& content) {
    return "<" + tag + ">" + content + "</" + tag + ">";
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

// A class definition of a class under NSObject.
std::string classXML(const std::string& name) {
    return "<dict><key>$classname</key><string>" + name +
           "</string><key>$classes</key><array><string>" + name +
           "</string><string>NSObject</string></array></dict>";
}

// An object whose class is object 2, which follows.
std::string objectXML(const std::string& fields, const std::string& className) {
    return "<dict><key>$class</key>@2" + fields + "</dict>" + classXML(className);
}

std::string key(const std::string& name, const std::string& value) {
    return "<key>" + name + "</key>" + value;
}

BrokenArchive object(std::string name, const std::string& objects, ArchiveError error) {
    return {std::move(name), bytesOf(archiveXML(objects)), std::move(error)};
}

// A good archive of a string, changed. `at` counts from the end when it is negative.
BrokenArchive changed(std::string name, const std::function<void(Bytes&)>& change, Code code,
                      std::int64_t at) {
    Bytes bytes = archivedData(Value::string("x"));
    change(bytes);
    const auto place = at < 0 ? static_cast<std::int64_t>(bytes.size()) + at : at;
    return {std::move(name), std::move(bytes), atByte(code, static_cast<std::uint64_t>(place))};
}

// `byte` at `at` from the end, and the error at the field that holds it.
BrokenArchive patched(std::string name, std::int64_t at, std::uint8_t byte, Code code,
                      std::int64_t field) {
    return changed(
        std::move(name),
        [&](Bytes& bytes) {
            bytes[static_cast<std::size_t>(static_cast<std::int64_t>(bytes.size()) + at)] = byte;
        },
        code, field);
}

// A good archive but for its root, whose bytes are the first behind the header.
BrokenArchive root(std::string name, const std::string& value, ArchiveError error) {
    const std::vector<std::string> values = {
        value,
        "\xD4\x00\x02\x00\x03\x00\x04\x00\x05\x00\x06\x00\x07\x00\x08\x00\x09"s,
        "\x58$version",
        "\x59$archiver",
        "\x54$top",
        "\x58$objects",
        "\x12\x00\x01\x86\xA0"s,
        "\x5F\x10\x0FNSKeyedArchiver",
        "\xD1\x00\x0A\x00\x0B"s,
        "\xA2\x00\x0C\x00\x00"s,
        "\x54root",
        "\x80\x01",
        "\x55$null",
    };
    return {std::move(name), rawPropertyList(values, 1), std::move(error)};
}

BrokenArchive root(std::string name, const std::string& value, Code code) {
    return root(std::move(name), value, atByte(code, 8));
}

BrokenArchive xml(std::string name, const std::string& text, Code code, std::uint64_t at) {
    return {std::move(name), bytesOf(text), atByte(code, at)};
}

// An archive in XML of the given frame.
BrokenArchive frame(std::string name, const std::string& content, ArchiveError error) {
    return {std::move(name), bytesOf(content), std::move(error)};
}

const std::string kVersion = key("$version", "<integer>100000</integer>");
const std::string kArchiver = key("$archiver", "<string>NSKeyedArchiver</string>");
const std::string kTop = key("$top", "<dict><key>root</key><dict><key>CF$UID</key>"
                                     "<integer>1</integer></dict></dict>");
const std::string kObjects =
    key("$objects", "<array><string>$null</string><string>x</string></array>");

void addContainers(std::vector<BrokenArchive>& all) {
    all.push_back({"nothing", {}, atByte(Code::notAPropertyList, 0)});
    all.push_back({"text", bytesOf("synced"), atByte(Code::notAPropertyList, 0)});
    all.push_back({"part of a signature", bytesOf("bplist"), atByte(Code::notAPropertyList, 0)});
    all.push_back({"signature only", bytesOf("bplist00"), atByte(Code::truncated, 8)});
    Bytes large = bytesOf("bplist00");
    large.resize(limits::kArchiveSize + 1);
    all.push_back({"too large", std::move(large), atByte(Code::tooLarge, limits::kArchiveSize)});
    std::string largeXML = "<plist>";
    largeXML.resize(limits::kArchiveSize + 1, ' ');
    all.push_back(
        {"too large in XML", bytesOf(largeXML), atByte(Code::tooLarge, limits::kArchiveSize)});
    all.push_back(patched("offsets of no width", -26, 0, Code::badTrailer, -26));
    all.push_back(patched("offsets of nine bytes", -26, 9, Code::badTrailer, -26));
    all.push_back(patched("references of no width", -25, 0, Code::badTrailer, -25));
    all.push_back(patched("references of nine bytes", -25, 9, Code::badTrailer, -25));
    all.push_back(patched("no values", -17, 0, Code::badTrailer, -24));
    all.push_back(patched("2 to the 40 values", -22, 1, Code::tooManyObjects, -24));
    all.push_back(changed(
        "more values than references reach", [](Bytes& bytes) { bytes[bytes.size() - 18] = 2; },
        Code::badTrailer, -25));
    all.push_back(patched("top value not there", -9, 200, Code::badTrailer, -16));
    all.push_back(changed(
        "table before the values", [](Bytes& bytes) { bytes[bytes.size() - 1] = 8; },
        Code::badTrailer, -8));
    all.push_back(changed(
        "table behind the trailer", [](Bytes& bytes) { bytes[bytes.size() - 1] = 255; },
        Code::badTrailer, -8));
    all.push_back(changed(
        "one value too many", [](Bytes& bytes) { ++bytes[bytes.size() - 17]; }, Code::truncated,
        static_cast<std::int64_t>(archivedData(Value::string("x")).size())));
    all.push_back(changed(
        "one value too few", [](Bytes& bytes) { --bytes[bytes.size() - 17]; }, Code::trailingBytes,
        -33));
    all.push_back(changed(
        "a byte before the trailer", [](Bytes& bytes) { bytes.insert(bytes.end() - 32, 0); },
        Code::trailingBytes, -33));
    all.push_back(changed(
        "a value in the header", [](Bytes& bytes) { bytes[bytes.size() - 33] = 7; },
        Code::badOffset, -33));
    all.push_back(changed(
        "a value in the table", [](Bytes& bytes) { bytes[bytes.size() - 33] = 200; },
        Code::badOffset, -33));
}

void addValues(std::vector<BrokenArchive>& all) {
    for (const int marker :
         {0x00, 0x0F, 0x15, 0x21, 0x24, 0x32, 0x34, 0x70, 0x88, 0x90, 0xB0, 0xC0, 0xE0, 0xF0}) {
        all.push_back(root("marker " + std::to_string(marker),
                           std::string(1, static_cast<char>(marker)) + std::string(16, '\0'),
                           Code::unknownType));
    }
    // Each ends beyond the object area, which is far smaller than what they announce.
    const std::string many = "\x11\x7F\xFF";
    all.push_back(root("data beyond the end", "\x4F" + many, Code::badLength));
    all.push_back(root("ASCII beyond the end", "\x5F" + many, Code::badLength));
    all.push_back(root("UTF-16 beyond the end", "\x6F" + many, Code::badLength));
    all.push_back(root("array beyond the end", "\xAF" + many, Code::badLength));
    all.push_back(root("dictionary beyond the end", "\xDF" + many, Code::badLength));
    all.push_back(root("length that is no integer", "\x5F\x51\x41", Code::badLength));
    all.push_back(
        root("length of sixteen bytes", "\x5F\x14"s + std::string(16, '\0'), Code::badLength));
    all.push_back(root("length of 2 to the 63", "\x4F\x13\x80\x00\x00\x00\x00\x00\x00\x00"s,
                       Code::badLength));
    all.push_back(root("ASCII with a high byte", "\x52\x41\xE9", Code::badText));
    all.push_back(root("UTF-16 with half a pair", "\x62\xD8\x00\x00\x41"s, Code::badText));
    all.push_back(root("UTF-16 with the wrong half", "\x62\xDC\x00\x00\x41"s, Code::badText));
    all.push_back(root("UTF-16 that ends within a pair", "\x61\xD8\x00"s, Code::badText));
    all.push_back(root("integer of 65 bits",
                       "\x14"s + std::string(7, '\0') + "\x01" + std::string(8, '\0'),
                       Code::integerOutOfRange));
    all.push_back(root("unsigned integer of 64 bits",
                       "\x14"s + std::string(8, '\0') + std::string(8, '\xFF'),
                       Code::integerOutOfRange));
    std::string longText = "\x5F\x12\x00\x10\x00\x01"s;
    longText.resize(longText.size() + limits::kStringLength + 1, 'x');
    all.push_back(root("string that is too long", longText, Code::stringTooLong));
    all.push_back(root("reference to a key that is not there", "\xD1\x00\x63\x00\x00"s,
                       atByte(Code::referenceOutOfRange, 9)));
    all.push_back(
        root("key that is an integer", "\xD1\x00\x06\x00\x06"s, atByte(Code::keyNotString, 63)));
    // Values at the very end of the object area.
    const auto last = [&](std::string name, const std::string& value) {
        all.push_back({std::move(name), rawPropertyList({value}, 0), atByte(Code::badLength, 8)});
    };
    last("integer cut short", "\x13\x01"s);
    last("real cut short", "\x23\x01"s);
    last("date cut short", "\x33\x01"s);
    last("reference cut short", "\x83\x01"s);
    last("length cut short", "\x5F\x12\x01"s);
    last("length missing", "\x5F"s);
}

void addFrames(std::vector<BrokenArchive>& all) {
    const auto whole = [](const std::string& content) {
        return element("plist", element("dict", content));
    };
    all.push_back(
        frame("an array on top", element("plist", "<array/>"), atByte(Code::notAnArchive, 0)));
    all.push_back(frame("no archive", whole(key("url", "<string>x</string>")),
                        atByte(Code::notAnArchive, 0)));
    all.push_back(
        frame("no archiver", whole(kVersion + kTop + kObjects), atByte(Code::unknownArchiver, 0)));
    all.push_back(
        frame("another archiver",
              whole(kVersion + kTop + kObjects + key("$archiver", "<string>NSArchiver</string>")),
              atByte(Code::unknownArchiver, 0)));
    all.push_back(frame("an archiver that is no string",
                        whole(kVersion + kTop + kObjects + key("$archiver", "<true/>")),
                        atByte(Code::unknownArchiver, 0)));
    all.push_back(frame("no version", whole(kArchiver + kTop + kObjects),
                        atByte(Code::unsupportedVersion, 0)));
    all.push_back(
        frame("another version",
              whole(kArchiver + kTop + kObjects + key("$version", "<integer>100001</integer>")),
              atByte(Code::unsupportedVersion, 0)));
    all.push_back(
        frame("a version that is no integer",
              whole(kArchiver + kTop + kObjects + key("$version", "<string>100000</string>")),
              atByte(Code::unsupportedVersion, 0)));
    all.push_back(
        frame("no objects", whole(kVersion + kArchiver + kTop), atByte(Code::missingObjects, 0)));
    all.push_back(frame("objects that are no array",
                        whole(kVersion + kArchiver + kTop + key("$objects", "<dict/>")),
                        atByte(Code::missingObjects, 0)));
    all.push_back(
        frame("no top", whole(kVersion + kArchiver + kObjects), atByte(Code::missingRoot, 0)));
    all.push_back(frame("a top that is no dictionary",
                        whole(kVersion + kArchiver + kObjects + key("$top", "<array/>")),
                        atByte(Code::missingRoot, 0)));
    all.push_back(frame("no root", whole(kVersion + kArchiver + kObjects + key("$top", "<dict/>")),
                        atByte(Code::missingRoot, 0)));
    all.push_back(frame("a root that is no reference",
                        whole(kVersion + kArchiver + kObjects +
                              key("$top", "<dict><key>root</key><integer>1</integer></dict>")),
                        atByte(Code::missingRoot, 0)));
    all.push_back(frame("a frame with a key twice",
                        whole(kVersion + kArchiver + kTop + kObjects + kVersion),
                        atObject(Code::duplicateKey, 0, "$version")));
    all.push_back({"a root that is nil", bytesOf(archiveXML("<string>$null</string>", "@0")),
                   atObject(Code::nilRoot, 0)});
    all.push_back({"a root that is not there", bytesOf(archiveXML("<string>$null</string>", "@9")),
                   atObject(Code::uidOutOfRange, 9)});
}

void addObjects(std::vector<BrokenArchive>& all) {
    const std::string null = "<string>$null</string>";
    const auto add = [&](std::string name, const std::string& objects, ArchiveError error) {
        all.push_back(object(std::move(name), null + objects, std::move(error)));
    };
    add("a list as an object", "<array/>", atObject(Code::notAnObject, 1));
    add("a reference as an object", "@1", atObject(Code::notAnObject, 1));
    add("an object without a class", "<dict/>", atObject(Code::missingClass, 1));
    add("a class in place", "<dict><key>$class</key><string>NSArray</string></dict>",
        atObject(Code::missingClass, 1));
    add("a class that is not there", "<dict><key>$class</key>@7</dict>",
        atObject(Code::uidOutOfRange, 1, "$class"));
    add("an object that is its own class", "<dict><key>$class</key>@1</dict>",
        atObject(Code::badClass, 1));
    add("a class that is a string", "<dict><key>$class</key>@2</dict><string>NSArray</string>",
        atObject(Code::badClass, 2));
    add("a class without a name",
        "<dict><key>$class</key>@2</dict>"
        "<dict><key>$classes</key><array><string>NSNull</string></array></dict>",
        atObject(Code::badClass, 2));
    add("a class without a chain",
        "<dict><key>$class</key>@2</dict>"
        "<dict><key>$classname</key><string>NSNull</string></dict>",
        atObject(Code::badClass, 2));
    add("a class with an empty chain",
        "<dict><key>$class</key>@2</dict>"
        "<dict><key>$classname</key><string>NSNull</string><key>$classes</key><array/></dict>",
        atObject(Code::badClass, 2));
    add("a class with a number in its chain",
        "<dict><key>$class</key>@2</dict><dict><key>$classname</key><string>A</string>"
        "<key>$classes</key><array><integer>1</integer></array></dict>",
        atObject(Code::badClass, 2));
    add("a class with an endless chain",
        "<dict><key>$class</key>@2</dict><dict><key>$classname</key><string>A</string>"
        "<key>$classes</key>" +
            element("array", repeated("<string>A</string>", limits::kClassChain + 1)) + "</dict>",
        atObject(Code::badClass, 2));
    add("a class as the root", classXML("NSNull"), atObject(Code::missingClass, 1));
    add("a class as an element", objectXML(key("NS.objects", "<array>@2</array>"), "NSArray"),
        atObject(Code::notAnObject, 2));
    add("an object with a key twice",
        objectXML(key("NS.objects", "<array/>") + key("NS.objects", "<array/>"), "NSArray"),
        atObject(Code::duplicateKey, 1, "NS.objects"));
    std::string manyKeys;
    for (std::size_t i = 0; i < 40; ++i) {
        manyKeys += key("k" + std::to_string(i), "<true/>");
    }
    add("an object with one of many keys twice",
        objectXML(manyKeys + key("k17", "<true/>"), "Thing"),
        atObject(Code::duplicateKey, 1, "k17"));

    add("a string without text", objectXML("", "NSMutableString"),
        atObject(Code::missingKey, 1, "NS.bytes"));
    add("a string of a number", objectXML(key("NS.string", "<integer>1</integer>"), "NSString"),
        atObject(Code::wrongType, 1, "NS.string"));
    add("a string that refers to a number",
        objectXML(key("NS.string", "@3"), "NSString") + "<integer>1</integer>",
        atObject(Code::wrongType, 1, "NS.string"));
    add("a string of bytes that are no text",
        objectXML(key("NS.bytes", "<data>/w==</data>"), "NSString"),
        atObject(Code::badText, 1, "NS.bytes"));
    add("data without bytes", objectXML("", "NSMutableData"),
        atObject(Code::missingKey, 1, "NS.bytes"));
    add("data of text", objectXML(key("NS.data", "<string>x</string>"), "NSData"),
        atObject(Code::wrongType, 1, "NS.data"));
    add("a date without a time", objectXML("", "NSDate"), atObject(Code::missingKey, 1, "NS.time"));
    add("a date of an integer", objectXML(key("NS.time", "<integer>1</integer>"), "NSDate"),
        atObject(Code::wrongType, 1, "NS.time"));
    add("a URL without text", objectXML(key("NS.base", "@0"), "NSURL"),
        atObject(Code::missingKey, 1, "NS.relative"));
    add("a URL of nil", objectXML(key("NS.relative", "@0"), "NSURL"),
        atObject(Code::wrongType, 1, "NS.relative"));
    add("a URL of a number", objectXML(key("NS.relative", "@3"), "NSURL") + "<true/>",
        atObject(Code::wrongType, 1, "NS.relative"));
    add("a URL with a blank", objectXML(key("NS.relative", "@3"), "NSURL") + "<string>a b</string>",
        atObject(Code::badURL, 1, "NS.relative"));
    add("a URL on a string",
        objectXML(key("NS.base", "@3") + key("NS.relative", "@3"), "NSURL") + "<string>a</string>",
        atObject(Code::wrongType, 1, "NS.base"));
    add("a URL on a text in place",
        objectXML(key("NS.base", "<string>a</string>") + key("NS.relative", "@0"), "NSURL"),
        atObject(Code::wrongType, 1, "NS.base"));
    add("a URL on itself", objectXML(key("NS.base", "@1") + key("NS.relative", "@0"), "NSURL"),
        atObject(Code::cycle, 1));
    add("an array of no list", objectXML(key("NS.objects", "<true/>"), "NSArray"),
        atObject(Code::wrongType, 1, "NS.objects"));
    add("an array of an element in place",
        objectXML(key("NS.objects", "<array><string>x</string></array>"), "NSArray"),
        atObject(Code::wrongType, 1, "NS.objects"));
    add("an array of nil", objectXML(key("NS.objects", "<array>@0</array>"), "NSArray"),
        atObject(Code::nilElement, 1, "NS.objects"));
    // In a list made of XML the place means nothing.
    add("a key that is too long",
        objectXML(key(std::string(limits::kKeyLength + 1, 'k'), "<true/>"), "NSArray"),
        atByte(Code::stringTooLong, 0));
    add("an old array of an element in place",
        objectXML(key("NS.object.0", "<string>x</string>"), "NSArray"),
        atObject(Code::wrongType, 1, "NS.object.0"));
    add("an old array of nil", objectXML(key("NS.object.0", "@0"), "NSArray"),
        atObject(Code::nilElement, 1, "NS.object.0"));
    add("an array of what is not there",
        objectXML(key("NS.objects", "<array>@8</array>"), "NSArray"),
        atObject(Code::uidOutOfRange, 8));
    add("an array that holds itself", objectXML(key("NS.objects", "<array>@1</array>"), "NSArray"),
        atObject(Code::cycle, 1));
    add("two arrays that hold each other",
        objectXML(key("NS.objects", "<array>@3</array>"), "NSArray") +
            "<dict><key>$class</key>@2<key>NS.objects</key><array>@1</array></dict>",
        atObject(Code::cycle, 1));
    add("a set of nil", objectXML(key("NS.objects", "<array>@0</array>"), "NSSet"),
        atObject(Code::nilElement, 1, "NS.objects"));
    add("a dictionary with a key too many",
        objectXML(key("NS.keys", "<array>@3</array>") + key("NS.objects", "<array/>"),
                  "NSDictionary") +
            "<string>x</string>",
        atObject(Code::keysWithoutObjects, 1));
    add("a dictionary with a value too many",
        objectXML(key("NS.keys", "<array/>") + key("NS.objects", "<array>@3</array>"),
                  "NSDictionary") +
            "<string>x</string>",
        atObject(Code::keysWithoutObjects, 1));
    add("a dictionary with a key twice",
        objectXML(key("NS.keys", "<array>@3@3</array>") + key("NS.objects", "<array>@3@3</array>"),
                  "NSDictionary") +
            "<string>url</string>",
        atObject(Code::duplicateKey, 1, "url"));
    add("a dictionary with nil for a key",
        objectXML(key("NS.keys", "<array>@0</array>") + key("NS.objects", "<array>@1</array>"),
                  "NSDictionary"),
        atObject(Code::nilElement, 1, "NS.keys"));
    add("a dictionary with nil for a value",
        objectXML(key("NS.keys", "<array>@3</array>") + key("NS.objects", "<array>@0</array>"),
                  "NSDictionary") +
            "<string>x</string>",
        atObject(Code::nilElement, 1, "NS.objects"));
    add("an unknown object that refers to nothing", objectXML(key("part", "@9"), "Thing"),
        atObject(Code::uidOutOfRange, 9));
}

void addMenus(std::vector<BrokenArchive>& all) {
    const auto add = [&](std::string name, const std::string& fields, const std::string& className,
                         const std::string& more, ArchiveError error) {
        all.push_back(object(std::move(name),
                             "<string>$null</string>" + objectXML(fields, className) + more,
                             std::move(error)));
    };
    const auto item = [&](std::string name, const std::string& keyName, const std::string& value,
                          const std::string& more = {}) {
        add(std::move(name), key(keyName, value), "NSMenuItem", more,
            atObject(Code::wrongType, 1, keyName));
    };
    item("an item with a number for a title", "NSTitle", "<integer>1</integer>");
    item("an item with data for a title", "NSTitle", "@3", "<data>AAAA</data>");
    item("an item with a flag for a key", "NSKeyEquiv", "<true/>");
    item("an item with a flag for a mask", "NSKeyEquivModMask", "<true/>");
    item("an item with text for a tag", "NSTag", "<string>1</string>");
    item("an item with a boxed tag", "NSTag", "@3", "<integer>1</integer>");
    item("an item with a real state", "NSState", "<real>1</real>");
    item("an item with a flag for an indentation", "NSIndent", "<false/>");
    item("an item disabled by a number", "NSIsDisabled", "<integer>1</integer>");
    item("an item hidden by text", "NSIsHidden", "<string>YES</string>");
    item("an item whose alternate is a reference", "NSIsAlternate", "@3", "<true/>");
    item("an item whose separator is a number", "NSIsSeparator", "<integer>0</integer>");
    item("an item with a number for an action", "NSAction", "@3", "<integer>1</integer>");
    item("an item with data for a tool tip", "NSToolTip", "<data>AAAA</data>");
    item("an item with a string for a submenu", "NSSubmenu", "@3", "<string>x</string>");
    item("an item with a submenu in place", "NSSubmenu", "<dict/>");
    item("an item with a target in place", "NSTarget", "<true/>");
    add("an item with a target that is not there", key("NSTarget", "@9"), "NSMenuItem", "",
        atObject(Code::uidOutOfRange, 1, "NSTarget"));
    add("an item below itself", key("NSSubmenu", "@3"), "NSMenuItem",
        "<dict><key>$class</key>@4<key>NSMenuItems</key>@5</dict>" + classXML("NSMenu") +
            "<dict><key>$class</key>@6<key>NS.objects</key><array>@1</array></dict>" +
            classXML("NSArray"),
        atObject(Code::cycle, 1));
    add("a menu below itself", key("NSMenuItems", "@3"), "NSMenu",
        "<dict><key>$class</key>@4<key>NS.objects</key><array>@5</array></dict>" +
            classXML("NSArray") + "<dict><key>$class</key>@6<key>NSSubmenu</key>@1</dict>" +
            classXML("NSMenuItem"),
        atObject(Code::cycle, 1));
    add("a menu with items in place", key("NSMenuItems", "<array/>"), "NSMenu", "",
        atObject(Code::wrongType, 1, "NSMenuItems"));
    add("a menu with a string for items", key("NSMenuItems", "@3"), "NSMenu", "<string>x</string>",
        atObject(Code::wrongType, 1, "NSMenuItems"));
    add("a menu with nil for items", key("NSMenuItems", "@0"), "NSMenu", "",
        atObject(Code::wrongType, 1, "NSMenuItems"));
    add("a menu with a string among its items", key("NSMenuItems", "@3"), "NSMenu",
        "<dict><key>$class</key>@4<key>NS.objects</key><array>@5</array></dict>" +
            classXML("NSArray") + "<string>x</string>",
        atObject(Code::wrongType, 1, "NSMenuItems"));
    add("a menu with a number for a flag", key("NSNoAutoenable", "<integer>1</integer>"), "NSMenu",
        "", atObject(Code::wrongType, 1, "NSNoAutoenable"));
    add("a menu with a number for a title", key("NSTitle", "<integer>1</integer>"), "NSMenu", "",
        atObject(Code::wrongType, 1, "NSTitle"));
}

void addBounds(std::vector<BrokenArchive>& all) {
    // Arrays, each holding the next; object 2 is their class.
    std::string nested =
        "<string>$null</string>" + objectXML(key("NS.objects", "<array>@3</array>"), "NSArray");
    for (std::size_t i = 3; i < limits::kDepth + 8; ++i) {
        nested += "<dict><key>$class</key>@2<key>NS.objects</key><array>@" + std::to_string(i + 1) +
                  "</array></dict>";
    }
    all.push_back(object("arrays in arrays without end", nested,
                         atObject(Code::tooDeep, limits::kDepth + 2)));
    std::string keys;
    for (std::size_t i = 0; i < limits::kKeysPerObject; ++i) {
        keys += key("k" + std::to_string(i), "<true/>");
    }
    BrokenArchive manyKeys =
        object("an object with too many keys", "<string>$null</string>" + objectXML(keys, "Thing"),
               atByte(Code::tooManyKeys, 0));
    all.push_back(std::move(manyKeys));

    // A list that holds the same list ten times, and so on: in place, so that it unfolds.
    std::vector<std::string> values = {
        "\xD4\x00\x02\x00\x03\x00\x04\x00\x05\x00\x06\x00\x07\x00\x08\x00\x09"s,
        "\xD1\x00\x0A\x00\x0B"s,
        "\x58$version",
        "\x59$archiver",
        "\x54$top",
        "\x58$objects",
        "\x12\x00\x01\x86\xA0"s,
        "\x5F\x10\x0FNSKeyedArchiver",
        "\xD1\x00\x0A\x00\x0B"s,
        "\xA3\x00\x0C\x00\x0D\x00\x0E"s,
        "\x54root",
        "\x80\x01",
        "\x55$null",
        "\xD2\x00\x0F\x00\x10\x00\x11\x00\x14"s,
        "\xD2\x00\x12\x00\x13\x00\x10\x00\x15"s,
        "\x56$class",
        "\x55Thing",
        "\x80\x02",
        "\x5A$classname",
        "\x58$classes",
    };
    for (unsigned depth = 0; depth < 12; ++depth) {
        const auto next = static_cast<char>(depth == 11 ? 0x10 : 0x16 + depth);
        values.push_back("\xAA"s + repeated(std::string("\x00", 1) + next, 10));
        if (depth == 0) {
            values.push_back("\xA1\x00\x10"s);
        }
    }
    // "Thing" stands for a key as well; the list begins at value 20, its members at 22.
    all.push_back({"lists that unfold a thousand million times", rawPropertyList(values, 0), {}});
    all.back().error = atByte(Code::tooMuchMemory, all.back().bytes.size());

    // One long title, which a hundred items refer to.
    std::string items;
    for (int i = 0; i < 100; ++i) {
        items += "@" + std::to_string(6 + i);
    }
    std::string titles = "<string>$null</string>" +
                         objectXML(key("NS.objects", element("array", items)), "NSArray") +
                         element("string", std::string(100'000, 'x')) + classXML("NSMenuItem") +
                         "<true/>";
    for (int i = 0; i < 100; ++i) {
        titles += "<dict><key>$class</key>@4<key>NSTitle</key>@3</dict>";
    }
    all.push_back(object("a long title a hundred times", titles, atByte(Code::tooMuchMemory, 0)));
}

void addXML(std::vector<BrokenArchive>& all) {
    all.push_back(xml("XML that stops in a tag", "<plist", Code::truncated, 6));
    all.push_back(xml("XML that stops in an element", "<plist><string>x", Code::truncated, 16));
    all.push_back(xml("XML without its end", "<plist><true/>", Code::truncated, 14));
    all.push_back(xml("an open comment", "<!-- <plist/>", Code::truncated, 13));
    all.push_back(xml("an open declaration", "<?xml version='1.0'", Code::truncated, 19));
    all.push_back(xml("an open section", "<string><![CDATA[x</string>", Code::truncated, 27));
    all.push_back(xml("a document type with entities", "<!DOCTYPE plist [<!ENTITY a 'b'>]><plist/>",
                      Code::badXML, 0));
    all.push_back(xml("another encoding", "<?xml version='1.0' encoding='UTF-16'?><plist/>",
                      Code::unsupportedEncoding, 30));
    all.push_back(xml("an unknown element", "<plist><null/></plist>", Code::unknownElement, 7));
    all.push_back(xml("a tag without a name", "<plist>< /></plist>", Code::badXML, 7));
    all.push_back(xml("a wrong end", "<plist><array></dict></plist>", Code::badNesting, 14));
    all.push_back(xml("an empty list", "<plist></plist>", Code::badNesting, 7));
    all.push_back(xml("two values", "<plist><true/><true/></plist>", Code::badNesting, 14));
    all.push_back(xml("text between values", "<plist><array>x</array></plist>", Code::badXML, 14));
    all.push_back(xml("something behind", "<plist><true/></plist>x", Code::trailingBytes, 22));
    all.push_back(xml("a key outside", "<plist><key>x</key></plist>", Code::badNesting, 7));
    all.push_back(xml("a value without a key", "<plist><dict><true/></dict></plist>",
                      Code::keyNotString, 13));
    all.push_back(xml("a key without a value", "<plist><dict><key>x</key></dict></plist>",
                      Code::badNesting, 25));
    all.push_back(xml("a flag with content", "<plist><true>1</true></plist>", Code::badNesting, 7));
    all.push_back(xml("an element in a string", "<string><true/></string>", Code::badNesting, 8));
    for (const char* number : {"", "1.5", "x", "9223372036854775808", "0x", "--1"}) {
        all.push_back(
            xml("the integer \""s + number + "\"", element("integer", number), Code::badNumber, 0));
    }
    for (const char* number : {"", "1,5", "x", "1e"}) {
        all.push_back(
            xml("the real \""s + number + "\"", element("real", number), Code::badNumber, 0));
    }
    for (const char* date : {"", "2001-01-01", "2001-13-01T00:00:00Z", "2001-02-29T00:00:00Z",
                             "2001-01-01T24:00:00Z", "2001-01-01T00:00:00+"}) {
        all.push_back(xml("the date \""s + date + "\"", element("date", date), Code::badDate, 0));
    }
    for (const char* data : {"A", "AA", "AA=A", "A===", "A-==", "====="}) {
        all.push_back(xml("the data \""s + data + "\"", element("data", data), Code::badBase64, 0));
    }
    for (const char* entity : {"&", "&nbsp;", "&#0;", "&#xD800;", "&#x110000;", "&#;"}) {
        all.push_back(xml("the entity "s + entity, element("string", entity), Code::badXML, 8));
    }
    all.push_back(xml("a string that is no UTF-8", "<string>\xC3</string>", Code::badText, 0));
    all.push_back(xml("a string that is too long in XML",
                      element("string", std::string(limits::kStringLength + 1, 'x')),
                      Code::stringTooLong, 0));
    all.push_back(xml("elements in elements without end", repeated("<array>", 1000), Code::tooDeep,
                      7 * limits::kDepth));
}

} // namespace

std::string archiveXML(const std::string& objects, const std::string& root) {
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + kVersion +
        kArchiver + key("$top", "<dict><key>root</key>" + root + "</dict>") +
        key("$objects", element("array", objects)) + "</dict></plist>\n";
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '@') {
            result += text[i];
            continue;
        }
        std::string digits;
        while (i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])) != 0) {
            digits += text[++i];
        }
        result += "<dict><key>CF$UID</key><integer>" + digits + "</integer></dict>";
    }
    return result;
}

Bytes rawPropertyList(const std::vector<std::string>& values, unsigned top) {
    std::string text = "bplist00";
    std::vector<std::size_t> offsets;
    for (const std::string& value : values) {
        offsets.push_back(text.size());
        text += value;
    }
    const auto put = [&text](std::size_t number, std::size_t width) {
        for (std::size_t i = width; i-- > 0;) {
            text += static_cast<char>((number >> (8 * i)) & 0xFFU);
        }
    };
    const std::size_t table = text.size();
    const std::size_t width = table > 0xFFFF ? 4 : 2;
    for (const std::size_t offset : offsets) {
        put(offset, width);
    }
    put(0, 6);
    put(width, 1);
    put(2, 1);
    put(values.size(), 8);
    put(top, 8);
    put(table, 8);
    return bytesOf(text);
}

std::vector<BrokenArchive> brokenArchives() {
    std::vector<BrokenArchive> all;
    addContainers(all);
    addValues(all);
    addFrames(all);
    addObjects(all);
    addMenus(all);
    addBounds(all);
    addXML(all);
    return all;
}

} // namespace corvid
