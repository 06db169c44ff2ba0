#include "Commands.h"
#include "Core/Base/PrintableText.h"
#include "LinkCommand.h"
#include "Listing.h"
#include "Tools/Support/VolumePath.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace corvid {

using namespace link;

namespace {

struct LsOptions {
    LinkOptions link;
    std::string path;
    bool showsAll = false;
};

void list(const LsOptions& options) {
    const auto session = openSession(options.link, Deadline(options.link.timeout()));
    std::string path = options.path;
    if (path.empty()) {
        path = pathOnVolume(".", session->volume()) ? "." : session->volume();
    }
    const SelectedItem item = selectedItem(path, *session);
    const auto listing = Listing::read(item.path, item.isFolder, options.showsAll);
    if (!listing) {
        fail(printableText(path) + ": " + std::strerror(errno) + ".");
    }

    // The badges are asked for here, in one go, and looked up when the lines are made.
    BadgeCache& badges = session->badges();
    badges.begin(listing->folder());
    for (const Listing::Entry& entry : listing->entries()) {
        badges.badge(listing->folder(), entry.name, entry.isFolder);
    }
    const auto isDone = [&] {
        return badges.unanswered() == 0 || session->hostState() == HostState::notAnswering;
    };
    try {
        // The time-out is for the next answers, not for all: a large folder takes what it takes.
        std::size_t unanswered = 0;
        do {
            unanswered = badges.unanswered();
        } while (!session->wait(isDone, Deadline(options.link.timeout())) &&
                 badges.unanswered() != unanswered);
    } catch (const LinkError& error) {
        fail(error.what());
    }

    if (options.link.isJSON) {
        printJSON({{"volume", session->volume()},
                   {"folder", listing->folder()},
                   {"host", hostStateName(session->hostState())},
                   {"unanswered", badges.unanswered()},
                   {"items", listing->json(*session)}},
                  2);
    } else {
        std::string text;
        for (const std::string& line : listing->lines(*session)) {
            text += line + "\n";
        }
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    if (const std::string advice = hostAdvice(*session); !advice.empty()) {
        std::fflush(stdout);
        std::fprintf(stderr, "corvid: %s\n", advice.c_str());
    }
    if (badges.unanswered() > 0) {
        fail("Some badges were not answered in time; they are shown as they were last known.");
    }
}

} // namespace

void addLsCommand(const Command& program) {
    auto options = std::make_shared<LsOptions>();
    const Command command = program.addCommand("ls", "List a folder of the volume with its badges");
    command.addOption("PATH", options->path,
                      "A folder or an item; the working folder, or else the volume, if left out");
    command.addFlag("-a,--all", options->showsAll, "Show items whose name begins with a dot");
    addLinkOptions(command, options->link);
    command.onRun([options] { list(*options); });
}

} // namespace corvid
