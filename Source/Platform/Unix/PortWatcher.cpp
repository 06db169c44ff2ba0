#include "Platform/Unix/PortWatcher.h"

#include <algorithm>
#include <utility>

namespace corvid {

namespace {

bool contains(const std::vector<LivePort>& ports, const LivePort& port) {
    return std::any_of(ports.begin(), ports.end(), [&](const LivePort& candidate) {
        return candidate.name == port.name && candidate.since == port.since &&
               (candidate.process == port.process || candidate.process == 0 || port.process == 0);
    });
}

bool isKnown(const std::vector<LivePort>& ports, const LivePort& port) {
    return std::any_of(ports.begin(), ports.end(), [&](const LivePort& candidate) {
        return candidate.name == port.name && candidate.since == port.since &&
               candidate.process == port.process;
    });
}

// An owner that hangs does not say who it is, and may have said it earlier.
void keepProcesses(std::vector<LivePort>& ports, const std::vector<LivePort>& before) {
    for (LivePort& port : ports) {
        for (const LivePort& earlier : before) {
            if (port.process == 0 && port.name == earlier.name && port.since == earlier.since) {
                port.process = earlier.process;
            }
        }
    }
}

void keepUnseen(std::vector<LivePort>& ports, const std::vector<LivePort>& before) {
    for (const LivePort& earlier : before) {
        if (std::none_of(ports.begin(), ports.end(),
                         [&](const LivePort& port) { return port.name == earlier.name; })) {
            ports.push_back(earlier);
        }
    }
}

} // namespace

PortWatcher::PortWatcher(RuntimeFolder folder, std::string prefix, DispatchQueue& queue,
                         Callback callback)
    : folder_(folder), prefix_(std::move(prefix)), callback_(std::move(callback)),
      watcher_(std::move(folder), queue, [this] { look(); }) {}

void PortWatcher::look() {
    PortFolder::Listing listing = folder_.list(prefix_);
    const std::vector<LivePort> before = std::exchange(known_, std::move(listing.ports));
    keepProcesses(known_, before);
    if (!listing.problem.empty()) {
        keepUnseen(known_, before);
        watcher_.lookAgain();
    }
    const std::vector<LivePort> now = known_;
    std::vector<pid_t> owners;
    owners.reserve(now.size());
    for (const LivePort& port : now) {
        owners.push_back(port.process);
    }
    watcher_.watchProcesses(owners);
    for (const LivePort& port : before) {
        if (!contains(now, port)) {
            callback_(port, false);
        }
    }
    for (const LivePort& port : now) {
        if (!isKnown(before, port)) {
            callback_(port, true);
        }
    }
}

} // namespace corvid
