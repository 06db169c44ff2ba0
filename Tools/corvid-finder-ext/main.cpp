// `corvid-finder-ext`: the extension's controller in a process of its own, and around it what a
// file manager is to it.

#include "App/Logging/CVMALogFileManager.h"
#include "App/Reporting/AppReportingService.h"
#include "App/Reporting/CVDDFileLogger.h"
#include "App/Reporting/CVDDLog.h"
#include "App/Reporting/LogSafety.h"
#include "Core/Base/PrintableText.h"
#include "Extensions/FileManagers/Link/LinkServer.h"
#include "Extensions/FileManagers/Link/SendMonitor.h"
#include "Extensions/Finder/CVMAFinderSync.h"
#include "Extensions/Finder/CVMAMessagePortID.h"
#include "LinkSocket.h"
#include "Platform/Interfaces/Platform.h"
#include "Platform/Unix/ExitDeadline.h"
#include "Platform/Unix/FatalSignals.h"
#include "Platform/Unix/PortFolder.h"
#include "Platform/Unix/PortWatcher.h"
#include "Platform/Unix/RuntimeFolder.h"
#include "Platform/Unix/RuntimeKeeper.h"
#include "Platform/Unix/UnixBundle.h"
#include "Platform/Unix/UnixClock.h"
#include "Platform/Unix/UnixDispatch.h"
#include "Platform/Unix/UnixFileManager.h"
#include "Platform/Unix/UnixMessagePortService.h"
#include "Platform/Unix/UnixProcessInfo.h"
#include "Platform/Unix/UnixSystemLog.h"
#include "Platform/Unix/VolumeFile.h"
#include "StandardStreams.h"
#include "StartReport.h"
#include "Tools/Support/CommandLine.h"
#include "Tools/Support/VolumePath.h"
#include "VolumeChoice.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <unistd.h>

namespace corvid {
namespace {

std::atomic<link::LinkServer*> serverToStop{nullptr};
std::atomic<bool> isToStop{false};

void stopServer(int /*signal*/) {
    ExitDeadline::arm(EXIT_SUCCESS);
    isToStop = true;
    if (link::LinkServer* server = serverToStop) {
        server->stop();
    }
}

void handleSignals() {
    struct sigaction stop{};
    stop.sa_handler = stopServer;
    stop.sa_flags = SA_RESTART;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signal, &stop, nullptr);
    }
}

/// Follows what the host application does outside of its port's messages: its coming and going,
/// and the folder that it names. On a queue of its own.
class HostFollower {
public:
    /// Both references must outlive this.
    HostFollower(const RuntimeFolder& folder, link::LinkServer& server,
                 VolumeFile::Publication& publication, bool isVolumeFixed)
        : server_(server), publication_(publication), isVolumeFixed_(isVolumeFixed),
          hostPort_(CVMAMessagePortID(CVMAMessagePortID::volumekeeper).rawValue()), folder_(folder),
          host_(greetHost()), process_(processOf(host_)),
          queue_(platform().dispatch.serialQueue("com.corvid.finder-ext.host")),
          ports_(folder, hostPort_, queue_,
                 [this](const LivePort& port, bool isAlive) { portChanged(port, isAlive); }),
          volume_(VolumeFile::ofHost(folder).watch(
              queue_, [this](const auto& published) { volumeChanged(published); })) {
        // After the watcher has looked, which never tells of a host that ended before it did.
        queue_.async([this] { dropHostThatHasGone(); });
    }

    /// 0 when there is none, and when it is too busy to say who it is.
    std::uint32_t process() const { return process_; }

    DispatchQueue& queue() { return queue_; }

    /// What is wrong in the runtime folder; empty for nothing. On the queue.
    void setFolderProblem(const std::string& problem) {
        if (!problem.empty()) {
            std::fprintf(stderr, "corvid-finder-ext: %s\n", problem.c_str());
        }
        folderProblem_ = problem;
        tellProblems();
    }

private:
    static std::uint32_t processOf(const std::optional<LivePort>& host) {
        return host ? static_cast<std::uint32_t>(host->process) : 0;
    }

    /// The host that is there already.
    std::optional<LivePort> findHost() const {
        for (const LivePort& port : PortFolder(folder_).livePorts(hostPort_)) {
            if (port.name == hostPort_) {
                return port;
            }
        }
        return std::nullopt;
    }

    /// A front end must not be told that there is none until the watcher has looked.
    std::optional<LivePort> greetHost() {
        const std::optional<LivePort> host = findHost();
        if (host) {
            server_.finder().hostAppeared();
        }
        return host;
    }

    void dropHostThatHasGone() {
        const std::optional<LivePort> host = findHost();
        if (host_ && !(host && isSame(*host, *host_))) {
            setHost(std::nullopt);
        }
    }

