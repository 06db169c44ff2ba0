#pragma once

#include "Core/Archive/Value.h"
#include "Core/Base/Mutex.h"
#include "Core/Base/URL.h"
#include "Core/Base/VolumeMapping.h"
#include "HostKit/PushLane.h"
#include "HostKit/ShownFolders.h"
#include "Platform/Interfaces/MessagePortService.h"
#include <CorvidHostKit/Application.h>
#include <CorvidHostKit/Host.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
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
/// are besides those that register, somebody else tells it.
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

    /// An extension's port is there, or no longer. On the queue; the second time does nothing.
    void addExtension(const std::string& portName);
    void removeExtension(const std::string& portName);

    /// Tells the application. On the queue.
    void problem(const std::string& text);

    /// As the members of Host. Any thread.
    void push(const std::string& path, const std::string& badge, PushTo to);
    bool flush(std::chrono::steady_clock::time_point deadline);
    bool isShown(const std::string& path) const;

    const VolumeMapping& mapping() const { return mapping_; }

private:
    std::optional<Bytes> answer(std::int32_t messageID, std::optional<ByteView> data);
    std::optional<Bytes> answerBadge(const Dictionary& message);
    std::optional<Bytes> answerMenu(const Dictionary& message);
    void performAction(const Dictionary& message);
    void updatePorts(const Dictionary& message);
    void updateShownFolders(const Dictionary& message);

    std::optional<std::string> localPath(const Value* url);
    std::vector<std::string> localPaths(const Value* urls);
    /// Calls the application; an exception becomes a problem. False when there was one.
    bool guarded(const char* member, const std::function<void()>& call);

    const VolumeMapping mapping_;
    Application& application_;
    MessagePortService& ports_;
    DispatchQueue& callbacks_;
    MessagePortRef port_;

    mutable Mutex mutex_;
    std::map<std::string, std::shared_ptr<PushLane>> lanes_ CORVID_GUARDED_BY(mutex_);
    ShownFolders shown_ CORVID_GUARDED_BY(mutex_);
    /// Lanes whose extension is gone, until their threads have ended.
    std::vector<std::shared_ptr<PushLane>> retired_ CORVID_GUARDED_BY(mutex_);
    bool isClosed_ CORVID_GUARDED_BY(mutex_) = false;
};

} // namespace corvid::hostkit
