#include "Tools/corvid-host/Rules/Rules.h"

#include "Core/Base/UTF8.h"
#include "Extensions/Finder/CVMABadgeID.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace corvid {

namespace {

struct Word {
    std::string text;
    std::size_t column = 0;
    bool isQuoted = false;
};

constexpr std::chrono::hours kLongestTime(1);

} // namespace

/// Reads one line at a time; a mistake is thrown to parse().
class Rules::Parser {
public:
    explicit Parser(Rules& rules) : rules_(rules) {}

    void readLine(std::string_view line, std::size_t number) {
        lineNumber_ = number;
        lineLength_ = line.size();
        split(line);
        next_ = 0;
        if (words_.empty()) {
            return;
        }
        const Word& rule = take("a rule");
        if (rule.text == "badge") {
            readBadge();
        } else if (rule.text == "menu") {
            readMenu();
        } else if (rule.text == "on") {
            readOn();
        } else if (rule.text == "fault") {
            readFault();
        } else {
            fail(rule, fmt::format("\"{}\" is no rule; a line begins with badge, menu, on, fault, "
                                   "or \"#\" for a comment",
                                   rule.text));
        }
        if (next_ < words_.size()) {
            fail(words_[next_], fmt::format("\"{}\" is one word too many; put texts with blanks in "
                                            "double quotes",
                                            words_[next_].text));
        }
    }

private:
    [[noreturn]] void fail(const Word& word, std::string text) const {
        throw RulesError{lineNumber_, word.column, std::move(text)};
    }

    void split(std::string_view line) {
        words_.clear();
        std::size_t at = 0;
        while (true) {
            at = std::min(line.find_first_not_of(" \t\r", at), line.size());
            if (at == line.size() || line[at] == '#') {
                return;
            }
            Word word{"", at + 1, line[at] == '"'};
            if (word.isQuoted) {
                for (++at; at < line.size() && line[at] != '"'; ++at) {
                    if (line[at] == '\\' && at + 1 < line.size()) {
                        ++at;
                    }
                    word.text += line[at];
                }
                if (at == line.size()) {
                    fail(word, "the text has no end; close it with a double quote");
                }
                ++at;
            } else {
                const std::size_t end = std::min(line.find_first_of(" \t\r", at), line.size());
                word.text = line.substr(at, end - at);
                at = end;
            }
            words_.push_back(std::move(word));
        }
    }

    const Word& take(std::string_view what) {
        if (next_ == words_.size()) {
            fail({"", lineLength_ + 1}, fmt::format("the line ends before {}", what));
        }
        return words_[next_++];
    }

    bool takeIf(std::string_view text) {
        if (next_ == words_.size() || words_[next_].isQuoted || words_[next_].text != text) {
            return false;
        }
        ++next_;
        return true;
    }

    PathPattern takePattern() {
        const Word& word = take("a pattern of paths, such as *.txt");
        if (word.text.empty() || word.text.front() == '/') {
            fail(word,
                 fmt::format("\"{}\" is no pattern of paths below the folder; leave the \"/\" "
                             "at the start out",
                             word.text));
        }
        return PathPattern(word.text);
    }

    std::string takeBadge() {
        const Word& word = take("a badge, such as synced");
        if (!CVMABadgeID::fromRawValue(word.text)) {
            std::string names;
            for (const CVMABadgeID badge : CVMABadgeID::allValues()) {
                names += fmt::format("{}, ", badge.rawValue());
            }
            fail(word, fmt::format("\"{}\" is no badge; use one of {}none", word.text, names));
        }
        return word.text;
    }

    std::string takeTitle() {
        const Word& word = take("the title of an entry, in double quotes");
        if (word.text.empty() || !isValidUTF8(word.text)) {
            fail(word, "the title is empty or not UTF-8; write what people are to read");
        }
        return word.text;
    }

    std::chrono::milliseconds takeTime() {
        const Word& word = take("a time, such as 500ms or 2s");
        std::size_t number = 0;
        const char* end = word.text.data() + word.text.size();
        const auto [rest, error] = std::from_chars(word.text.data(), end, number);
        const std::string_view unit(rest, static_cast<std::size_t>(end - rest));
        const std::size_t factor = unit == "ms" ? 1 : unit == "s" ? 1000 : 0;
        const auto longest = std::chrono::milliseconds(kLongestTime).count();
        if (error != std::errc() || factor == 0 ||
            number > static_cast<std::size_t>(longest) / factor) {
            fail(word, fmt::format("\"{}\" is no time up to an hour; write it as 500ms or 2s",
                                   word.text));
        }
        return std::chrono::milliseconds(number * factor);
    }

    std::size_t takeCount() {
        const Word& word = take("a number");
        std::size_t number = 0;
        const char* end = word.text.data() + word.text.size();
        const auto [rest, error] = std::from_chars(word.text.data(), end, number);
        if (error != std::errc() || rest != end) {
            fail(word, fmt::format("\"{}\" is no number; write how many messages are answered "
                                   "before, such as 20",
                                   word.text));
        }
        return number;
    }

    void readBadge() {
        PathPattern pattern = takePattern();
        rules_.badges_.push_back({std::move(pattern), takeBadge()});
    }

