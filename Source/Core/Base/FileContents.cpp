#include "Core/Base/FileContents.h"

#include <array>
#include <cerrno>
#include <memory>

namespace corvid {

namespace {

struct CloseFile {
    void operator()(std::FILE* file) const {
        const int error = errno;
        std::fclose(file);
        errno = error;
    }
};

} // namespace

std::optional<std::string> readFile(const std::string& path) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    return file != nullptr ? readToEnd(file.get()) : std::nullopt;
}

std::optional<std::string> readToEnd(std::FILE* file) {
    std::string contents;
    std::array<char, std::size_t{64} << 10U> piece;
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file)) {
        contents.append(piece.data(), count);
    }
    return std::ferror(file) == 0 ? std::optional(std::move(contents)) : std::nullopt;
}

} // namespace corvid
