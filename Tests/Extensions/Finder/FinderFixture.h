#pragma once

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"
#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMAFinderSync.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Platform/Fake/FakeFinderSyncController.h"
#include "Platform/Fake/FakePlatform.h"
#include "Tests/Support/RecordingReportingService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvid {

inline constexpr const char* kHostPort = "com.corvid.desktop.widget";

/// The controller's world, all of it fake, with one list of everything that happens in it: log
/// lines with their levels, and every call to the file manager and to the message ports. In it
/// lives a host that answers as the test says.
class FinderFixture : public testing::Test {
protected:
    FinderFixture() {
        // Queues have threads, and a process that dies in a test must not inherit their locks.
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        FIFinderSyncController::setDefaultController(&finder_);
        addPeer(kHostPort);
    }
    ~FinderFixture() override { FIFinderSyncController::setDefaultController(nullptr); }

    CallLog& calls() { return platform_.calls; }
    FakeMessagePortService& ports() { return platform_.messagePorts; }
    FakeFinderSyncController& finder() { return finder_; }

    /// What has happened since the last call, and forgets it.
    std::vector<std::string> happened() {
        std::vector<std::string> lines = calls().lines();
        calls().clear();
        return lines;
    }

    /// Somebody serves `name` from now on, or no longer.
    void addPeer(const std::string& name) {
        ports().serve(name, [this, name](std::int32_t messageID, std::optional<ByteView>) {
            const auto ofPeer = repliesOf_.find(name);
            return FakeMessagePortService::Answer{
                statuses_[name], ofPeer != repliesOf_.end() ? ofPeer->second : replies_[messageID]};
        });
    }
    void removePeer(const std::string& name) { ports().stopServing(name); }

    /// Peers answer every `messageID` with this from now on.
    void setReply(CVMAMessageID messageID, Bytes reply) {
        replies_[messageID.rawValue()] = std::move(reply);
    }
    void hostAnswers(CVMAMessageID messageID, const Value& reply) {
        setReply(messageID, archivedData(reply));
    }
    /// The peer `name` answers everything with this.
    void setReplyOf(const std::string& name, Bytes reply) { repliesOf_[name] = std::move(reply); }

    /// What becomes of every message to `name`.
    void setStatus(const std::string& name, SendStatus status) { statuses_[name] = status; }

    /// The payload of the last message that was sent with `messageID`, decoded.
    Value lastPayload(CVMAMessageID messageID) {
        const auto sent = ports().sent();
        const auto last = std::find_if(sent.rbegin(), sent.rend(), [&](const auto& message) {
            return message.messageID == messageID.rawValue();
        });
        const std::optional<Value> root =
            last != sent.rend() ? unarchivedObject(last->data) : std::nullopt;
        EXPECT_TRUE(root) << "nothing that decodes was sent with " << messageID.caseName();
        return root.value_or(Value());
    }

    /// What that payload holds under `key`; null, and a failure of the test, when it has none.
    Value lastField(CVMAMessageID messageID, std::string_view key) {
        const Value payload = lastPayload(messageID);
        const Dictionary* const fields = payload.asDictionary();
        const Value* const found = fields != nullptr ? fields->find(key) : nullptr;
        EXPECT_NE(found, nullptr) << key;
        return found != nullptr ? *found : Value();
    }
    /// The same, for a truth value.
    std::optional<bool> lastFlag(CVMAMessageID messageID, std::string_view key) {
        const Value field = lastField(messageID, key);
        const bool* const flag = field.asBoolean();
        return flag != nullptr ? std::optional(*flag) : std::nullopt;
    }
    /// The same, for a text.
    std::optional<std::string> lastText(CVMAMessageID messageID, std::string_view key) {
        const Value field = lastField(messageID, key);
        const std::string* const text = field.asString();
        return text != nullptr ? std::optional(*text) : std::nullopt;
    }
    /// The same, for a URL.
    std::optional<URL> lastURL(CVMAMessageID messageID, std::string_view key) {
        const Value field = lastField(messageID, key);
        const URL* const url = field.asURL();
        return url != nullptr ? std::optional(*url) : std::nullopt;
    }
    /// The same, for a list of URLs; an element that is none is a failure of the test.
    std::vector<URL> lastURLs(CVMAMessageID messageID, std::string_view key) {
        const Value field = lastField(messageID, key);
        const Array* const array = field.asArray();
        EXPECT_NE(array, nullptr) << key;
        std::vector<URL> urls;
        for (const Value& element : array != nullptr ? array->elements : std::vector<Value>()) {
            EXPECT_NE(element.asURL(), nullptr) << key;
            if (const URL* const url = element.asURL()) {
                urls.push_back(*url);
            }
        }
        return urls;
    }

    /// Also writes log lines to standard error, each with "|" at its end, for the tests in which
    /// the process dies.
    void printLogLines() {
        class PrintingService final : public LoggingService {
            void log(std::string_view message, int /*level*/) override {
                std::fprintf(stderr, "%.*s|\n", static_cast<int>(message.size()), message.data());
            }
        };
        reporting_.addLoggingService(std::make_shared<PrintingService>());
    }

    static URL item(std::string_view nameInVolume) {
        return *URL::fileURL("/Volumes/Corvid/" + std::string(nameInVolume));
    }

    FakePlatform platform_;
    std::map<std::string, SendStatus> statuses_;
    std::map<std::int32_t, std::optional<Bytes>> replies_;
    std::map<std::string, Bytes> repliesOf_;
    FakeFinderSyncController finder_{platform_.calls};
    RecordingReportingService reporting_{&platform_.calls};
};

/// A menu entry as a host makes it.
inline std::shared_ptr<MenuItem> entry(const std::string& title, std::int64_t tag,
                                       const char* action) {
    auto item = std::make_shared<MenuItem>();
    item->title = title;
    item->tag = tag;
    if (action != nullptr) {
        item->action = Selector{action};
    }
    return item;
}

/// The same with a submenu.
inline std::shared_ptr<MenuItem> entry(const std::string& title, std::int64_t tag,
                                       const char* action,
                                       std::vector<std::shared_ptr<MenuItem>> subItems) {
    auto item = entry(title, tag, action);
    item->submenu = std::make_shared<Menu>();
    item->submenu->title = title;
    item->submenu->items = std::move(subItems);
    return item;
}

inline Value menuReply(const std::vector<std::shared_ptr<MenuItem>>& items) {
    std::vector<Value> elements;
    for (const auto& item : items) {
        elements.push_back(Value::menuItem(item));
    }
    return Value::array(std::move(elements));
}

} // namespace corvid
