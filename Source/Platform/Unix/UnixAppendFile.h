#pragma once

#include "Platform/Interfaces/FileManager.h"

namespace corvid {

/// An append-only file on a POSIX file system, of any system that has one.
class UnixAppendFile final : public AppendFile {
public:
    /// As FileManager::createFileAtPath().
    static std::unique_ptr<AppendFile> create(const std::string& path, std::error_code& error);

    ~UnixAppendFile() override;
    UnixAppendFile(const UnixAppendFile&) = delete;
    UnixAppendFile& operator=(const UnixAppendFile&) = delete;

    Appended append(std::string_view bytes) noexcept override;
    std::error_code truncate(std::uint64_t size) override;
    bool isAtPath(const std::string& path) const override;

private:
    /// Takes over `descriptor`.
    explicit UnixAppendFile(int descriptor) : descriptor_(descriptor) {}

    const int descriptor_;
};

} // namespace corvid