    void readMenu() {
        MenuRule rule{takePattern(), "", {}};
        if (takeIf("-")) {
            rule.item.isSeparator = true;
            rules_.entries_.push_back(std::move(rule));
            return;
        }
        rule.item.title = takeTitle();
        if (takeIf(">")) {
            rule.submenu = std::exchange(rule.item.title, {});
            rule.item.title = takeTitle();
            if (next_ < words_.size() && words_[next_].text == ">") {
                fail(words_[next_], "this would be a submenu within a submenu, which file managers "
                                    "do not show; leave one level out");
            }
        }
        const Word& action = take("the name of an action, or disabled");
        if (action.text == "disabled") {
            rule.item.isEnabled = false;
        } else {
            rule.item.action = action.text;
            rule.item.isChecked = takeIf("checked");
            rule.item.isEnabled = !takeIf("disabled");
        }
        if (!isValidUTF8(action.text)) {
            fail(action, "the name of the action is not UTF-8; use plain letters");
        }
        rules_.entries_.push_back(std::move(rule));
    }

    void readOn() {
        const Word& action = take("the name of an action");
        rules_.badgesAfter_[action.text] = takeBadge();
    }

    void readFault() {
        const Word& name = take("badge, menu or any");
        FaultyMessage message = FaultyMessage::any;
        if (name.text == "badge") {
            message = FaultyMessage::badge;
        } else if (name.text == "menu") {
            message = FaultyMessage::menu;
        } else if (name.text != "any") {
            fail(name, fmt::format("\"{}\" is no message that is answered; use badge, menu or any",
                                   name.text));
        }
        PathPattern pattern = takePattern();
        rules_.faults_.push_back({message, std::move(pattern), takeFault()});
    }

    Fault takeFault() {
        struct Name {
            std::string_view text;
            Fault::Kind kind;
        };
        constexpr std::array<Name, 7> kNames{{{"delay", Fault::Kind::delay},
                                              {"hang", Fault::Kind::hang},
                                              {"no-reply", Fault::Kind::noReply},
                                              {"garbage", Fault::Kind::garbage},
                                              {"oversize", Fault::Kind::oversize},
                                              {"drip", Fault::Kind::drip},
                                              {"exit-after", Fault::Kind::exit}}};
        const Word& word = take("what goes wrong, such as hang");
        const auto* name = std::ranges::find(kNames, word.text, &Name::text);
        if (name == kNames.end()) {
            fail(word, fmt::format("\"{}\" is nothing that can go wrong; use delay TIME, hang, "
                                   "no-reply, garbage, oversize, drip TIME or exit-after NUMBER",
                                   word.text));
        }
        Fault fault{name->kind};
        if (fault.kind == Fault::Kind::delay || fault.kind == Fault::Kind::drip) {
            fault.time = takeTime();
        } else if (fault.kind == Fault::Kind::exit) {
            fault.count = takeCount();
        }
        return fault;
    }

    Rules& rules_;
    std::size_t lineNumber_ = 0;
    std::size_t lineLength_ = 0;
    std::vector<Word> words_;
    std::size_t next_ = 0;
};

std::variant<Rules, RulesError> Rules::parse(std::string_view text) {
    Rules rules;
    Parser parser(rules);
    try {
        for (std::size_t number = 1; !text.empty(); ++number) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            parser.readLine(text.substr(0, end), number);
            text.remove_prefix(std::min(end + 1, text.size()));
        }
    } catch (const RulesError& error) {
        return error;
    }
    return rules;
}

std::string Rules::badge(std::string_view path) const {
    for (const BadgeRule& rule : badges_) {
        if (rule.pattern.matches(path)) {
            return rule.badge;
        }
    }
    return "none";
}

std::vector<hostkit::MenuItem> Rules::menu(const std::vector<std::string>& paths) const {
    std::vector<hostkit::MenuItem> menu;
    for (const MenuRule& rule : entries_) {
        const bool matchesAll = std::ranges::all_of(
            paths, [&rule](const std::string& path) { return rule.pattern.matches(path); });
        if (!matchesAll) {
            continue;
        }
        if (rule.submenu.empty()) {
            menu.push_back(rule.item);
            continue;
        }
        auto parent = std::ranges::find_if(menu, [&rule](const hostkit::MenuItem& item) {
            return !item.submenu.empty() && item.title == rule.submenu;
        });
        if (parent == menu.end()) {
            hostkit::MenuItem item;
            item.title = rule.submenu;
            parent = menu.insert(menu.end(), item);
        }
        parent->submenu.push_back(rule.item);
    }
    return menu;
}

std::optional<std::string> Rules::badgeAfter(const std::string& action) const {
    const auto found = badgesAfter_.find(action);
    return found != badgesAfter_.end() ? std::optional(found->second) : std::nullopt;
}

const Fault* Rules::fault(FaultyMessage message, std::string_view path) const {
    for (const FaultRule& rule : faults_) {
        if ((rule.message == message || rule.message == FaultyMessage::any) &&
            rule.pattern.matches(path)) {
            return &rule.fault;
        }
    }
    return nullptr;
}

} // namespace corvid
