#include "Extensions/FileManagers/Link/SendMonitor.h"

#include "Extensions/Finder/CVMAMessageID.h"

#include <utility>

namespace corvid::link {

namespace {

thread_local SendOutcome outcomeOfThread = SendOutcome::nothingSent;

std::string_view reason(SendStatus status) {
    switch (status) {
    case SendStatus::success:
        return "it arrived";
    case SendStatus::sendTimeout:
        return "it was not taken in time";
    case SendStatus::receiveTimeout:
        return "no answer came in time";
    case SendStatus::isInvalid:
        return "the port was closed";
    case SendStatus::transportError:
        return "the connection broke";
    case SendStatus::becameInvalid:
        return "the port was closed meanwhile";
    }
    return "of an unknown status";
}

std::string sentence(std::int32_t messageID, const std::string& port, SendStatus status) {
    const auto id = CVMAMessageID::fromRawValue(messageID);
    return "The message " + (id ? std::string(id->caseName()) : std::to_string(messageID)) +
           " to " + port + " failed: " + std::string(reason(status)) + ".";
}

} // namespace

SendMonitor::SendMonitor(MessagePortService& service, const Clock& clock)
    : service_(service), clock_(clock) {}

SendOutcome SendMonitor::takeOutcome() {
    return std::exchange(outcomeOfThread, SendOutcome::nothingSent);
}

SendMonitor::Figures SendMonitor::figures() const {
    const MutexLock lock(mutex_);
    return figures_;
}

MessagePortRef SendMonitor::createRemote(std::string_view name) {
    MessagePortRef remote = service_.createRemote(name);
    if (remote == nullptr) {
        // A host that cannot be reached now, for want of descriptors say, is asked again.
        const bool isGone = service_.presenceOf(name).state == PortPresence::State::gone;
        outcomeOfThread = isGone ? SendOutcome::hostAbsent : SendOutcome::failed;
    }
    return remote;
}

PortPresence SendMonitor::presenceOf(std::string_view name) {
    return service_.presenceOf(name);
}

SendStatus SendMonitor::sendRequest(MessagePort& remote, std::int32_t messageID, ByteView data,
                                    std::chrono::milliseconds sendTimeout,
                                    std::chrono::milliseconds receiveTimeout,
                                    std::optional<std::string_view> replyMode,
                                    std::optional<Bytes>* reply) {
    const auto start = clock_.monotonicNow();
    const SendStatus status = service_.sendRequest(remote, messageID, data, sendTimeout,
                                                   receiveTimeout, replyMode, reply);
    const auto end = clock_.monotonicNow();
    outcomeOfThread = status == SendStatus::success ? SendOutcome::arrived : SendOutcome::failed;

    const MutexLock lock(mutex_);
    ++figures_.sent;
    if (status != SendStatus::success) {
        ++figures_.failed;
        figures_.lastFailure = sentence(messageID, remote.name(), status);
        figures_.lastFailureTime = end;
    } else if (replyMode) {
        figures_.roundTrip = std::chrono::duration_cast<std::chrono::microseconds>(end - start);
    }
    return status;
}

MessagePortRef SendMonitor::createLocal(std::string_view name, MessagePortCallback callback) {
    return service_.createLocal(name, std::move(callback));
}

void SendMonitor::setDispatchQueue(MessagePort& local, DispatchQueue& queue) {
    service_.setDispatchQueue(local, queue);
}

void SendMonitor::invalidate(MessagePort& port) {
    service_.invalidate(port);
}

} // namespace corvid::link
