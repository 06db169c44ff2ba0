#include "Support/TarGzWriter.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <zlib.h>

namespace corvid {

namespace {

constexpr std::size_t kBlockSize = 512;
constexpr std::size_t kLongestName = 100;

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
    throw std::runtime_error("cannot write " + path + ": " + reason);
}

} // namespace

struct TarGzWriter::Stream {
    gzFile file;
};

TarGzWriter::TarGzWriter(const std::string& path) : path_(path) {
    const int descriptor =
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        fail(path, std::strerror(errno));
    }
    gzFile file = gzdopen(descriptor, "wb9");
    if (file == nullptr) {
        close(descriptor);
        unlink(path.c_str());
        fail(path, "out of memory");
    }
    stream_ = std::make_unique<Stream>(Stream{file});
}

TarGzWriter::~TarGzWriter() {
    if (stream_ != nullptr) {
        gzclose(stream_->file);
        unlink(path_.c_str());
    }
}

void TarGzWriter::add(std::string_view name, std::string_view contents,
                      std::chrono::system_clock::time_point modified) {
    if (name.size() > kLongestName) {
        fail(path_, "the name " + std::string(name) + " is too long for an archive");
    }
    // The fields of the header: POSIX.1-2017, pax, "ustar Interchange Format".
    std::array<char, kBlockSize> header{};
    const auto put = [&header](std::size_t offset, std::string_view text) {
        std::memcpy(header.data() + offset, text.data(), text.size());
    };
    const auto octal = [](std::uint64_t value, int digits) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%0*llo", digits,
                      static_cast<unsigned long long>(value));
        return std::string(text.data());
    };
    put(0, name);
    put(100, "0000600");
    put(108, "0000000");
    put(116, "0000000");
    put(124, octal(contents.size(), 11));
    put(136, octal(static_cast<std::uint64_t>(std::chrono::system_clock::to_time_t(modified)), 11));
    put(148, "        ");
    put(156, "0");
    put(257, std::string_view("ustar\00000", 8));
    std::uint64_t sum = 0;
    for (const char byte : header) {
        sum += static_cast<unsigned char>(byte);
    }
    put(148, octal(sum, 6));
    header[154] = '\0';

    write({header.data(), header.size()});
    write(contents);
    write(std::string((kBlockSize - contents.size() % kBlockSize) % kBlockSize, '\0'));
}

void TarGzWriter::finish() {
    write(std::string(2 * kBlockSize, '\0'));
    gzFile file = stream_->file;
    stream_.reset();
    if (gzclose(file) != Z_OK) {
        unlink(path_.c_str());
        fail(path_, std::strerror(errno));
    }
}

void TarGzWriter::write(std::string_view bytes) {
    if (gzfwrite(bytes.data(), 1, bytes.size(), stream_->file) != bytes.size()) {
        fail(path_, std::strerror(errno));
    }
}

} // namespace corvid
