#include "Core/Archive/XMLPropertyList.h"

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/BinaryPropertyListWriter.h"
#include "Core/Archive/Limits.h"
#include "Core/Base/UTF8.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

namespace {

using Code = ArchiveError::Code;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kUIDKey = "CF$UID";

std::string_view textOf(ByteView bytes) {
    // Bytes may be looked at as characters.
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// What `text` says as a whole; nothing when it is not a number of this kind.
template <class Number, class... Base>
std::optional<Number> number(std::string_view text, Base... base) {
    Number value{};
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value, base...);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value)
                                                                    : std::nullopt;
}

class Parser {
public:
    explicit Parser(std::string_view text)
        : text_(text), writer_(static_cast<std::size_t>(std::ranges::count(text, '<')),
                               text.size() + text.size() / 3) {}

    Bytes parse() {
        readProlog();
        Tag tag = readTag();
        const bool isWrapped = tag.name == "plist" && tag.kind == Tag::Kind::opening;
        if (isWrapped) {
            tag = readTag();
        }
        readValue(tag);
        if (isWrapped) {
            readClosing("plist");
        }
        skipMisc();
        if (at_ != text_.size()) {
            refuse(Code::trailingBytes);
        }
        return writer_.finish(values_.back());
    }

private:
    using Ref = std::uint32_t;

    struct Tag {
        enum class Kind { opening, closing, empty };

        Kind kind;
        std::string_view name;
        std::size_t start;
    };

    [[noreturn]] void refuse(Code code) const { refuseAtByte(code, at_); }

    bool startsWith(std::string_view what) const { return text_.substr(at_).starts_with(what); }

    void skipPast(std::string_view what) {
        const std::size_t found = text_.find(what, at_);
        if (found == std::string_view::npos) {
            refuseAtByte(Code::truncated, text_.size());
        }
        at_ = found + what.size();
    }

    // White space and comments.
    void skipMisc() {
        while (at_ < text_.size()) {
            if (isBlank(text_[at_])) {
                ++at_;
            } else if (startsWith("<!--")) {
                at_ += 4;
                skipPast("-->");
            } else {
                return;
            }
        }
    }

    void readProlog() {
        if (startsWith(kByteOrderMark)) {
            at_ += kByteOrderMark.size();
        }
        skipMisc();
        if (startsWith("<?xml")) {
            const std::size_t start = at_;
            skipPast("?>");
            checkEncoding(text_.substr(start, at_ - start), start);
            skipMisc();
        }
        if (startsWith("<!DOCTYPE")) {
            const std::size_t start = at_;
            skipPast(">");
            // A document type with declarations of its own could define entities.
            if (text_.substr(start, at_ - start).find('[') != std::string_view::npos) {
                refuseAtByte(Code::badXML, start);
            }
        }
    }

    static void checkEncoding(std::string_view declaration, std::size_t start) {
        const std::size_t found = declaration.find("encoding");
        if (found == std::string_view::npos) {
            return;
        }
        const std::size_t opening = declaration.find_first_of("\"'", found);
        const std::size_t closing = opening == std::string_view::npos
                                        ? opening
                                        : declaration.find(declaration[opening], opening + 1);
        if (closing == std::string_view::npos) {
            refuseAtByte(Code::badXML, start);
        }
        std::string encoding(declaration.substr(opening + 1, closing - opening - 1));
        std::ranges::transform(encoding, encoding.begin(), [](char c) {
            return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        });
        if (encoding != "UTF-8" && encoding != "US-ASCII" && encoding != "ASCII") {
            refuseAtByte(Code::unsupportedEncoding, start + opening + 1);
        }
    }

