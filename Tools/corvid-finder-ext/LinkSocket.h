#pragma once

#include "Platform/Unix/OwnedFd.h"
#include "Platform/Unix/RuntimeFolder.h"

#include <string>
#include <sys/types.h>
#include <utility>

namespace corvid {

/// The socket in the runtime folder at which the extension is found by front ends. One thread at a
/// time.
class LinkSocket {
public:
    explicit LinkSocket(RuntimeFolder folder) : folder_(std::move(folder)) {}

    /// Makes it, and the folder if need be, in place of one that is there. Without a descriptor
    /// `problem` says why.
    OwnedFd open(std::string& problem);
    /// False when it was removed, or another is in its place.
    bool isInPlace() const;
    /// Removes it; not another one in its place.
    void remove() const;

private:
    RuntimeFolder folder_;
    // Of its file: an open socket keeps them, so that no other can be taken for it.
    ino_t inode_ = 0;
    dev_t device_ = 0;
};

} // namespace corvid
