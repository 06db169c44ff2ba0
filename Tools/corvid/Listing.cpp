#include "Listing.h"

#include "Core/Base/PrintableText.h"
#include "LinkCommand.h"
#include "Tools/Support/Terminal.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>
#include <utility>

namespace corvid {

namespace {

struct CloseFolder {
    void operator()(DIR* folder) const { ::closedir(folder); }
};

/// The label that takes the most columns, "Finished Transfer".
constexpr std::size_t kLabelColumns = 17;

} // namespace

std::optional<Listing> Listing::read(const std::string& path, bool isFolder, bool showsAll) {
    Listing listing;
    if (!isFolder) {
        struct stat info{};
        if (::lstat(path.c_str(), &info) != 0) {
            return std::nullopt;
        }
        listing.folder_ = folderOf(path);
        listing.entries_.push_back({nameOf(path), false, S_ISLNK(info.st_mode)});
        return listing;
    }
    listing.folder_ = path;
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(path.c_str()));
    if (folder == nullptr) {
        return std::nullopt;
    }
    while (const dirent* item = ::readdir(folder.get())) {
        std::string name = item->d_name;
        if (name == "." || name == ".." || (name.front() == '.' && !showsAll)) {
            continue;
        }
        unsigned char type = item->d_type;
        if (type == DT_UNKNOWN) {
            struct stat info{};
            if (::fstatat(::dirfd(folder.get()), item->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) {
                type = S_ISDIR(info.st_mode) ? DT_DIR : S_ISLNK(info.st_mode) ? DT_LNK : DT_REG;
            }
        }
        listing.entries_.push_back({std::move(name), type == DT_DIR, type == DT_LNK});
    }
    std::sort(listing.entries_.begin(), listing.entries_.end(), [](const Entry& a, const Entry& b) {
        return std::tie(b.isFolder, a.name) < std::tie(a.isFolder, b.name);
    });
    return listing;
}

std::vector<std::string> Listing::lines(LinkSession& session) const {
    const bool hasSymbols = isTerminal(stdout);
    const bool hasColours = mayColour(stdout);
    std::vector<std::string> result;
    result.reserve(entries_.size());
    for (const Entry& entry : entries_) {
        const std::string badge(session.badges().badge(folder_, entry.name, entry.isFolder));
        const BadgeLook look = badgeLook(badge);
        std::string line;
        if (hasSymbols) {
            line += coloured(look.symbol, look.colour, hasColours) + " ";
        }
        std::string label = badge.empty() ? "-" : session.label(badge);
        const std::size_t width = columns(label);
        label.append(kLabelColumns - std::min(width, kLabelColumns), ' ');
        line += coloured(label, badge.empty() ? Colour::grey : look.colour, hasColours) + "  ";
        line += coloured(printableText(entry.name) + (entry.isFolder ? "/" : ""),
                         entry.isFolder ? Colour::bold : Colour::none, hasColours);
        result.push_back(std::move(line));
    }
    return result;
}

nlohmann::json Listing::json(LinkSession& session) const {
    nlohmann::json items = nlohmann::json::array();
    for (const Entry& entry : entries_) {
        const std::string badge(session.badges().badge(folder_, entry.name, entry.isFolder));
        nlohmann::json item;
        addName(item, entry.name);
        item["kind"] = entry.isFolder ? "folder" : entry.isLink ? "link" : "file";
        item["badge"] = badge.empty() ? "none" : badge;
        items.push_back(std::move(item));
    }
    return items;
}

} // namespace corvid
