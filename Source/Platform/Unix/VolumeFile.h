#pragma once

#include "Platform/Unix/FolderWatcher.h"
#include "Platform/Unix/ForkClosedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

namespace corvid {

/// A local folder that stands for the volume, as a live process has published it.
struct PublishedVolume {
    std::string folder;   ///< absolute
    bool isFixed = false; ///< false: nobody named the folder, the publisher fell back to it
    pid_t process = 0;    ///< the publisher
};

/// The small file beside the ports in which a process says which local folder is the volume:
/// the folder, `fixed` or `default`, and the process, a line each. The publisher holds a lock on
/// the file for as long as it lives, so that a file without a lock counts as absent, and so that
/// there is one publisher at a time. Any thread.
class VolumeFile {
public:
    /// What a host application publishes, and what the extension does.
    static VolumeFile ofHost(RuntimeFolder folder);
    static VolumeFile ofExtension(RuntimeFolder folder);

    /// The right to publish; gives it up and removes the file when it goes. One thread at a time.
    class Publication {
    public:
        ~Publication();
        Publication(const Publication&) = delete;
        Publication& operator=(const Publication&) = delete;

        /// Publishes another folder in place of the last. Empty when done, else the problem.
        std::string update(const std::string& folder, bool isFixed);

        /// What has become of it.
        struct Kept {
            /// Who has published instead, after the file was removed. This gives way as long as
            /// that one lives.
            std::optional<PublishedVolume> other;
            std::string problem; ///< why it is not published now; empty when it is
        };
        /// Looks whether the file is still there, and puts it back when somebody has removed it.
        Kept keep();

    private:
        friend class VolumeFile;
        Publication(RuntimeFolder runtimeFolder, OwnedFd folder, std::string name);
        std::string write();
        bool isInPlace() const;

        RuntimeFolder runtimeFolder_;
        OwnedFd folder_;
        std::string name_;
        pid_t process_;
        std::string volume_;
        bool isFixed_ = false;
        ForkClosedFd file_; ///< none while another has published
    };

    /// What became of publish(): a publication; or who has published already; or a problem, which
    /// names the path, what is wrong and the remedy.
    struct Published {
        std::unique_ptr<Publication> publication;
        std::optional<PublishedVolume> existing;
        std::string problem;
    };
    /// Publishes `folder`, an absolute path without a newline.
    Published publish(const std::string& folder, bool isFixed) const;

    /// What a live process has published; nothing when there is none, or when it cannot be found
    /// out: then `problem`, if given, says why.
    std::optional<PublishedVolume> read(std::string* problem = nullptr) const;

    /// Calls `onChange` on `queue` with what read() says, once soon and whenever it has changed.
    /// As PortWatcher.
    class Watcher;
    using Callback = std::function<void(const std::optional<PublishedVolume>&)>;
    std::unique_ptr<Watcher> watch(DispatchQueue& queue, Callback onChange) const;

    /// Where it is.
    std::string path() const { return folder_.pathOf(name_); }

private:
    VolumeFile(RuntimeFolder folder, std::string name);

    RuntimeFolder folder_;
    std::string name_;
};

class VolumeFile::Watcher {
public:
    Watcher(VolumeFile file, DispatchQueue& queue, Callback onChange);

private:
    void look();

    VolumeFile file_;
    Callback onChange_;
    bool hasLooked_ = false;
    std::optional<PublishedVolume> last_;
    FolderWatcher watcher_; ///< last: it calls the rest
};

} // namespace corvid
