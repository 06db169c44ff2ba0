#include "HostKit/HostSession.h"

#include "Extensions/Finder/CVMAMessagePortID.h"

#include <CorvidHostKit/Error.h>

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace corvid::hostkit {

namespace {

VolumeMapping mappingTo(const std::string& folder) {
    std::error_code error;
    const std::string path = std::filesystem::absolute(folder, error).lexically_normal().string();
    if (folder.empty() || error || !std::filesystem::is_directory(path, error)) {
        throw Error(
            fmt::format("\"{}\" is no folder that can be served; name one that exists", folder));
    }
    std::optional<VolumeMapping> mapping = VolumeMapping::make(path);
    if (!mapping) {
        throw Error(fmt::format("\"{}\" cannot be served, since its path holds a newline; serve a "
                                "folder with another name",
                                path));
    }
    return *std::move(mapping);
}

/// Why the extension cannot be served, when it was told to watch another folder than ours.
std::optional<std::string> volumeFault(const PublishedVolume& extension, const std::string& ours) {
    std::error_code error;
    if (!extension.isFixed || extension.folder == ours ||
        std::filesystem::equivalent(extension.folder, ours, error)) {
        return std::nullopt;
    }
    return fmt::format("the extension (process {}) was told to watch {}, but this host serves {}; "
                       "start one of them with the other's folder, or the extension without any",
                       extension.process, extension.folder, ours);
}

constexpr CVMAMessagePortID kExtensionPorts(CVMAMessagePortID::finderExtension);

} // namespace

HostSession::HostSession(const std::string& folder, Application& application,
                         MessagePortService& ports, PortFolder& portFolder)
    : portFolder_(portFolder), dispatch_(std::make_unique<UnixDispatch>()),
      queue_(dynamic_cast<UnixDispatchQueue&>(dispatch_->serialQueue("Corvid.HostKit"))),
      watchQueue_(dispatch_->serialQueue("Corvid.HostKit.watch")),
      service_(mappingTo(folder), application, ports, queue_) {}

HostSession::~HostSession() {
    keeper_.reset();
    volumeWatcher_.reset();
    portWatcher_.reset();
    service_.close();
    // The queue runs what it was given to its end, while the service is still there.
    dispatch_.reset();
}

void HostSession::open() {
    publishVolume();
    if (!service_.open()) {
        throw Error(fmt::format("the host's port cannot be opened in {}; see that this folder is "
                                "yours, with mode 0700, and that no other host uses it",
                                portFolder_.path()));
    }
    const RuntimeFolder& folder = portFolder_.runtimeFolder();
    // Those that are open already are known when this returns, so that what is pushed next
    // reaches them; the watcher names them again, and those to come.
    queue_.sync([this] {
        for (const LivePort& port : portFolder_.livePorts(kExtensionPorts.rawValue())) {
            service_.addExtension(port.name);
        }
    });
    portWatcher_ = std::make_unique<PortWatcher>(
        folder, std::string(kExtensionPorts.rawValue()), watchQueue_,
        [this](const LivePort& port, bool isAlive) {
            queue_.async([this, name = port.name, isAlive] {
                isAlive ? service_.addExtension(name) : service_.removeExtension(name);
            });
        });
    volumeWatcher_ = VolumeFile::ofExtension(folder).watch(
        watchQueue_, [this](const std::optional<PublishedVolume>& extension) {
            const auto fault = extension ? volumeFault(*extension, service_.mapping().localFolder())
                                         : std::nullopt;
            if (fault) {
                queue_.async([this, problem = *fault] { service_.problem(problem); });
            }
        });
    RuntimeKeeper::Owner owner;
    owner.tell = [this](const std::string& problem) {
        if (!problem.empty()) {
            queue_.async([this, problem] { service_.problem(problem); });
        }
    };
    keeper_ = std::make_unique<RuntimeKeeper>(portFolder_, *volume_, watchQueue_, std::move(owner));
}

void HostSession::publishVolume() {
    const RuntimeFolder& folder = portFolder_.runtimeFolder();
    const std::string& ours = service_.mapping().localFolder();
    if (const auto extension = VolumeFile::ofExtension(folder).read()) {
        if (const auto fault = volumeFault(*extension, ours)) {
            throw Error(*fault);
        }
    }
    VolumeFile::Published published = VolumeFile::ofHost(folder).publish(ours, true);
    if (published.existing) {
        throw Error(fmt::format("another host application (process {}) serves {} to this user "
                                "already; stop it first",
                                published.existing->process, published.existing->folder));
    }
    if (!published.publication) {
        throw Error(published.problem);
    }
    volume_ = std::move(published.publication);
}

} // namespace corvid::hostkit