    Tag readTag() {
        skipMisc();
        if (at_ == text_.size()) {
            refuse(Code::truncated);
        }
        Tag tag{Tag::Kind::opening, {}, at_};
        if (text_[at_] != '<') {
            refuse(Code::badXML);
        }
        ++at_;
        if (startsWith("/")) {
            tag.kind = Tag::Kind::closing;
            ++at_;
        }
        const std::size_t nameStart = at_;
        while (at_ < text_.size() && text_[at_] >= 'a' && text_[at_] <= 'z') {
            ++at_;
        }
        tag.name = text_.substr(nameStart, at_ - nameStart);
        skipAttributes();
        if (startsWith("/")) {
            if (tag.kind == Tag::Kind::closing) {
                refuse(Code::badXML);
            }
            tag.kind = Tag::Kind::empty;
            ++at_;
        }
        if (at_ == text_.size()) {
            refuse(Code::truncated);
        }
        if (!startsWith(">") || tag.name.empty()) {
            refuseAtByte(Code::badXML, tag.start);
        }
        ++at_;
        return tag;
    }

    void skipAttributes() {
        while (at_ < text_.size() && text_[at_] != '>' && text_[at_] != '/' && text_[at_] != '<') {
            const char c = text_[at_++];
            if (c == '"' || c == '\'') {
                skipPast(std::string_view(&c, 1));
            }
        }
    }

    static void checkName(const Tag& closing, std::string_view name) {
        if (closing.kind != Tag::Kind::closing || closing.name != name) {
            refuseAtByte(Code::badNesting, closing.start);
        }
    }

    void readClosing(std::string_view name) { checkName(readTag(), name); }

    // The characters up to the closing tag of `tag`, which is read too. Borrowed from the text or
    // from `scratch_`.
    std::string_view readContent(const Tag& tag) {
        if (tag.kind == Tag::Kind::empty) {
            return {};
        }
        scratch_.clear();
        const std::size_t start = at_;
        bool isPlain = true;
        std::size_t runStart = at_;
        while (true) {
            at_ = text_.find_first_of("<&", at_);
            if (at_ == std::string_view::npos) {
                refuseAtByte(Code::truncated, text_.size());
            }
            const bool isEntity = text_[at_] == '&';
            const bool isRaw = startsWith("<![CDATA[");
            if (!isEntity && !isRaw) {
                break;
            }
            isPlain = false;
            scratch_ += text_.substr(runStart, at_ - runStart);
            if (isEntity) {
                readEntity();
            } else {
                at_ += 9;
                const std::size_t rawStart = at_;
                skipPast("]]>");
                scratch_ += text_.substr(rawStart, at_ - 3 - rawStart);
            }
            runStart = at_;
        }
        std::string_view content = text_.substr(start, at_ - start);
        if (!isPlain) {
            scratch_ += text_.substr(runStart, at_ - runStart);
            content = scratch_;
        }
        readClosing(tag.name);
        return content;
    }

    void readEntity() {
        constexpr std::size_t kLongestEntity = 10;
        const std::size_t end = text_.substr(at_, kLongestEntity).find(';');
        if (end == std::string_view::npos) {
            refuse(Code::badXML);
        }
        std::string_view name = text_.substr(at_ + 1, end - 1);
        if (name == "amp") {
            scratch_ += '&';
        } else if (name == "lt") {
            scratch_ += '<';
        } else if (name == "gt") {
            scratch_ += '>';
        } else if (name == "quot") {
            scratch_ += '"';
        } else if (name == "apos") {
            scratch_ += '\'';
        } else if (name.starts_with("#")) {
            name.remove_prefix(1);
            const auto scalar = name.starts_with("x") ? number<std::uint32_t>(name.substr(1), 16)
                                                      : number<std::uint32_t>(name, 10);
            if (!scalar || *scalar == 0 || *scalar > 0x10FFFF ||
                (*scalar >= 0xD800 && *scalar < 0xE000)) {
                refuse(Code::badXML);
            }
            appendUTF8(scratch_, *scalar);
        } else {
            refuse(Code::badXML);
        }
        at_ += end + 1;
    }

    void push(BinaryPropertyListWriter::Ref ref) {
        if (writer_.valueCount() > limits::kPropertyListValues) {
            refuse(Code::tooManyObjects);
        }
        values_.push_back(static_cast<Ref>(ref));
    }

