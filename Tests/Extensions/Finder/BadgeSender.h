#pragma once

#include "Core/Archive/KeyedArchive.h"
#include "Core/Base/Mutex.h"
#include "Core/Base/URL.h"
#include "Extensions/Finder/CVMAMessageID.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <chrono>
#include <condition_variable>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace corvid {

/// What a host sends to push a badge for an item of the volume.
inline Bytes pushOf(std::string_view badge, std::string_view nameInVolume) {
    const std::string path = "/Volumes/Corvid/" + std::string(nameInVolume);
    return archivedData(Value::dictionary({{"badgeID", Value::string(std::string(badge))},
                                           {"path", Value::url(*URL::fileURL(path))}}));
}

/// A thread that pushes one badge without a pause to one port, until that has gone.
class BadgeSender {
public:
    /// With a `replyMode` each push waits until the one before has been taken.
    BadgeSender(MessagePortService& ports, const std::string& portName,
                const std::string& nameInVolume, std::optional<std::string_view> replyMode)
        : thread_([this, &ports, portName, payload = pushOf("synced", nameInVolume), replyMode] {
              while (const MessagePortRef port = ports.createRemote(portName)) {
                  ports.sendRequest(*port, CVMAMessageID::provideBadge, payload, kPatience,
                                    kPatience, replyMode, nullptr);
                  note(1, false);
              }
              note(0, true);
          }) {}
    ~BadgeSender() { thread_.join(); }
    BadgeSender(const BadgeSender&) = delete;
    BadgeSender& operator=(const BadgeSender&) = delete;

    /// Waits for so many pushes, or for the end of the port.
    void waitFor(int pushes) {
        MutexLock lock(mutex_);
        while (pushes_ < pushes && !hasEnded_) {
            lock.wait(changed_);
        }
    }

private:
    static constexpr std::chrono::seconds kPatience{10};

    void note(int pushes, bool hasEnded) {
        const MutexLock lock(mutex_);
        pushes_ += pushes;
        hasEnded_ = hasEnded;
        changed_.notify_all();
    }

    Mutex mutex_;
    std::condition_variable changed_;
    int pushes_ CORVID_GUARDED_BY(mutex_) = 0;
    bool hasEnded_ CORVID_GUARDED_BY(mutex_) = false;
    std::thread thread_;
};

} // namespace corvid
