#pragma once

#include "Core/Base/Bytes.h"
#include "Platform/Unix/MessageFrame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace corvid {

/// Writes one frame to a socket, as far as that takes it. Borrows the data. One thread.
class FrameWriter {
public:
    /// With nothing to write.
    FrameWriter() = default;
    FrameWriter(const FrameHeader& header, ByteView data)
        : header_(encodedHeader(header)), data_(data), left_(header_.size() + data.size()) {}

    bool hasBegun() const { return left_ < header_.size() + data_.size(); }
    bool isDone() const { return left_ == 0; }
    /// How many bytes have been written.
    std::size_t writtenBytes() const {
        return left_ == 0 ? 0 : header_.size() + data_.size() - left_;
    }

    /// Writes on, once and without waiting; the result and `errno` of send(2).
    ssize_t write(int socket);

private:
    std::array<std::uint8_t, kFrameHeaderBytes> header_{};
    ByteView data_;
    std::size_t left_ = 0;
};

} // namespace corvid