    // Writes the value and puts it on `values_`.
    void readValue(const Tag& tag) {
        if (tag.kind == Tag::Kind::closing) {
            refuseAtByte(Code::badNesting, tag.start);
        }
        if (tag.name == "dict") {
            readDictionary(tag);
        } else if (tag.name == "array") {
            readArray(tag);
        } else if (tag.name == "string") {
            push(writer_.text(readText(tag)));
        } else if (tag.name == "integer") {
            push(writer_.integer(readInteger(tag)));
        } else if (tag.name == "real") {
            push(writer_.real(readReal(tag)));
        } else if (tag.name == "true" || tag.name == "false") {
            if (!readContent(tag).empty()) {
                refuseAtByte(Code::badNesting, tag.start);
            }
            push(writer_.boolean(tag.name == "true"));
        } else if (tag.name == "date") {
            push(writer_.date(readDate(tag)));
        } else if (tag.name == "data") {
            push(writer_.data(readData(tag)));
        } else if (tag.name == "key" || tag.name == "plist") {
            refuseAtByte(Code::badNesting, tag.start);
        } else {
            refuseAtByte(Code::unknownElement, tag.start);
        }
    }

    std::string_view readText(const Tag& tag) {
        const std::string_view text = readContent(tag);
        if (!isValidUTF8(text)) {
            refuseAtByte(Code::badText, tag.start);
        }
        if (text.size() > limits::kStringLength) {
            refuseAtByte(Code::stringTooLong, tag.start);
        }
        return text;
    }

    void enter(const Tag& tag) {
        if (++depth_ > limits::kDepth) {
            refuseAtByte(Code::tooDeep, tag.start);
        }
    }

    void readArray(const Tag& tag) {
        const std::size_t first = values_.size();
        enter(tag);
        if (tag.kind == Tag::Kind::opening) {
            Tag child = readTag();
            for (; child.kind != Tag::Kind::closing; child = readTag()) {
                readValue(child);
            }
            checkName(child, tag.name);
        }
        --depth_;
        const auto array = writer_.array(values_.size() - first);
        for (std::size_t i = 0; i < array.count; ++i) {
            writer_.setElement(array, i, values_[first + i]);
        }
        values_.resize(first);
        push(array.ref);
    }

    void readDictionary(const Tag& tag) {
        const std::size_t first = values_.size();
        std::optional<std::uint64_t> uid;
        enter(tag);
        if (tag.kind == Tag::Kind::opening) {
            Tag key = readTag();
            for (; key.kind != Tag::Kind::closing; key = readTag()) {
                if (key.name != "key") {
                    refuseAtByte(Code::keyNotString, key.start);
                }
                const std::string_view name = readText(key);
                const bool mayBeUID = name == kUIDKey && values_.size() == first;
                push(writer_.text(name));
                const Tag value = readTag();
                readValue(value);
                uid.reset();
                if (mayBeUID && value.name == "integer" && lastInteger_ >= 0) {
                    uid = static_cast<std::uint64_t>(lastInteger_);
                }
            }
            checkName(key, tag.name);
        }
        --depth_;
        if (uid && values_.size() == first + 2) {
            writer_.dropLast();
            writer_.dropLast();
            values_.resize(first);
            push(writer_.uid(*uid));
            return;
        }
        const auto dictionary = writer_.dictionary((values_.size() - first) / 2);
        for (std::size_t i = 0; i < dictionary.count; ++i) {
            writer_.setPair(dictionary, i, values_[first + 2 * i], values_[first + 2 * i + 1]);
        }
        values_.resize(first);
        push(dictionary.ref);
    }

    std::int64_t readInteger(const Tag& tag) {
        std::string_view text = trimmed(readContent(tag));
        const bool isNegative = text.starts_with("-");
        if (isNegative || text.starts_with("+")) {
            text.remove_prefix(1);
        }
        const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
        const auto value = isHexadecimal ? number<std::uint64_t>(text.substr(2), 16)
                                         : number<std::uint64_t>(text, 10);
        constexpr std::uint64_t kLargest = std::numeric_limits<std::int64_t>::max();
        if (!value || *value > kLargest + (isNegative ? 1 : 0)) {
            refuseAtByte(Code::badNumber, tag.start);
        }
        lastInteger_ = static_cast<std::int64_t>(isNegative ? 0 - *value : *value);
        return lastInteger_;
    }

