#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Mutex.h"
#include "Core/Base/URL.h"
#include "Core/Base/VolumeMapping.h"
#include "HostKit/PushSenders.h"
#include "HostKit/ShownFolders.h"
#include "Platform/Interfaces/MessagePortService.h"
#include <CorvidHostKit/Application.h>
#include <CorvidHostKit/Host.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvid {
class DispatchQueue;
}

namespace corvid::hostkit {

/// The host's side of the conversation: serves the host's port, turns messages into calls of
/// Application, and pushes. Knows message ports by their interface only; which extensions there
/// are besides those that register, somebody else tells it. No message, and no exception of the
/// application, ends the process: the question stays unanswered, and it is a problem().
class HostService {
public:
    /// Everything given is not owned and outlives this object; `callbacks` is the queue on which
    /// all members of `application` are called.
    HostService(VolumeMapping mapping, Application& application, MessagePortService& ports,
                DispatchQueue& callbacks);

    /// close() was called, and the queue holds no block of this object any more.
    ~HostService();
    HostService(const HostService&) = delete;
    HostService& operator=(const HostService&) = delete;

    /// Takes the host's port. False when another process has it.
    bool open();

    /// Frees the port and drops the pushes; returns when no callback of the port and no thread of
    /// a push runs or will run. Not on the queue.
    void close();

    /// An extension's port is there, or no longer. On the queue; the second time does nothing. More
    /// than PushSenders::kMostLanes at a time are not pushed to, which is a problem().
    void addExtension(const std::string& portName);
    void removeExtension(const std::string& portName);

    /// Tells the application, whatever that throws. On the queue.
    void problem(const std::string& text);

    /// As the members of Host. Any thread.
    void push(const std::string& path, const std::string& badge, PushTo to);
    bool flush(std::chrono::steady_clock::time_point deadline);
    bool isShown(const std::string& path) const;

    const VolumeMapping& mapping() const { return mapping_; }

private:
    std::optional<Bytes> answer(std::int32_t messageID, std::optional<ByteView> data);
    std::optional<Bytes> answerUnguarded(std::int32_t messageID, std::optional<ByteView> data);
    std::optional<Bytes> answerBadge(const Dictionary& message);
    std::optional<Bytes> answerMenu(const Dictionary& message);
    void performAction(const Dictionary& message);
    void updatePorts(const Dictionary& message);
    void updateShownFolders(const Dictionary& message);

    /// An extension says by itself that it is there.
    void registerExtension(const std::string& portName);
    /// The extension was removed from `senders_`.
    void extensionRemoved(const std::string& portName);

    std::optional<std::string> localPath(const Value* url);
    /// Nothing when the message unfolds into more text than it can honestly say.
    std::optional<std::vector<std::string>> localPaths(const Value* urls);
    /// Runs `call`; an exception of any kind becomes a problem, with `what` failed. False when
    /// there was one.
    bool guarded(const char* what, const std::function<void()>& call);
    void failed(const char* what, const char* why) noexcept;

    const VolumeMapping mapping_;
    Application& application_;
    MessagePortService& ports_;
    DispatchQueue& callbacks_;
    MessagePortRef port_;

    mutable Mutex mutex_;
    ShownFolders shown_ CORVID_GUARDED_BY(mutex_);
    PushSenders senders_;
};

} // namespace corvid::hostkit