    void portChanged(const LivePort& port, bool isAlive) {
        if (port.name != hostPort_) {
            return;
        }
        if (isAlive) {
            setHost(port);
        } else if (host_ && isSame(*host_, port)) {
            setHost(std::nullopt);
        }
    }

    /// A host that has no room for one more connection does not say which process it is.
    static bool isSame(const LivePort& a, const LivePort& b) {
        return a.since == b.since && (a.process == b.process || a.process == 0 || b.process == 0);
    }

    void setHost(std::optional<LivePort> host) {
        if (host && host_ && isSame(*host, *host_)) {
            if (host->process == 0) {
                return;
            }
        } else {
            if (host_) {
                server_.finder().hostVanished();
            }
            if (host) {
                server_.finder().hostAppeared();
            }
        }
        host_ = host;
        process_ = processOf(host_);
    }

    void volumeChanged(const std::optional<PublishedVolume>& published) {
        if (!published && host_ && host_->process == 0) {
            dropHostThatHasGone(); // of whose end nobody tells the watcher
        }
        const auto volume = published ? VolumeMapping::make(published->folder) : std::nullopt;
        const std::string ours = server_.finder().volume().localFolder();
        std::string problem;
        if (volume && isVolumeFixed_ && volume->localFolder() != ours) {
            problem = volumeConflict(ours, volume->localFolder());
        } else if (volume && !isVolumeFixed_) {
            server_.finder().setVolume(*volume);
            problem = publication_.update(volume->localFolder(), false);
        }
        if (!problem.empty()) {
            std::fprintf(stderr, "corvid-finder-ext: %s\n", problem.c_str());
        }
        volumeProblem_ = problem;
        tellProblems();
    }

    void tellProblems() {
        const bool isBoth = !volumeProblem_.empty() && !folderProblem_.empty();
        server_.setProblem(volumeProblem_ + (isBoth ? " " : "") + folderProblem_);
    }

    link::LinkServer& server_;
    VolumeFile::Publication& publication_;
    const bool isVolumeFixed_;
    const std::string hostPort_;
    const RuntimeFolder folder_;
    std::optional<LivePort> host_; ///< on the queue
    std::atomic<std::uint32_t> process_;
    DispatchQueue& queue_;
    std::string volumeProblem_;
    std::string folderProblem_;
    // Last: they call the rest.
    PortWatcher ports_;
    std::unique_ptr<VolumeFile::Watcher> volume_;
};

/// Where the volume is, by everything that may name it; else a sentence on what is wrong.
std::variant<VolumeChoice, std::string> findVolume(const std::optional<std::string>& argument,
                                                   const RuntimeFolder& runtimeFolder) {
    const FileManager& files = platform().fileManager;
    VolumeSources sources;
    sources.argument = argument;
    sources.environment = platform().processInfo.environment("CVD_VOLUME_PATH");
    if (const auto host = VolumeFile::ofHost(runtimeFolder).read()) {
        sources.host = host->folder;
    }
    sources.workingFolder = workingFolder();
    sources.hasUsualFolder = files.fileExistsAtPath(std::string(kVolumeRoot)).isDirectory;
    sources.home = platform().processInfo.environment("HOME");
    auto choice = chooseVolume(sources);
    if (const auto* const found = std::get_if<VolumeChoice>(&choice)) {
        const std::string& folder = found->volume.localFolder();
        if (found->isFixed && !files.fileExistsAtPath(folder).isDirectory) {
            return "The volume " + printableText(folder) +
                   " is no folder; make it, or name another one with --volume DIR.";
        }
    }
    return choice;
}

std::shared_ptr<CVMAFinderSync> createController() {
    auto controller = CVMAFinderSync::create();
    if (const std::string problem = CVDDLog::problem(); !problem.empty()) {
        std::fprintf(stderr, "corvid-finder-ext: %s\n", problem.c_str());
    }
    return controller;
}

std::string keepLinkSocket(LinkSocket& socket, link::LinkServer& server) {
    std::string problem;
    if (!socket.isInPlace()) {
        if (OwnedFd listener = socket.open(problem)) {
            server.listenAt(std::move(listener));
        }
    }
    return problem;
}

int failed(StartReport& report, const std::string& problem) {
    report.failed(problem);
    return EXIT_FAILURE;
}

