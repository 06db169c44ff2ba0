#pragma once

#include "Platform/Unix/MessageFrame.h"

#include <cstdint>
#include <span>

namespace corvid {

/// Puts one frame together from the bytes of a stream, as they come. Trusts none of them, and
/// takes memory for data that has come, never for data that is only announced. One thread.
class FrameReader {
public:
    enum class State {
        header,     ///< the header is not whole yet
        data,       ///< the header is there, the data is not whole
        complete,   ///< the frame is whole and nothing follows it
        unreadable, ///< a frame, but only for a later version: the header is there
        refused,    ///< not a frame, or more than one
    };

    /// `version`: that of the reader; another than kFrameVersion only in tests.
    explicit FrameReader(std::uint8_t version = kFrameVersion) : version_(version) {}

    State state() const { return state_; }
    /// What the frame says of itself; from the state `data` on.
    const FrameHeader& header() const { return header_; }
    /// Whether anything has come.
    bool hasBegun() const { return taken_ > 0; }
    /// How many bytes have come.
    std::size_t takenBytes() const { return taken_ + dataTaken_; }

    /// Takes the next `bytes`, any number. This and space() throw std::bad_alloc when there is no
    /// memory; the frame cannot be read on then.
    State feed(ByteView bytes);

    /// In the state `data`: where the next bytes may be read to directly, one at least and no more
    /// than the frame still needs. Valid until the next call. received() says how many came.
    std::span<std::uint8_t> space();
    State received(std::size_t count);

    /// The data of a complete frame, once.
    Bytes takeData();

private:
    void takeHeader();

    std::uint8_t version_;
    State state_ = State::header;
    FrameHeader header_;
    std::array<std::uint8_t, kFrameHeaderBytes> headerBytes_{};
    std::size_t taken_ = 0; ///< bytes of the header, skipped ones included
    Bytes data_;
    std::size_t dataTaken_ = 0;
};

} // namespace corvid
