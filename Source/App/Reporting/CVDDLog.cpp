#include "App/Reporting/CVDDLog.h"

#include "Core/Base/Mutex.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

namespace corvid {

namespace {

struct Registration {
    std::shared_ptr<CVDDLogger> logger;
    std::int32_t mask;
};

using Registrations = std::vector<Registration>;

Mutex mutex;
std::shared_ptr<const Registrations>
    registrations CORVID_GUARDED_BY(mutex) = std::make_shared<const Registrations>();

// What a signal handler may read: the same loggers, without lock or reference count. A process has
// one file logger; any beyond these slots would lose only what a crash leaves in its queue.
std::array<std::atomic<CVDDLogger*>, 8> signalSlots{};

std::shared_ptr<const Registrations> currentRegistrations() {
    const MutexLock lock(mutex);
    return registrations;
}

void fillSignalSlots(const Registrations& current) {
    for (std::size_t i = 0; i < signalSlots.size(); ++i) {
        signalSlots[i].store(i < current.size() ? current[i].logger.get() : nullptr);
    }
}

} // namespace

void CVDDLog::addLogger(std::shared_ptr<CVDDLogger> logger, std::int32_t mask) {
    const MutexLock lock(mutex);
    auto changed = std::make_shared<Registrations>(*registrations);
    changed->push_back({std::move(logger), mask});
    registrations = std::move(changed);
    fillSignalSlots(*registrations);
}

void CVDDLog::removeAllLoggers() {
    std::shared_ptr<const Registrations> removed;
    {
        const MutexLock lock(mutex);
        removed = std::exchange(registrations, std::make_shared<const Registrations>());
    }
    for (const Registration& registration : *removed) {
        registration.logger->flush();
    }
    // Only now: a signal during the flush would otherwise find nothing to write.
    const MutexLock lock(mutex);
    fillSignalSlots(*registrations);
}

void CVDDLog::log(std::string_view message, std::int32_t flag) {
    for (const Registration& registration : *currentRegistrations()) {
        if ((registration.mask & flag) != 0) {
            registration.logger->logMessage(message, flag);
        }
    }
}

void CVDDLog::flushLog() {
    for (const Registration& registration : *currentRegistrations()) {
        registration.logger->flush();
    }
}

std::string CVDDLog::problem() {
    for (const Registration& registration : *currentRegistrations()) {
        if (std::string problem = registration.logger->problem(); !problem.empty()) {
            return problem;
        }
    }
    return {};
}

void CVDDLog::writeQueuedInSignalHandler() noexcept {
    for (std::atomic<CVDDLogger*>& slot : signalSlots) {
        // Taken out, so that a second signal does not write the same lines again.
        if (CVDDLogger* logger = slot.exchange(nullptr)) {
            logger->writeQueuedInSignalHandler();
        }
    }
}

} // namespace corvid