int run(const std::optional<std::string>& volumeArgument, StartReport& report) {
    // Never destroyed, like the list of them: a thread of the logs that hangs on a disk may go on
    // when all else is gone.
    static auto& processInfo = *new UnixProcessInfo;
    static auto& fileManager = *new UnixFileManager;
    static auto& clock = *new UnixClock;
    UnixBundle bundle{std::string(kFinderExtBundleIdentifier)};
    UnixDispatch dispatch;
    UnixMessagePortService ports;
    UnixSystemLog systemLog;
    link::SendMonitor monitor(ports, clock);
    static const auto& platform = *new Platform{processInfo, fileManager, clock,     bundle,
                                                dispatch,    monitor,     systemLog, nullptr};
    setPlatform(&platform);
    AppReportingService reporting;
    AppReportingService::setSharedReportingService(&reporting);
    ExitDeadline::install();
    handleSignals();
    const LogSafety logSafety;
    installFatalSignalHandler(CVDDLog::writeQueuedInSignalHandler,
                              {ExitDeadline::armForSignal, ExitDeadline::letGo});

    const RuntimeFolder folder = RuntimeFolder::ofThisUser();
    const auto choice = findVolume(volumeArgument, folder);
    if (const auto* const problem = std::get_if<std::string>(&choice)) {
        return failed(report, *problem);
    }
    const auto& [volume, isVolumeFixed] = std::get<VolumeChoice>(choice);

    const VolumeFile::Published published =
        VolumeFile::ofExtension(folder).publish(volume.localFolder(), isVolumeFixed);
    if (published.existing) {
        const PublishedVolume& other = *published.existing;
        const std::string running = "The extension is running already, as process " +
                                    std::to_string(other.process) + ", with the volume " +
                                    printableText(other.folder);
        if (isVolumeFixed && other.folder != volume.localFolder()) {
            return failed(report, running + ", not " + printableText(volume.localFolder()) +
                                      "; end it first, or leave the volume out.");
        }
        std::fprintf(stderr, "corvid-finder-ext: %s.\n", running.c_str());
        report.ready();
        return EXIT_SUCCESS;
    }
    if (published.publication == nullptr) {
        return failed(report, published.problem);
    }

    LinkSocket linkSocket(folder);
    std::string linkProblem;
    OwnedFd listener = linkSocket.open(linkProblem);
    if (!listener) {
        return failed(report, linkProblem);
    }

    link::LinkServer server(std::move(listener), volume, monitor, clock,
                            {CORVID_VERSION, static_cast<std::uint32_t>(::getpid())});
    if (!server.isUsable()) {
        return failed(report, std::string("The extension cannot wait for front ends: ") +
                                  std::strerror(errno) + ". End programs or raise `ulimit -n`.");
    }
    server.setVolumeFixed(isVolumeFixed);
    FIFinderSyncController::setDefaultController(&server.finder());
    serverToStop = &server;
    if (isToStop) {
        server.stop();
    }
    {
        HostFollower host(folder, server, *published.publication, isVolumeFixed);
        const RuntimeKeeper keeper(
            ports.portFolder(), *published.publication, host.queue(),
            {[&] { return keepLinkSocket(linkSocket, server); }, [&] { server.stop(); },
             [&](const std::string& problem) { host.setFolderProblem(problem); }});
        server.setHostProcess([&host] { return host.process(); });
        server.finder().start(createController);
        report.ready();
        std::printf("Serving the volume %s.\n", printableText(volume.localFolder()).c_str());
        std::fflush(stdout);
        server.run();
    }
    ExitDeadline::arm(EXIT_SUCCESS);
    // From here on front ends find nobody, and the extension is taken down in its order.
    linkSocket.remove();
    server.finder().stop();

    serverToStop = nullptr;
    FIFinderSyncController::setDefaultController(nullptr);
    return EXIT_SUCCESS;
}

} // namespace
} // namespace corvid

int main(int argc, char** argv) {
    using namespace corvid;
    prepareStandardStreams();
    CommandLine commandLine("The extension's process: asks the host application for badges and "
                            "menus and serves file managers and the corvid command. They start it "
                            "by themselves.",
                            CORVID_VERSION);
    const Command program = commandLine.program();
    std::optional<std::string> volume;
    std::optional<int> backgroundFd;
    program.addOption("--volume", volume,
                      "The folder that is the volume. If left out: the one that CVD_VOLUME_PATH "
                      "names, that of the host application, /Volumes/Corvid, ~/Corvid",
                      {.typeName = "DIR"});
    program.addOption("--background", backgroundFd,
                      "Go on in the background, and write to this descriptor how the start went",
                      {.typeName = "FD",
                       .group = "For front ends",
                       .range = ValueRange{3, std::numeric_limits<int>::max()}});
    program.setFooter("Ends on SIGTERM and SIGINT. Exit status: 0 when ended so, or when one is "
                      "running already; 1 when it could not start; 2 when the command line is "
                      "wrong.");
    program.onRun([&] {
        StartReport report(backgroundFd);
        if (const int status = run(volume, report); status != EXIT_SUCCESS) {
            throw CommandFailure{status};
        }
    });
    const int status = commandLine.run(argc, argv);
    if (CVDDFileLogger::isThreadLeftBehind()) {
        // Nobody shall wait for a process that the kernel cannot end.
        std::fflush(nullptr);
        ExitDeadline::letGo();
    }
    return status;
}
