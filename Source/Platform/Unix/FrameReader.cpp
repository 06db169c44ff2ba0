#include "Platform/Unix/FrameReader.h"

#include <algorithm>
#include <utility>

namespace corvid {

namespace {

// What is made ready for one read: a socket's buffer holds about as much.
constexpr std::size_t kStepBytes = std::size_t{256} << 10U;

} // namespace

FrameReader::State FrameReader::feed(ByteView bytes) {
    while (state_ == State::header && !bytes.empty()) {
        // Beyond the known part of the header lies what a later version put there.
        const bool isKnownPart = taken_ < kFrameHeaderBytes;
        const std::size_t end = isKnownPart ? kFrameHeaderBytes : header_.headerBytes;
        const std::size_t count = std::min(end - taken_, bytes.size());
        if (isKnownPart) {
            std::copy_n(bytes.begin(), count,
                        headerBytes_.begin() + static_cast<std::ptrdiff_t>(taken_));
        }
        taken_ += count;
        bytes = bytes.subspan(count);
        takeHeader();
    }
    if (bytes.empty() || state_ == State::unreadable || state_ == State::refused) {
        return state_;
    }
    if (bytes.size() > header_.dataBytes - dataTaken_) {
        return state_ = State::refused;
    }
    data_.resize(dataTaken_);
    data_.insert(data_.end(), bytes.begin(), bytes.end());
    return received(bytes.size());
}

void FrameReader::takeHeader() {
    if (taken_ < kFrameHeaderBytes) {
        return;
    }
    if (taken_ == kFrameHeaderBytes) {
        const auto decoded = decodedHeader(headerBytes_);
        if (!decoded) {
            state_ = State::refused;
            return;
        }
        header_ = *decoded;
        if (header_.oldestReader > version_) {
            state_ = State::unreadable;
            return;
        }
    }
    if (taken_ == header_.headerBytes) {
        state_ = header_.dataBytes == 0 ? State::complete : State::data;
    }
}

std::span<std::uint8_t> FrameReader::space() {
    const std::size_t count = std::min<std::size_t>(kStepBytes, header_.dataBytes - dataTaken_);
    // Reserved memory is only touched, and so only used, as the data comes.
    data_.reserve(header_.dataBytes);
    data_.resize(dataTaken_ + count);
    return std::span(data_).subspan(dataTaken_, count);
}

FrameReader::State FrameReader::received(std::size_t count) {
    dataTaken_ += count;
    if (dataTaken_ == header_.dataBytes) {
        state_ = State::complete;
    }
    return state_;
}

Bytes FrameReader::takeData() {
    data_.resize(dataTaken_);
    return std::exchange(data_, {});
}

} // namespace corvid
