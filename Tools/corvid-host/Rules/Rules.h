#pragma once

#include "Tools/corvid-host/Rules/PathPattern.h"

#include <CorvidHostKit/MenuItem.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvid {

/// Something that goes wrong with the answer to one message.
struct Fault {
    enum class Kind {
        delay,    ///< answers after `time`
        hang,     ///< never answers, and keeps the connection
        noReply,  ///< takes the message, and closes without an answer
        garbage,  ///< answers with data that is no archive
        oversize, ///< announces more data than any message may have
        drip,     ///< answers a byte at a time, `time` apart
        exit,     ///< ends the process, once `count` such messages were answered
    };
    Kind kind = Kind::hang;
    std::chrono::milliseconds time{0};
    std::size_t count = 0;

    friend bool operator==(const Fault&, const Fault&) = default;
};

/// Which messages a fault befalls.
enum class FaultyMessage { badge, menu, any };

/// A mistake in a rules file. Lines and columns count from 1, columns in bytes.
struct RulesError {
    std::size_t line = 0;
    std::size_t column = 0;
    std::string text; ///< what is wrong, the value, and the remedy
};

/// What a made-up host says, read from a file of rules, one on each line (docs/hostkit.md).
class Rules {
public:
    /// Reads the text of a rules file, or says where the first mistake is.
    static std::variant<Rules, RulesError> parse(std::string_view text);

    /// The badge of the item `path`, relative to the folder: that of the first rule that matches,
    /// `none` without any.
    std::string badge(std::string_view path) const;

    /// The entries whose patterns match every one of `paths`.
    std::vector<hostkit::MenuItem> menu(const std::vector<std::string>& paths) const;

    /// The badge that the action gives to the items that it is performed on.
    std::optional<std::string> badgeAfter(const std::string& action) const;

    /// The first fault for a `message` about `path`. Never `FaultyMessage::any`.
    const Fault* fault(FaultyMessage message, std::string_view path) const;

private:
    struct BadgeRule {
        PathPattern pattern;
        std::string badge;
    };
    struct MenuRule {
        PathPattern pattern;
        std::string submenu; ///< its title; empty for an entry of the menu itself
        hostkit::MenuItem item;
    };
    struct FaultRule {
        FaultyMessage message;
        PathPattern pattern;
        Fault fault;
    };
    class Parser;

    std::vector<BadgeRule> badges_;
    std::vector<MenuRule> entries_;
    std::vector<FaultRule> faults_;
    std::map<std::string, std::string> badgesAfter_;
};

} // namespace corvid
