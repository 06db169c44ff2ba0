#include "Platform/Fake/FakeFileManager.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace corvid {

namespace {

/// The same file under "/a/b/" and "/a/b".
std::string withoutFinalSlash(const std::string& path) {
    return path.size() > 1 && path.back() == '/' ? path.substr(0, path.size() - 1) : path;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::error_code systemError(int number) {
    return {number, std::generic_category()};
}

} // namespace

/// An open file; it stays writable after its name is gone, as files do.
class FakeFileManager::OpenFile final : public AppendFile {
public:
    OpenFile(FakeFileManager& manager, std::shared_ptr<File> file)
        : manager_(manager), file_(std::move(file)) {}

    Appended append(std::string_view bytes) noexcept override {
        return manager_.append(*file_, bytes);
    }

    std::error_code truncate(std::uint64_t size) override {
        const MutexLock lock(manager_.mutex_);
        if (manager_.freeSpace_.has_value()) {
            *manager_.freeSpace_ += file_->contents.size() - size;
        }
        file_->contents.resize(size);
        return {};
    }

    bool isAtPath(const std::string& path) const override {
        const MutexLock lock(manager_.mutex_);
        const std::shared_ptr<File>* found = manager_.fileAt(path);
        return found != nullptr && *found == file_;
    }

private:
    FakeFileManager& manager_;
    const std::shared_ptr<File> file_;
};

FakeFileManager::FakeFileManager(CallLog& calls, const Clock& clock)
    : calls_(calls), clock_(clock),
      nodes_{{"/", Folder()}, {"/home", Folder()}, {"/home/me", Folder()}} {}

const std::shared_ptr<FakeFileManager::File>*
FakeFileManager::fileAt(const std::string& path) const {
    const auto found = nodes_.find(path);
    return found != nodes_.end() ? std::get_if<std::shared_ptr<File>>(&found->second) : nullptr;
}

bool FakeFileManager::isFolder(const std::string& path) const {
    const auto found = nodes_.find(withoutFinalSlash(path));
    return found != nodes_.end() && std::holds_alternative<Folder>(found->second);
}

FileManager::Existence FakeFileManager::fileExistsAtPath(const std::string& path) const {
    const MutexLock lock(mutex_);
    return {nodes_.contains(withoutFinalSlash(path)), isFolder(path)};
}

std::optional<std::string> FakeFileManager::createDirectoryAtPath(const std::string& path) {
    calls_.add("createDirectory " + path);
    const MutexLock lock(mutex_);
    const std::string whole = withoutFinalSlash(path);
    std::size_t end = 0;
    do {
        end = whole.find('/', end + 1);
        const std::string part = whole.substr(0, end);
        if (isFolder(part)) {
            continue;
        }
        const std::error_code reason =
            nodes_.contains(part) ? systemError(EEXIST) : creationFailure_;
        if (reason) {
            return "\"" + part + "\": " + reason.message();
        }
        nodes_.emplace(part, Folder());
    } while (end != std::string::npos);
    return std::nullopt;
}

std::unique_ptr<AppendFile> FakeFileManager::createFileAtPath(const std::string& path,
                                                              std::error_code& error) {
    calls_.add("createFile " + path);
    const MutexLock lock(mutex_);
    if (!isFolder(folderOf(path))) {
        error = systemError(nodes_.contains(folderOf(path)) ? ENOTDIR : ENOENT);
    } else if (nodes_.contains(path)) {
        error = systemError(EEXIST);
    } else {
        error = creationFailure_;
    }
    if (error) {
        return nullptr;
    }
    auto file = std::make_shared<File>(File{"", clock_.now()});
    nodes_.emplace(path, file);
    return std::make_unique<OpenFile>(*this, std::move(file));
}

std::vector<FileManager::RegularFile>
FakeFileManager::regularFilesOfDirectoryAtPath(const std::string& path,
                                               std::error_code& error) const {
    const MutexLock lock(mutex_);
    const std::string folder = withoutFinalSlash(path);
    if (!isFolder(folder)) {
        error = systemError(nodes_.contains(folder) ? ENOTDIR : ENOENT);
        return {};
    }
    error.clear();
    std::vector<RegularFile> files;
    for (const auto& [name, node] : nodes_) {
        const auto* file = std::get_if<std::shared_ptr<File>>(&node);
        if (file != nullptr && folderOf(name) == folder) {
            files.push_back(
                {name.substr(name.rfind('/') + 1), (*file)->contents.size(), (*file)->created});
        }
    }
    return files;
}

std::error_code FakeFileManager::removeItemAtPath(const std::string& path) {
    calls_.add("removeItem " + path);
    const MutexLock lock(mutex_);
    if (isFolder(path)) {
        return systemError(EISDIR);
    }
    return nodes_.erase(path) == 1 ? std::error_code() : systemError(ENOENT);
}

std::optional<std::string> FakeFileManager::applicationLibraryDirectory() const {
    const MutexLock lock(mutex_);
    return library_;
}

AppendFile::Appended FakeFileManager::append(File& file, std::string_view bytes) {
    const MutexLock lock(mutex_);
    AppendFile::Appended done;
    done.bytes =
        freeSpace_.has_value() ? std::min<std::uint64_t>(*freeSpace_, bytes.size()) : bytes.size();
    file.contents.append(bytes.substr(0, done.bytes));
    if (freeSpace_.has_value()) {
        *freeSpace_ -= done.bytes;
    }
    if (done.bytes < bytes.size()) {
        done.error = systemError(ENOSPC);
    }
    return done;
}

void FakeFileManager::setApplicationLibraryDirectory(std::optional<std::string> path) {
    const MutexLock lock(mutex_);
    library_ = std::move(path);
}

void FakeFileManager::putFile(const std::string& path, std::string contents) {
    const MutexLock lock(mutex_);
    nodes_.insert_or_assign(path, std::make_shared<File>(File{std::move(contents), clock_.now()}));
}

std::optional<std::string> FakeFileManager::contentsOfFile(const std::string& path) const {
    const MutexLock lock(mutex_);
    const std::shared_ptr<File>* file = fileAt(path);
    return file != nullptr ? std::optional<std::string>((*file)->contents) : std::nullopt;
}

void FakeFileManager::removeTree(const std::string& path) {
    const MutexLock lock(mutex_);
    std::erase_if(nodes_, [&path](const auto& entry) {
        return entry.first == path || entry.first.starts_with(path + "/");
    });
}

void FakeFileManager::failCreationWith(std::error_code reason) {
    const MutexLock lock(mutex_);
    creationFailure_ = reason;
}

void FakeFileManager::setFreeSpace(std::optional<std::uint64_t> bytes) {
    const MutexLock lock(mutex_);
    freeSpace_ = bytes;
}

} // namespace corvid
