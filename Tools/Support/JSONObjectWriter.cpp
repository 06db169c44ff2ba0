#include "Support/JSONObjectWriter.h"

#include "Core/Base/UTF8.h"

#include <algorithm>

namespace corvid {

namespace {

constexpr bool isPlain(char c) {
    return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
}

void appendEscaped(std::string& out, char c) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
    case '"':
        out += "\\\"";
        return;
    case '\\':
        out += "\\\\";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        out += "\\u00";
        out += kDigits[byte >> 4U];
        out += kDigits[byte & 0x0FU];
    }
}

void appendString(std::string& out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        const auto plainEnd = std::find_if_not(text.begin(), text.end(), isPlain);
        out.append(text.begin(), plainEnd);
        text.remove_prefix(static_cast<std::size_t>(plainEnd - text.begin()));
        if (text.empty()) {
            break;
        }
        const DecodedScalar decoded = decodeUTF8(text);
        if (decoded.scalar < 0x80) {
            appendEscaped(out, text.front());
        } else {
            appendUTF8(out, decoded.scalar);
        }
        text.remove_prefix(decoded.length);
    }
    out += '"';
}

template <class T, class Append>
void appendList(std::string& out, const std::vector<T>& values, Append append) {
    out += '[';
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0) {
            out += ',';
        }
        append(values[i]);
    }
    out += ']';
}

} // namespace

JSONObjectWriter::JSONObjectWriter(std::string& out) : out_(out) {
    out_ += '{';
}

void JSONObjectWriter::add(std::string_view name, bool value) {
    addName(name);
    out_ += value ? "true" : "false";
}

void JSONObjectWriter::add(std::string_view name, std::size_t value) {
    addName(name);
    out_ += std::to_string(value);
}

void JSONObjectWriter::add(std::string_view name, std::string_view value) {
    addName(name);
    appendString(out_, value);
}

void JSONObjectWriter::add(std::string_view name, const std::vector<std::string_view>& values) {
    addName(name);
    appendList(out_, values, [this](std::string_view value) { appendString(out_, value); });
}

void JSONObjectWriter::add(std::string_view name, const std::vector<int>& values) {
    addName(name);
    appendList(out_, values, [this](int value) { out_ += std::to_string(value); });
}

void JSONObjectWriter::addNull(std::string_view name) {
    addName(name);
    out_ += "null";
}

JSONObjectWriter JSONObjectWriter::addObject(std::string_view name) {
    addName(name);
    return JSONObjectWriter(out_);
}

void JSONObjectWriter::addName(std::string_view name) {
    if (!isFirst_) {
        out_ += ',';
    }
    isFirst_ = false;
    out_.append("\"").append(name).append("\":");
}

} // namespace corvid
