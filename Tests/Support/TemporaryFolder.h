#pragma once

#include <filesystem>
#include <string>

namespace corvid {

/// A new, empty folder for the life of the object; then it is removed with all that it holds.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Absolute, without a final "/", and without links on the way.
    const std::string& path() const { return path_; }
    /// The path of `name` in it.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

} // namespace corvid
