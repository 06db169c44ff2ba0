#pragma once

#include "Core/Base/Mutex.h"
#include "Extensions/FileManagers/Link/SendMonitor.h"
#include "Platform/Fake/CallLog.h"
#include "Platform/Fake/FakeClock.h"
#include "Platform/Fake/FakeMessagePortService.h"
#include "Platform/Interfaces/FIFinderSync.h"
#include "Platform/Interfaces/FIFinderSyncController.h"

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvid::link {

/// What the test decides about the extension and its host, and what it sees of them. Any thread.
class Script {
public:
    /// What the host says when it is asked for anything.
    enum class Host { answers, absent, fails };

    Script() {
        ports_.serve("host", [this](std::int32_t, std::optional<ByteView>) {
            FakeMessagePortService::Answer answer;
            const MutexLock lock(mutex_);
            answer.status = host_ == Host::fails ? SendStatus::receiveTimeout : SendStatus::success;
            return answer;
        });
    }

    /// One line a callback of the extension, "teardown" last.
    CallLog calls;
    /// Where all is said in time; the badge of an item is that of its name, else "synced".
    std::map<std::string, std::string> badges;
    std::shared_ptr<Menu> menu = std::make_shared<Menu>();

    void setHost(Host host) {
        const MutexLock lock(mutex_);
        host_ = host;
    }
    /// A callback whose line begins with `call` waits until release(); waitUntilHeld() returns
    /// when it has come.
    void hold(std::string call) {
        const MutexLock lock(mutex_);
        held_ = std::move(call);
    }
    void waitUntilHeld() {
        MutexLock lock(mutex_);
        while (!isHolding_) {
            lock.wait(changed_);
        }
    }
    void release() {
        const MutexLock lock(mutex_);
        held_.reset();
        changed_.notify_all();
    }

    /// Called by the extension: notes the callback and sends a message to the host.
    void callback(const std::string& line) {
        calls.add(line);
        MutexLock lock(mutex_);
        while (held_ && line.starts_with(*held_)) {
            isHolding_ = true;
            changed_.notify_all();
            lock.wait(changed_);
        }
        isHolding_ = false;
        const bool isAbsent = host_ == Host::absent;
        lock.unlock();
        if (const auto port = monitor.createRemote(isAbsent ? "nobody" : "host")) {
            monitor.sendRequest(*port, 4, {}, {}, {}, "mode", nullptr);
        }
    }

private:
    Mutex mutex_;
    std::condition_variable changed_;
    Host host_ = Host::answers;
    std::optional<std::string> held_;
    bool isHolding_ = false;
    CallLog portCalls_;
    FakeMessagePortService ports_{portCalls_};
    FakeClock clock_;

public:
    SendMonitor monitor{ports_, clock_};
};

/// An extension that does what the script says.
class ScriptedExtension : public FIFinderSync,
                          public std::enable_shared_from_this<ScriptedExtension> {
public:
    ScriptedExtension(Script& script, FIFinderSyncController& finder)
        : script_(script), finder_(finder) {
        finder_.setDirectoryURLs({*URL::fileURL("/Volumes/Corvid")});
        for (const char* badge : {"synced", "cloud", "error", "inProgress"}) {
            finder_.setBadgeImage(nullptr, std::string("Label of ") + badge, badge);
        }
    }
    ~ScriptedExtension() override { script_.calls.add("teardown"); }

    void beginObservingDirectory(const URL& url) override { note("begin", url); }
    void endObservingDirectory(const URL& url) override { note("end", url); }

    void requestBadgeIdentifier(const URL& url) override {
        note("badge", url);
        const std::string name = url.path().substr(url.path().rfind('/') + 1);
        const auto badge = script_.badges.find(name);
        const std::string text = badge != script_.badges.end() ? badge->second : "synced";
        if (text != "none") {
            finder_.setBadgeIdentifier(text, url);
        }
    }

    std::shared_ptr<Menu> menu(FIMenuKind kind) override {
        script_.callback("menu " + std::to_string(static_cast<int>(kind)) + selection());
        for (const auto& item : script_.menu->items) {
            rewire(*item);
            if (item->submenu != nullptr) {
                for (const auto& inner : item->submenu->items) {
                    rewire(*inner);
                }
            }
        }
        return script_.menu;
    }

    void performAction(const std::shared_ptr<Object>& sender) override {
        const auto item = std::dynamic_pointer_cast<MenuItem>(sender);
        item->action.reset();
        script_.callback("click " + item->title + selection());
    }

private:
    void note(const std::string& call, const URL& url) {
        script_.callback(call + " " + std::string(url.absoluteString()));
    }
    void rewire(MenuItem& item) {
        item.target = weak_from_this();
        item.action = Selector{"performAction:"};
    }
    std::string selection() {
        const auto target = finder_.targetedURL();
        const auto items = finder_.selectedItemURLs();
        std::string text = " in " + (target ? target->path() : "nothing") + " on";
        if (items) {
            for (const URL& item : *items) {
                text.append(" ").append(item.absoluteString().substr(7));
            }
        }
        return text;
    }

    Script& script_;
    FIFinderSyncController& finder_;
};

} // namespace corvid::link
