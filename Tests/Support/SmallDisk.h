#pragma once

#include <string>

namespace corvid {

/// A file system in memory of 64 KiB and 64 files, for the life of the object. Only root can make
/// one; a test that gets none is to be skipped with the reason.
class SmallDisk {
public:
    /// Mounts it on `path`, a folder that is made when it is missing.
    explicit SmallDisk(std::string path);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool isMounted() const { return isMounted_; }
    const std::string& reason() const { return reason_; }
    void setReadOnly(bool isReadOnly);

    /// Takes all the space that is left, or all the places for files, with files of its own in the
    /// topmost folder.
    void fillSpace();
    void fillPlaces();
    /// Removes these files.
    void empty();

private:
    std::string ballast(int number) const;

    const std::string path_;
    bool isMounted_ = false;
    std::string reason_;
    int ballasts_ = 0;
};

} // namespace corvid
