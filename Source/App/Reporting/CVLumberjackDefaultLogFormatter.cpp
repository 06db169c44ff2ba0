#include "App/Reporting/CVLumberjackDefaultLogFormatter.h"

#include "Core/Base/PrintableText.h"
#include "Platform/Interfaces/Platform.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace corvid {

namespace {

/// The names of the levels, padded so that messages begin in one column.
std::string_view levelName(std::int32_t flag) {
    switch (flag) {
    case 1:
        return " error   ";
    case 2:
        return " warn    ";
    case 4:
        return " info    ";
    case 8:
        return " debug   ";
    case 16:
        return " verbose ";
    default:
        return " other   ";
    }
}

} // namespace

CVLumberjackDefaultLogFormatter::CVLumberjackDefaultLogFormatter()
    : process_(std::to_string(platform().processInfo.processIdentifier()) + ":") {}

std::string_view
CVLumberjackDefaultLogFormatter::prefix(std::chrono::system_clock::time_point moment,
                                        std::uint64_t thread, std::int32_t flag) {
    const auto second = std::chrono::floor<std::chrono::seconds>(moment);
    if (second != second_) {
        renewSecond(second);
    }
    const auto milliseconds = static_cast<unsigned>(
        std::chrono::duration_cast<std::chrono::milliseconds>(moment - second).count());
    std::array<char, 20> threadDigits{};
    const auto threadEnd =
        std::to_chars(threadDigits.data(), threadDigits.data() + threadDigits.size(), thread).ptr;

    prefix_ = date_;
    prefix_ += static_cast<char>('0' + milliseconds / 100);
    prefix_ += static_cast<char>('0' + milliseconds / 10 % 10);
    prefix_ += static_cast<char>('0' + milliseconds % 10);
    prefix_ += offset_;
    prefix_ += process_;
    prefix_.append(threadDigits.data(), threadEnd);
    prefix_ += levelName(flag);
    return prefix_;
}

void CVLumberjackDefaultLogFormatter::renewSecond(std::chrono::sys_seconds second) {
    // Asking for the local time takes longer than all the rest of a line.
    const LocalTime local = platform().clock.localTime(second);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.",
                  local.fields.tm_year + 1900, local.fields.tm_mon + 1, local.fields.tm_mday,
                  local.fields.tm_hour, local.fields.tm_min, local.fields.tm_sec);
    date_ = text.data();
    const int minutes = std::abs(local.minutesEastOfUTC);
    std::snprintf(text.data(), text.size(), " %c%02d:%02d ", local.minutesEastOfUTC < 0 ? '-' : '+',
                  minutes / 60, minutes % 60);
    offset_ = text.data();
    second_ = second;
}

void CVLumberjackDefaultLogFormatter::appendMessage(std::string& out, std::string_view message) {
    if (message.size() <= kMaximumMessageSize) {
        appendPrintableText(out, message);
        return;
    }
    std::size_t end = kMaximumMessageSize;
    while (end > kMaximumMessageSize - 4 &&
           (static_cast<unsigned char>(message[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    appendPrintableText(out, message.substr(0, end));
    out += " [" + std::to_string(message.size() - end) + " more bytes]";
}

} // namespace corvid
