#include "Extensions/Finder/LogText.h"

#include <string_view>

namespace corvid {

namespace {

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\0':
            out += "\\0";
            break;
        default:
            out += c;
        }
    }
    out += '"';
}

template <class T, class Append>
std::string listText(const std::vector<T>& elements, Append append) {
    std::string out = "[";
    for (const T& element : elements) {
        if (out.size() > 1) {
            out += ", ";
        }
        append(out, element);
    }
    out += ']';
    return out;
}

} // namespace

std::string logText(const URL& url) {
    return std::string(url.absoluteString());
}

std::string logText(const std::vector<URL>& urls) {
    return listText(urls, [](std::string& out, const URL& url) { out += url.absoluteString(); });
}

std::string logText(const std::vector<std::string>& texts) {
    return listText(texts, appendQuoted);
}

} // namespace corvid
