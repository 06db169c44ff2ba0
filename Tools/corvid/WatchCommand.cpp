#include "Commands.h"
#include "Core/Base/PrintableText.h"
#include "LinkCommand.h"
#include "Listing.h"
#include "Platform/Unix/FileEvents.h"
#include "Platform/Unix/OwnedFd.h"
#include "Tools/Support/Terminal.h"
#include "Tools/Support/VolumePath.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <utility>

namespace corvid {

using namespace link;

namespace {

struct WatchOptions {
    LinkOptions link;
    std::string path;
    bool showsAll = false;
};

/// Shows one folder until the program is ended.
class Watch {
public:
    Watch(const WatchOptions& options, LinkSession& session)
        : options_(options), session_(session), drawsInPlace_(isTerminal(stdout)) {}

    void run() {
        begin();
        session_.bearLoss();
        session_.stateChanged = [this] {
            isChanged_ = true;
            if (options_.link.isJSON) {
                printState();
            }
        };
        session_.wait([this] { return isAnswered(); }, Deadline(options_.link.timeout()));
        if (options_.link.isJSON) {
            printJSON({{"event", "listed"},
                       {"folder", listing_->folder()},
                       {"host", hostStateName(session_.hostState())},
                       {"items", listing_->json(session_)}});
        }
        session_.badgesChanged = [this](const std::string& folder,
                                        const std::vector<std::string>& names) {
            note(folder, names);
        };
        isChanged_ = true;
        while (true) {
            if (std::exchange(isChanged_, false) && !options_.link.isJSON) {
                show();
            }
            session_.wait([this] { return isChanged_; }, std::nullopt, folderEvents_.get());
            if (drainFolderEvents()) {
                read();
                isChanged_ = true;
            }
        }
    }

private:
    void begin() {
        std::string path = options_.path;
        if (path.empty()) {
            path = pathOnVolume(".", session_.volume()) ? "." : session_.volume();
        }
        item_ = selectedItem(path, session_);
        folderEvents_ = OwnedFd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        ::inotify_add_watch(folderEvents_.get(),
                            (item_.isFolder ? item_.path : folderOf(item_.path)).c_str(),
                            IN_CREATE | IN_DELETE | IN_MOVE | IN_DELETE_SELF | IN_MOVE_SELF);
        read();
        session_.badges().begin(listing_->folder());
        ask();
    }

    void read() {
        listing_ = Listing::read(item_.path, item_.isFolder, options_.showsAll);
        if (!listing_) {
            fail(printableText(item_.path) + ": " + std::strerror(errno) + ".");
        }
        ask();
    }

    void ask() {
        for (const Listing::Entry& entry : listing_->entries()) {
            session_.badges().badge(listing_->folder(), entry.name, entry.isFolder);
        }
    }

    bool isAnswered() const {
        return session_.badges().unanswered() == 0 ||
               session_.hostState() == HostState::notAnswering;
    }

    bool drainFolderEvents() {
        bool hasAny = false;
        while (readFileEvents(folderEvents_.get(), [&](const FileEvent&) { hasAny = true; })) {
        }
        return hasAny;
    }

    void note(const std::string& folder, const std::vector<std::string>& names) {
        isChanged_ = true;
        if (!options_.link.isJSON && drawsInPlace_) {
            return;
        }
        std::set<std::string_view> shown;
        for (const Listing::Entry& entry : listing_->entries()) {
            shown.insert(entry.name);
        }
        for (const std::string& name : names) {
            if (!shown.contains(name)) {
                continue;
            }
            const std::string badge(session_.badges().badge(folder, name, false));
            if (options_.link.isJSON) {
                nlohmann::json event{{"event", "push"},
                                     {"path", std::string(folder).append("/").append(name)},
                                     {"badge", badge.empty() ? "none" : badge}};
                addName(event, name);
                printJSON(event);
            } else if (hasShown_) {
                std::printf("%s  %s\n", badge.empty() ? "-" : session_.label(badge).c_str(),
                            printableText(name).c_str());
                std::fflush(stdout);
            }
        }
    }

    void printState() {
        printJSON({{"event", "state"},
                   {"host", hostStateName(session_.hostState())},
                   {"volume", session_.volume()},
                   {"problem", session_.loss()}});
    }

    /// The whole list, in a terminal over the one before; elsewhere once.
    void show() {
        if (hasShown_ && !drawsInPlace_) {
            return;
        }
        hasShown_ = true;
        std::vector<std::string> lines = listing_->lines(session_);
        const std::string remark =
            !session_.loss().empty() ? session_.loss() : hostAdvice(session_);
        if (!remark.empty()) {
            lines.insert(lines.begin(), remark);
        }
        if (drawsInPlace_) {
            const std::size_t room = std::max(2U, terminalRows(stdout)) - 1;
            if (lines.size() > room) {
                const std::size_t hidden = lines.size() - room + 1;
                lines.resize(room - 1);
                lines.push_back("… and " + std::to_string(hidden) + " more");
            }
        }
        std::string text;
        if (drawnRows_ > 0) {
            text += "\x1b[" + std::to_string(drawnRows_) + "A";
        }
        for (const std::string& line : lines) {
            text += line + (drawsInPlace_ ? "\x1b[K\n" : "\n");
        }
        if (drawsInPlace_) {
            text += "\x1b[J";
            drawnRows_ = lines.size();
        }
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }

    const WatchOptions& options_;
    LinkSession& session_;
    const bool drawsInPlace_;
    SelectedItem item_;
    std::optional<Listing> listing_;
    OwnedFd folderEvents_;
    bool isChanged_ = false;
    bool hasShown_ = false;
    std::size_t drawnRows_ = 0;
};

} // namespace

void addWatchCommand(const Command& program) {
    auto options = std::make_shared<WatchOptions>();
    const Command command =
        program.addCommand("watch", "Show a folder with its badges as they change, until ended");
    command.addOption("PATH", options->path,
                      "A folder or an item; the working folder, or else the volume, if left out");
    command.addFlag("-a,--all", options->showsAll, "Show items whose name begins with a dot");
    addLinkOptions(command, options->link);
    command.onRun([options] {
        const auto session = openSession(options->link, Deadline(options->link.timeout()));
        try {
            Watch(*options, *session).run();
        } catch (const LinkError& error) {
            fail(error.what());
        }
    });
}

} // namespace corvid
