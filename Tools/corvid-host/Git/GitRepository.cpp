#include "Tools/corvid-host/Git/GitRepository.h"

#include "Platform/Unix/OwnedFd.h"
#include "Tools/corvid-host/Git/PipeGuard.h"
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include <fcntl.h>
#include <git2.h>
#include <unistd.h>

namespace corvid {

namespace {

template <class T, void (*release)(T*)>
struct Release {
    void operator()(T* object) const { release(object); }
};
template <class T, void (*release)(T*)>
using Handle = std::unique_ptr<T, Release<T, release>>;

/// What may be kept of files that are read, besides one for each that the index holds.
constexpr std::size_t kSpareRead = 1024;

using Config = Handle<git_config, git_config_free>;
using Repository = Handle<git_repository, git_repository_free>;
using Index = Handle<git_index, git_index_free>;
using Tree = Handle<git_tree, git_tree_free>;
using Object = Handle<git_object, git_object_free>;
using Diff = Handle<git_diff, git_diff_free>;
using TreeEntry = Handle<git_tree_entry, git_tree_entry_free>;
using ConflictIterator = Handle<git_index_conflict_iterator, git_index_conflict_iterator_free>;

/// libgit2's own start and end, counted by it.
class Library {
public:
    Library() {
        refusePipes();
        git_libgit2_init();
    }
    ~Library() { git_libgit2_shutdown(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

[[noreturn]] void fail(const std::string& what, int code) {
    const git_error* error = git_error_last();
    const std::string reason = error && error->message ? error->message : "no reason given";
    const char* remedy = "";
    if (code == GIT_ELOCKED) {
        remedy = "; another git is at work here: try again, and if none is, remove index.lock";
    }
    throw GitError(fmt::format("{}: {}{}", what, reason, remedy));
}

void check(int code, const std::string& what) {
    if (code < 0) {
        fail(what, code);
    }
}

std::string withoutFinalSlash(const char* path) {
    std::string text(path ? path : "");
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

/// The repository's folder that is found from `folder` upwards; nothing when there is none.
std::optional<std::string> repositoryAbove(const std::string& folder) {
    git_buf found = GIT_BUF_INIT;
    if (git_repository_discover(&found, folder.c_str(), 0, nullptr) < 0) {
        return std::nullopt;
    }
    std::string path = withoutFinalSlash(found.ptr);
    git_buf_dispose(&found);
    return path;
}

bool isWithin(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return std::ranges::mismatch(folder, path).in1 == folder.end();
}

/// True when who names `folder` means `workTree`: one lies in the other, and `workTree` is that of
/// the repository in it or above it. A repository may say that its work tree is any folder, such as
/// the home folder, and it may come from anybody.
bool isOwnWorkTree(const std::string& folder, const std::string& workTree,
                   const std::string& gitFolder) {
    std::error_code error;
    const std::filesystem::path asked = std::filesystem::canonical(folder, error);
    const std::filesystem::path served = std::filesystem::canonical(workTree, error);
    return !error && (isWithin(served, asked) ||
                      (isWithin(asked, served) && repositoryAbove(workTree) == gitFolder));
}

/// libgit2 1.5 says GIT_ENOTFOUND where the user's settings name no trusted folder at all.
bool isAboutTrust(const git_error* error) {
    return error != nullptr && error->message != nullptr &&
           std::string_view(error->message).find("safe.directory") != std::string_view::npos;
}

/// What to say of a repository that another user may have prepared.
std::string otherOwner(const std::string& folder) {
    const std::filesystem::path found(repositoryAbove(folder).value_or(folder));
    const std::filesystem::path tree = found.filename() == ".git" ? found.parent_path() : found;
    std::string owner = "another user";
    for (const std::filesystem::path& path : {found, tree}) {
        struct stat item{};
        if (stat(path.c_str(), &item) == 0 && item.st_uid != geteuid()) {
            owner = fmt::format("another user (number {})", item.st_uid);
        }
    }
    return fmt::format(
        "{} belongs to {}, whose settings of git are not trusted; if you trust them, "
        "run: git config --global --add safe.directory {}",
        tree.string(), owner, tree.string());
}

/// What tells one version of a file from another without reading it.
struct Fingerprint {
    git_oid indexed{};
    timespec modified{};
    timespec changed{};
    off_t size = 0;
    ino_t inode = 0;

    static Fingerprint of(const git_oid& indexed, const struct stat& item) {
        return {indexed, item.st_mtim, item.st_ctim, item.st_size, item.st_ino};
    }
    friend bool operator==(const Fingerprint& a, const Fingerprint& b) {
        return git_oid_equal(&a.indexed, &b.indexed) != 0 &&
               a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec &&
               a.changed.tv_sec == b.changed.tv_sec && a.changed.tv_nsec == b.changed.tv_nsec &&
               a.size == b.size && a.inode == b.inode;
    }
};

bool sameTime(const git_index_time& indexed, const timespec& onDisk) {
    return indexed.seconds == static_cast<std::int32_t>(onDisk.tv_sec) &&
           (indexed.nanoseconds == 0 ||
            indexed.nanoseconds == static_cast<std::uint32_t>(onDisk.tv_nsec));
}

bool isEmptyBlob(const git_oid& id) {
    git_oid empty{};
    return git_odb_hash(&empty, "", 0, GIT_OBJECT_BLOB) == 0 && git_oid_equal(&empty, &id) != 0;
}

/// git's own file of this user: in $XDG_CONFIG_HOME/git, else in ~/.config/git.
std::string userFile(const std::string& name) {
    const char* const folder = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    return (folder != nullptr && *folder != '\0' ? std::string(folder)
                                                 : std::string(home ? home : "") + "/.config") +
           "/git/" + name;
}

/// True when the index's record of the file says that nobody touched it.
bool isUntouched(const git_index_entry& entry, const struct stat& item) {
    return sameTime(entry.mtime, item.st_mtim) && sameTime(entry.ctime, item.st_ctim) &&
           entry.file_size == static_cast<std::uint32_t>(item.st_size) &&
           entry.ino == static_cast<std::uint32_t>(item.st_ino) &&
           entry.uid == static_cast<std::uint32_t>(item.st_uid) &&
           entry.gid == static_cast<std::uint32_t>(item.st_gid);
}

git_strarray asArray(std::vector<char*>& strings) {
    return {strings.data(), strings.size()};
}

std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size());
    for (const std::string& string : strings) {
        result.push_back(const_cast<char*>(string.c_str())); // libgit2 only reads them
    }
    return result;
}

} // namespace

struct GitRepository::Implementation {
    Library library;
    Repository repository;
    Index index;
    Tree head; ///< null before the first commit
    std::string workTree;
    std::string gitFolder;
    std::string commonFolder;
    bool trustsMode = true;

