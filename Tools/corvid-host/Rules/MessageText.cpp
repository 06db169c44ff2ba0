#include "Tools/corvid-host/Rules/MessageText.h"

#include "Core/Archive/ArchiveError.h"
#include "Core/Archive/KeyedArchive.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Support/ArchiveNotation.h"

namespace corvid {

namespace {

// What an honest message says: it has a byte for each value, and each text once, of which data
// takes two digits a byte.
NotationLimits limitsOf(std::size_t messageBytes) {
    constexpr std::size_t kAllowance = 10'000;
    return {messageBytes + kAllowance, 4 * messageBytes + kAllowance};
}

} // namespace

std::string messageLine(std::int32_t messageID, std::optional<ByteView> data) {
    Notation line{{"id", messageID}};
    if (const auto message = CVMAMessageID::fromRawValue(messageID)) {
        line["message"] = message->caseName();
    }
    ArchiveError error;
    std::string problem = "no data";
    std::optional<Notation> payload;
    if (data) {
        const auto root = unarchivedObject(*data, &error);
        problem = root ? "" : error.message();
        payload = root ? notationOf(*root, problem, limitsOf(data->size())) : std::nullopt;
    }
    if (payload) {
        line["payload"] = *std::move(payload);
    } else {
        line["unreadableBytes"] = data ? data->size() : 0;
        line["problem"] = problem;
    }
    return line.dump(-1, ' ', false, Notation::error_handler_t::replace);
}

} // namespace corvid