    double readReal(const Tag& tag) {
        std::string_view text = trimmed(readContent(tag));
        if (text.starts_with("+")) {
            text.remove_prefix(1);
        }
        const auto value = number<double>(text);
        if (!value) {
            refuseAtByte(Code::badNumber, tag.start);
        }
        return *value;
    }

    // "2001-01-01T00:00:00Z" and nothing else.
    double readDate(const Tag& tag) {
        using namespace std::chrono;
        const std::string_view text = trimmed(readContent(tag));
        constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
        const bool hasForm =
            text.size() == kForm.size() && std::ranges::equal(text, kForm, [](char c, char form) {
                return form == '0' ? c >= '0' && c <= '9' : c == form;
            });
        if (!hasForm) {
            refuseAtByte(Code::badDate, tag.start);
        }
        const auto part = [&](std::size_t from, std::size_t length) {
            return number<int>(text.substr(from, length), 10).value_or(0);
        };
        const year_month_day day{year(part(0, 4)), month(static_cast<unsigned>(part(5, 2))),
                                 std::chrono::day(static_cast<unsigned>(part(8, 2)))};
        const int hour = part(11, 2);
        const int minute = part(14, 2);
        const int second = part(17, 2);
        if (!day.ok() || hour > 23 || minute > 59 || second > 59) {
            refuseAtByte(Code::badDate, tag.start);
        }
        const auto days = sys_days(day) - sys_days(year(2001) / 1 / 1);
        return static_cast<double>(seconds(days).count() + hour * 3600 + minute * 60 + second);
    }

    Bytes readData(const Tag& tag) {
        const std::string_view text = readContent(tag);
        Bytes bytes;
        bytes.reserve(text.size() / 4 * 3 + 3);
        std::uint32_t bits = 0;
        std::size_t digits = 0;
        std::size_t padding = 0;
        for (const char c : text) {
            if (isBlank(c)) {
                continue;
            }
            if (c == '=') {
                ++padding;
                continue;
            }
            const int digit = digitOfBase64(c);
            if (digit < 0 || padding > 0) {
                refuseAtByte(Code::badBase64, tag.start);
            }
            bits = (bits << 6U) | static_cast<std::uint32_t>(digit);
            if (++digits % 4 != 1) {
                const std::size_t left = 2 * (3 - (digits - 1) % 4);
                bytes.push_back(static_cast<std::uint8_t>((bits >> left) & 0xFFU));
            }
        }
        if ((digits + padding) % 4 != 0 || padding > 2) {
            refuseAtByte(Code::badBase64, tag.start);
        }
        return bytes;
    }

    static constexpr int digitOfBase64(char c) {
        if (c >= 'A' && c <= 'Z') {
            return c - 'A';
        }
        if (c >= 'a' && c <= 'z') {
            return c - 'a' + 26;
        }
        if (c >= '0' && c <= '9') {
            return c - '0' + 52;
        }
        return c == '+' ? 62 : c == '/' ? 63 : -1;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t depth_ = 0;
    BinaryPropertyListWriter writer_;
    // Values that their container does not have yet; of a dictionary keys and values in turn.
    std::vector<Ref> values_;
    std::string scratch_;
    std::int64_t lastInteger_ = 0;
};

} // namespace

bool looksLikeXML(ByteView bytes) {
    std::string_view text = textOf(bytes);
    if (text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && text[first] == '<';
}

Bytes binaryPropertyListFromXML(ByteView bytes) {
    if (bytes.size() > limits::kArchiveSize) {
        refuseAtByte(Code::tooLarge, limits::kArchiveSize);
    }
    return Parser(textOf(bytes)).parse();
}

} // namespace corvid