    std::unordered_set<std::string> staged;
    std::unordered_set<std::string> conflicted;
    std::vector<std::string> stagedDeletions; ///< sorted
    timespec indexModified{};
    git_oid indexChecksum{};
    git_oid headID{};
    bool isLoaded = false;

    /// Files that the index's record could not settle, and what reading them said.
    std::unordered_map<std::string, std::pair<Fingerprint, bool>> read;

    std::string absolute(const std::string& path) const { return workTree + "/" + path; }

    const git_index_entry* entry(const std::string& path) const {
        return git_index_get_bypath(index.get(), path.c_str(), GIT_INDEX_STAGE_NORMAL);
    }

    void loadHead();
    void loadStaged();
    void loadConflicts();
    bool isChanged(const Found& file, const git_index_entry& entry);
    bool hasOtherContent(const Found& file, const git_oid& indexed);
    bool hashFile(git_oid& hash, const Found& file) const;
    bool isSubmoduleChanged(const std::string& path) const;
    bool isIndexed(const std::string& prefix, std::size_t* position) const;
    void smudgeRacyEntries();
    void writeIndex();
};

GitRepository::GitRepository(const std::string& folder)
    : implementation_(std::make_unique<Implementation>()) {
    auto& my = *implementation_;
    git_repository* repository = nullptr;
    const int code = git_repository_open_ext(&repository, folder.c_str(), 0, nullptr);
    if (code == GIT_EOWNER || (code == GIT_ENOTFOUND && isAboutTrust(git_error_last()))) {
        throw GitError(otherOwner(folder));
    }
    check(code, fmt::format("{} is not in a git work tree that can be opened", folder));
    my.repository.reset(repository);
    if (git_repository_is_bare(repository)) {
        throw GitError(fmt::format(
            "{} is a bare git repository; name the work tree of one, where its files are", folder));
    }
    my.workTree = withoutFinalSlash(git_repository_workdir(repository));
    my.gitFolder = withoutFinalSlash(git_repository_path(repository));
    my.commonFolder = withoutFinalSlash(git_repository_commondir(repository));
    if (!isOwnWorkTree(folder, my.workTree, my.gitFolder)) {
        throw GitError(fmt::format(
            "{} has its work tree elsewhere, in {} (core.worktree in {}/config), which is not "
            "served unasked; name that folder if it is a work tree of its own, or run: git -C {} "
            "config --unset core.worktree",
            folder, my.workTree, my.gitFolder, my.gitFolder));
    }
    git_config* config = nullptr;
    if (git_repository_config_snapshot(&config, repository) == 0) {
        int filemode = 1;
        git_config_get_bool(&filemode, config, "core.filemode");
        my.trustsMode = filemode != 0;
        git_config_free(config);
    }
    git_index* index = nullptr;
    check(git_repository_index(&index, repository), "the index cannot be read");
    my.index.reset(index);
    reload();
}

GitRepository::~GitRepository() = default;

const std::string& GitRepository::workTree() const {
    return implementation_->workTree;
}

const std::string& GitRepository::gitFolder() const {
    return implementation_->gitFolder;
}

const std::string& GitRepository::commonFolder() const {
    return implementation_->commonFolder;
}

bool GitRepository::reload() {
    auto& my = *implementation_;
    // Before the index is read: should it be replaced in between, more files count as racy than
    // need be, rather than fewer.
    struct stat onDisk{};
    if (lstat(git_index_path(my.index.get()), &onDisk) == 0) {
        my.indexModified = onDisk.st_mtim;
    }
    check(git_index_read(my.index.get(), 0), "the index cannot be read");
    const git_oid oldHead = my.headID;
    my.loadHead();
    const git_oid* checksum = git_index_checksum(my.index.get());
    if (my.isLoaded && git_oid_equal(checksum, &my.indexChecksum) &&
        git_oid_equal(&oldHead, &my.headID)) {
        return false;
    }
    my.isLoaded = true;
    my.indexChecksum = *checksum;
    my.loadStaged();
    my.loadConflicts();
    return true;
}

void GitRepository::Implementation::loadHead() {
    git_object* tree = nullptr;
    const int code = git_revparse_single(&tree, repository.get(), "HEAD^{tree}");
    head.reset(code == 0 ? reinterpret_cast<git_tree*>(tree) : nullptr);
    headID = head ? *git_tree_id(head.get()) : git_oid{};
}

void GitRepository::Implementation::loadStaged() {
    staged.clear();
    stagedDeletions.clear();
    git_diff_options options{};
    git_diff_options_init(&options, GIT_DIFF_OPTIONS_VERSION);
    options.flags = GIT_DIFF_INCLUDE_TYPECHANGE;
    git_diff* diff = nullptr;
    check(git_diff_tree_to_index(&diff, repository.get(), head.get(), index.get(), &options),
          "HEAD and the index cannot be compared");
    const Diff owner(diff);
    for (std::size_t i = 0; i < git_diff_num_deltas(diff); ++i) {
        const git_diff_delta& delta = *git_diff_get_delta(diff, i);
        if (delta.status == GIT_DELTA_CONFLICTED) {
            continue;
        }
        staged.emplace(delta.old_file.path);
        if (delta.status == GIT_DELTA_DELETED) {
            stagedDeletions.emplace_back(delta.old_file.path);
        }
    }
    std::ranges::sort(stagedDeletions);
}

void GitRepository::Implementation::loadConflicts() {
    conflicted.clear();
    if (!git_index_has_conflicts(index.get())) {
        return;
    }
    git_index_conflict_iterator* iterator = nullptr;
    check(git_index_conflict_iterator_new(&iterator, index.get()), "conflicts cannot be read");
    const ConflictIterator owner(iterator);
    const git_index_entry* ancestor = nullptr;
    const git_index_entry* ours = nullptr;
    const git_index_entry* theirs = nullptr;
    while (git_index_conflict_next(&ancestor, &ours, &theirs, iterator) == 0) {
        for (const git_index_entry* side : {ancestor, ours, theirs}) {
            if (side != nullptr) {
                conflicted.emplace(side->path);
            }
        }
    }
}

GitRepository::Known GitRepository::stateOf(const Found& file) {
    auto& my = *implementation_;
    Known known;
    FileState& state = known.state;
    known.identity = identityOf(file.path);
    state.isConflicted = my.conflicted.contains(file.path);
    state.isStaged = my.staged.contains(file.path);
    if (const git_index_entry* entry = my.entry(file.path)) {
        state.isCheckedOut = (entry->flags & GIT_INDEX_ENTRY_VALID) != 0 ||
                             (entry->flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE) != 0;
        // Such a mark asks git not to look whether the file was changed; nor does anybody here.
        state.isChanged = !state.isCheckedOut && my.isChanged(file, *entry);
    } else if (!state.isConflicted) {
        const mode_t mode = file.item.st_mode;
        const bool isKindOfGit = S_ISREG(mode) || S_ISLNK(mode) || S_ISDIR(mode);
        state.isIgnored = !isKindOfGit || file.isIgnored;
        state.isUntracked = !state.isIgnored;
    }
    return known;
}

FileState GitRepository::stateOfDeleted(const std::string& path) const {
    const auto& my = *implementation_;
    FileState state;
    state.isOnDisk = false;
    state.isConflicted = my.conflicted.contains(path);
    state.isStaged = my.staged.contains(path);
    if (const git_index_entry* entry = my.entry(path)) {
        state.isCheckedOut = (entry->flags & GIT_INDEX_ENTRY_VALID) != 0 ||
                             (entry->flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE) != 0;
        state.isChanged = !state.isCheckedOut;
    }
    return state;
}

bool GitRepository::Implementation::isChanged(const Found& file, const git_index_entry& entry) {
    const struct stat& item = file.item;
    if (entry.mode == GIT_FILEMODE_COMMIT) {
        return !S_ISDIR(item.st_mode) || isSubmoduleChanged(file.path);
    }
    if (S_ISLNK(item.st_mode) != (entry.mode == GIT_FILEMODE_LINK) ||
        (!S_ISLNK(item.st_mode) && !S_ISREG(item.st_mode))) {
        return true;
    }
    const bool isExecutable = (item.st_mode & S_IXUSR) != 0;
    if (trustsMode && S_ISREG(item.st_mode) &&
        isExecutable != (entry.mode == GIT_FILEMODE_BLOB_EXECUTABLE)) {
        return true;
    }
    // A file written in the very moment in which the index was may have changed after it
    // (git's "racy" files); only its content can tell.
    const bool isRacy = entry.mtime.seconds > indexModified.tv_sec ||
                        (entry.mtime.seconds == indexModified.tv_sec &&
                         (entry.mtime.nanoseconds == 0 || // not every git notes them
                          entry.mtime.nanoseconds >= indexModified.tv_nsec));
    if (isUntouched(entry, item) && !isRacy) {
        return false;
    }
    // The index notes the size that the file had in the work tree, so that a file of another size
    // need not be read, whatever is converted on the way; git judges so too. It notes 0 for what
    // it asks to look at, and for an empty file.
    if (entry.file_size != static_cast<std::uint32_t>(item.st_size) &&
        (entry.file_size != 0 || isEmptyBlob(entry.id))) {
        return true;
    }
    return hasOtherContent(file, entry.id);
}

bool GitRepository::Implementation::hasOtherContent(const Found& file, const git_oid& indexed) {
    const Fingerprint fingerprint = Fingerprint::of(indexed, file.item);
    if (const auto found = read.find(file.path);
        found != read.end() && found->second.first == fingerprint) {
        return found->second.second;
    }
    git_oid onDisk{};
    const bool isOther = !hashFile(onDisk, file) || !git_oid_equal(&onDisk, &indexed);
    if (read.size() > git_index_entrycount(index.get()) + kSpareRead) {
        read.clear(); // most are of files that have gone
    }
    read[file.path] = {fingerprint, isOther};
    return isOther;
}

/// False when the file cannot be read, or is not the regular file any more that was looked at.
bool GitRepository::Implementation::hashFile(git_oid& hash, const Found& file) const {
    if (S_ISLNK(file.item.st_mode)) {
        std::array<char, PATH_MAX> target{};
        const ssize_t length = readlinkat(file.folder, file.name, target.data(), target.size());
        return length >= 0 && git_odb_hash(&hash, target.data(), static_cast<std::size_t>(length),
                                           GIT_OBJECT_BLOB) == 0;
    }
    const OwnedFd opened(
        openat(file.folder, file.name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
    struct stat item{};
    if (!opened || fstat(opened.get(), &item) != 0 || !S_ISREG(item.st_mode)) {
        return false;
    }
    // By the descriptor, which holds the file that was looked at, however long its path is.
    const std::string path = fmt::format("/proc/self/fd/{}", opened.get());
    return git_repository_hashfile(&hash, repository.get(), path.c_str(), GIT_OBJECT_BLOB,
                                   file.mayConvert ? file.path.c_str() : "") == 0;
}

bool GitRepository::Implementation::isSubmoduleChanged(const std::string& path) const {
    unsigned int status = 0;
    if (git_submodule_status(&status, repository.get(), path.c_str(),
                             GIT_SUBMODULE_IGNORE_UNSPECIFIED) < 0) {
        return false;
    }
    constexpr unsigned int kChanges =
        GIT_SUBMODULE_STATUS_WD_MODIFIED | GIT_SUBMODULE_STATUS_WD_INDEX_MODIFIED |
        GIT_SUBMODULE_STATUS_WD_WD_MODIFIED | GIT_SUBMODULE_STATUS_WD_UNTRACKED;
    return (status & kChanges) != 0;
}

GitRepository::Settings GitRepository::settings() const {
    const auto& my = *implementation_;
    Settings settings;
    settings.ignoreFiles.push_back(my.commonFolder + "/info/exclude");
    std::vector<std::string> attributes{my.commonFolder + "/info/attributes", "/etc/gitattributes"};
    git_config* config = nullptr;
    const bool isRead = git_repository_config_snapshot(&config, my.repository.get()) == 0;
    const Config owner(config);
    const auto pathOr = [&](const char* name, const char* standard) {
        git_buf path = GIT_BUF_INIT;
        if (isRead && git_config_get_path(&path, config, name) == 0) {
            const std::string text(path.ptr, path.size);
            git_buf_dispose(&path);
            return text;
        }
        return userFile(standard);
    };
    settings.ignoreFiles.push_back(pathOr("core.excludesfile", "ignore"));
    attributes.push_back(pathOr("core.attributesfile", "attributes"));
    if (isRead) {
        int ignoresCase = 0;
        git_config_get_bool(&ignoresCase, config, "core.ignorecase");
        settings.ignoresCase = ignoresCase != 0;
        const char* conversion = nullptr;
        settings.mayConvert = git_config_get_string(&conversion, config, "core.autocrlf") == 0 &&
                              std::string_view(conversion) != "false";
    }
    for (const std::string& file : attributes) {
        settings.mayConvert = settings.mayConvert || access(file.c_str(), F_OK) == 0;
    }
    return settings;
}

const void* GitRepository::identityOf(const std::string& path) const {
    const auto& my = *implementation_;
    if (const git_index_entry* entry = my.entry(path)) {
        return entry;
    }
    if (const auto conflict = my.conflicted.find(path); conflict != my.conflicted.end()) {
        return &*conflict;
    }
    const auto deleted = std::ranges::lower_bound(my.stagedDeletions, path);
    return deleted != my.stagedDeletions.end() && *deleted == path ? &*deleted : nullptr;
}

bool GitRepository::isSubmodule(const std::string& path) const {
    const git_index_entry* entry = implementation_->entry(path);
    return entry != nullptr && entry->mode == GIT_FILEMODE_COMMIT;
}

bool GitRepository::Implementation::isIndexed(const std::string& prefix,
                                              std::size_t* position) const {
    return git_index_find_prefix(position, index.get(), prefix.c_str()) == 0;
}

bool GitRepository::hasIndexedBelow(const std::string& folder) const {
    return implementation_->isIndexed(folder + "/", nullptr);
}

bool GitRepository::hasKnownBelow(const std::string& folder) const {
    const auto& my = *implementation_;
    const std::string prefix = folder + "/";
    const auto deleted = std::ranges::lower_bound(my.stagedDeletions, prefix);
    return my.isIndexed(prefix, nullptr) ||
           (deleted != my.stagedDeletions.end() && deleted->starts_with(prefix));
}

void GitRepository::forEachKnownFile(
    const std::string& path,
    const std::function<void(const std::string&, const void*)>& visit) const {
    const auto& my = *implementation_;
    const std::string prefix = path.empty() ? "" : path + "/";
    if (const void* identity = identityOf(path)) {
        visit(path, identity);
    }
    std::size_t position = 0;
    if (!prefix.empty() && !my.isIndexed(prefix, &position)) {
        position = git_index_entrycount(my.index.get());
    }
    std::string last;
    for (; position < git_index_entrycount(my.index.get()); ++position) {
        const git_index_entry& entry = *git_index_get_byindex(my.index.get(), position);
        const std::string_view file = entry.path;
        if (!file.starts_with(prefix)) {
            break;
        }
        // The sides of a conflict stand one after another under one path.
        if (file == last) {
            continue;
        }
        last = file;
        const auto side = my.conflicted.find(last);
        const bool isOfConflict =
            git_index_entry_stage(&entry) != GIT_INDEX_STAGE_NORMAL && side != my.conflicted.end();
        visit(last, isOfConflict ? static_cast<const void*>(&*side) : &entry);
    }
    for (auto deleted = std::ranges::lower_bound(my.stagedDeletions, prefix);
         deleted != my.stagedDeletions.end() && deleted->starts_with(prefix); ++deleted) {
        visit(*deleted, &*deleted);
    }
}

/// git compares whole seconds: a change of equal length in the second in which the index was last
/// written can be told from its content only, and git looks at that as long as the index is as old
/// as the file. A new index is younger, so the change has to show in it: in a size that asks git to
/// look. libgit2 does as much for what is racy by its nanoseconds.
void GitRepository::Implementation::smudgeRacyEntries() {
    std::vector<std::string> changed;
    for (std::size_t i = 0; i < git_index_entrycount(index.get()); ++i) {
        const git_index_entry& entry = *git_index_get_byindex(index.get(), i);
        struct stat item{};
        if (entry.mtime.seconds >= indexModified.tv_sec && entry.file_size != 0 &&
            git_index_entry_stage(&entry) == GIT_INDEX_STAGE_NORMAL &&
            (entry.flags & GIT_INDEX_ENTRY_VALID) == 0 &&
            (entry.flags_extended & GIT_INDEX_ENTRY_SKIP_WORKTREE) == 0 &&
            lstat(absolute(entry.path).c_str(), &item) == 0) {
            const std::string path = entry.path;
            const std::string whole = absolute(path);
            if (isChanged({path, item, AT_FDCWD, whole.c_str(), false, true}, entry)) {
                changed.push_back(path);
            }
        }
    }
    for (const std::string& path : changed) {
        git_index_entry smudged = *entry(path);
        smudged.path = path.c_str();
        smudged.file_size = 0;
        check(git_index_add(index.get(), &smudged), fmt::format("{} cannot be marked", path));
    }
}

void GitRepository::Implementation::writeIndex() {
    smudgeRacyEntries();
    check(git_index_write(index.get()), "the index cannot be written");
}

void GitRepository::stage(const std::vector<std::string>& paths) {
    auto& my = *implementation_;
    std::optional<GitError> refusal;
    for (const std::string& path : paths) {
        struct stat item{};
        const bool isThere = lstat(my.absolute(path).c_str(), &item) == 0;
        const int code = isThere ? git_index_add_bypath(my.index.get(), path.c_str())
                                 : git_index_remove_bypath(my.index.get(), path.c_str());
        if (code < 0 && !refusal) {
            // The rest is staged all the same.
            try {
                fail(fmt::format("{} cannot be staged", path), code);
            } catch (const GitError& error) {
                refusal = error;
            }
        }
    }
    my.writeIndex();
    if (refusal) {
        throw *refusal;
    }
}

void GitRepository::unstage(const std::vector<std::string>& paths) {
    auto& my = *implementation_;
    // By hand: the library's reset takes paths for patterns.
    for (const std::string& path : paths) {
        git_index_conflict_remove(my.index.get(), path.c_str());
        git_tree_entry* inHead = nullptr;
        if (my.head == nullptr ||
            git_tree_entry_bypath(&inHead, my.head.get(), path.c_str()) != 0) {
            git_index_remove(my.index.get(), path.c_str(), GIT_INDEX_STAGE_NORMAL);
            continue;
        }
        const TreeEntry owner(inHead);
        git_index_entry entry{};
        entry.path = path.c_str();
        entry.mode = git_tree_entry_filemode(inHead);
        entry.id = *git_tree_entry_id(inHead);
        check(git_index_add(my.index.get(), &entry), fmt::format("{} cannot be unstaged", path));
    }
    my.writeIndex();
}

void GitRepository::setCheckedOut(const std::vector<std::string>& paths, bool isCheckedOut) {
    auto& my = *implementation_;
    for (const std::string& path : paths) {
        const git_index_entry* found = my.entry(path);
        if (found == nullptr) {
            continue;
        }
        git_index_entry entry = *found;
        entry.path = path.c_str();
        if (isCheckedOut) {
            entry.flags |= GIT_INDEX_ENTRY_VALID;
        } else {
            entry.flags &= static_cast<std::uint16_t>(~GIT_INDEX_ENTRY_VALID);
            entry.flags_extended &= static_cast<std::uint16_t>(~GIT_INDEX_ENTRY_SKIP_WORKTREE);
        }
        check(git_index_add(my.index.get(), &entry), fmt::format("{} cannot be marked", path));
    }
    my.writeIndex();
}

std::string GitRepository::changes(const std::vector<std::string>& paths) const {
    const auto& my = *implementation_;
    std::vector<char*> strings = pointers(paths);
    git_diff_options options{};
    git_diff_options_init(&options, GIT_DIFF_OPTIONS_VERSION);
    options.flags = GIT_DIFF_DISABLE_PATHSPEC_MATCH | GIT_DIFF_INCLUDE_UNTRACKED |
                    GIT_DIFF_RECURSE_UNTRACKED_DIRS | GIT_DIFF_SHOW_UNTRACKED_CONTENT |
                    GIT_DIFF_INCLUDE_TYPECHANGE;
    options.pathspec = asArray(strings);
    git_diff* diff = nullptr;
    check(git_diff_tree_to_workdir_with_index(&diff, my.repository.get(), my.head.get(), &options),
          "the changes cannot be read");
    const Diff owner(diff);
    git_buf text = GIT_BUF_INIT;
    check(git_diff_to_buf(&text, diff, GIT_DIFF_FORMAT_PATCH), "the changes cannot be shown");
    std::string result(text.ptr, text.size);
    git_buf_dispose(&text);
    return result;
}

} // namespace corvid
