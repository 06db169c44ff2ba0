#pragma once

#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/Menu.h"
#include "Core/Base/VolumeMapping.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixMessagePortService.h"

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvid {

/// The messages of an extension, without one: it opens a port, asks and tells the host, and keeps
/// what is pushed. Items are named by their paths on the volume, such as "/a.txt".
class ExtensionDouble {
public:
    explicit ExtensionDouble(const std::string& name)
        : name_("ZQ7X2KD4W9.group.corvid.desktop.widget.findesync-" + name) {
        port_ = ports_.createLocal(
            name_, [this](MessagePort&, std::int32_t id, std::optional<ByteView> data) {
                receive(id, data);
                return std::nullopt;
            });
        ports_.setDispatchQueue(*port_, dispatch_.serialQueue("pushes"));
    }
    ~ExtensionDouble() { close(); }
    ExtensionDouble(const ExtensionDouble&) = delete;
    ExtensionDouble& operator=(const ExtensionDouble&) = delete;

    /// Frees the port without taking leave, as a crash does.
    void close() {
        if (port_) {
            ports_.invalidate(*port_);
            port_ = nullptr;
        }
    }

    const std::string& name() const { return name_; }

    bool registerPort(bool isOpen = true) { return registerPort(name_, isOpen); }
    /// Any name.
    bool registerPort(const std::string& name, bool isOpen) {
        return tell(5, {{"portId", Value::string(name)}, {"register", Value::boolean(isOpen)}});
    }
    /// Any message; nothing when there was no answer.
    std::optional<Bytes> sendBytes(std::int32_t id, const Bytes& bytes, bool wantsReply) {
        return sendArchive(id, bytes, wantsReply ? std::optional(kReplyMode) : std::nullopt);
    }
    /// True once the host has taken it in: it answers in the order in which it is told.
    bool show(const std::string& item, bool isShown = true) {
        return tell(6, {{"path", url(item)}, {"add", Value::boolean(isShown)}}) &&
               badge(item) != kNoAnswer;
    }
    static constexpr const char* kNoAnswer = "(no answer)";
    /// kNoAnswer when there was none.
    std::string badge(const std::string& item) {
        const auto reply = ask(4, {{"url", url(item)}});
        return reply && reply->asString() ? *reply->asString() : kNoAnswer;
    }
    /// Nothing when there was no answer.
    std::optional<std::vector<std::shared_ptr<MenuItem>>>
    menu(const std::vector<std::string>& items) {
        const auto reply =
            ask(1, {{"paths", urls(items)}, {"operatingOnParent", Value::boolean(false)}});
        if (!reply || !reply->asArray()) {
            return std::nullopt;
        }
        std::vector<std::shared_ptr<MenuItem>> menu;
        for (const Value& item : reply->asArray()->elements) {
            menu.push_back(item.asMenuItem());
        }
        return menu;
    }
    bool click(const std::shared_ptr<MenuItem>& item, const std::vector<std::string>& items) {
        return tell(2, {{"action", Value::menuItem(item)}, {"path", urls(items)}});
    }

    /// Waits until the item was last pushed this badge; only a test that fails waits in vain.
    void waitForPush(const std::string& item, const std::string& badge) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] {
            const auto found = pushed_.find(item);
            return found != pushed_.end() && found->second == badge;
        });
    }
    std::size_t pushCount() const {
        const std::lock_guard lock(mutex_);
        return pushCount_;
    }

    /// How the last send went.
    SendStatus status() const { return status_; }

private:
    static Value url(const std::string& item) {
        return Value::url(URL::fileURL(std::string(kVolumeRoot) + item).value());
    }
    static Value urls(const std::vector<std::string>& items) {
        std::vector<Value> values;
        for (const std::string& item : items) {
            values.push_back(url(item));
        }
        return Value::array(std::move(values));
    }

    static constexpr std::string_view kReplyMode = "com.corvid.desktop.widget.replymode";

    std::optional<Bytes> send(std::int32_t id, std::vector<std::pair<std::string, Value>> payload,
                              std::optional<std::string_view> replyMode) {
        return sendArchive(id, archivedData(Value::dictionary(std::move(payload))), replyMode);
    }
    std::optional<Bytes> sendArchive(std::int32_t id, const Bytes& archive,
                                     std::optional<std::string_view> replyMode) {
        const MessagePortRef host = ports_.createRemote("com.corvid.desktop.widget");
        status_ = SendStatus::isInvalid;
        std::optional<Bytes> reply;
        if (host) {
            constexpr std::chrono::seconds kTimeout(1);
            status_ = ports_.sendRequest(*host, id, archive, kTimeout, kTimeout, replyMode, &reply);
        }
        return reply;
    }
    bool tell(std::int32_t id, std::vector<std::pair<std::string, Value>> payload) {
        send(id, std::move(payload), std::nullopt);
        return status_ == SendStatus::success;
    }
    std::optional<Value> ask(std::int32_t id, std::vector<std::pair<std::string, Value>> payload) {
        const auto reply = send(id, std::move(payload), kReplyMode);
        return reply ? unarchivedObject(*reply) : std::nullopt;
    }

    void receive(std::int32_t id, std::optional<ByteView> data) {
        const auto root = data ? unarchivedObject(*data) : std::nullopt;
        const Dictionary* payload = root ? root->asDictionary() : nullptr;
        if (id != 3 || !payload) {
            return;
        }
        const std::lock_guard lock(mutex_);
        ++pushCount_;
        pushed_[payload->find("path")->asURL()->path().substr(kVolumeRoot.size())] =
            *payload->find("badgeID")->asString();
        changed_.notify_all();
    }

    const std::string name_;
    UnixDispatch dispatch_;
    UnixMessagePortService ports_;
    MessagePortRef port_;
    SendStatus status_ = SendStatus::success;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, std::string> pushed_;
    std::size_t pushCount_ = 0;
};

} // namespace corvid
