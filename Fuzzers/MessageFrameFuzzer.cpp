// The reader of message frames: any bytes, in pieces of any size.

#include "Platform/Unix/FrameReader.h"

#include <algorithm>
#include <cstdlib>

namespace {

using corvid::Bytes;
using corvid::ByteView;
using corvid::FrameReader;

struct Result {
    FrameReader::State state;
    Bytes data;
    friend bool operator==(const Result&, const Result&) = default;
};

// As a socket would hand them over: through feed() until the header is whole, then directly.
Result readInPieces(ByteView bytes, std::size_t piece) {
    FrameReader reader;
    while (!bytes.empty() && reader.state() != FrameReader::State::refused &&
           reader.state() != FrameReader::State::unreadable) {
        std::size_t count = std::min(piece, bytes.size());
        if (reader.state() == FrameReader::State::data) {
            const auto space = reader.space();
            count = std::min(count, space.size());
            std::copy_n(bytes.begin(), count, space.begin());
            reader.received(count);
        } else {
            reader.feed(bytes.first(count));
        }
        bytes = bytes.subspan(count);
    }
    return {reader.state(),
            reader.state() == FrameReader::State::complete ? reader.takeData() : Bytes()};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const ByteView bytes(data + 1, size - 1);
    const Result whole = readInPieces(bytes, bytes.size());
    const Result pieces = readInPieces(bytes, std::size_t{data[0]} % 64 + 1);
    // However it is cut, the same comes of it.
    if (!(whole == pieces)) {
        std::abort();
    }
    if (const auto header = corvid::decodedHeader(bytes)) {
        const auto again = corvid::decodedHeader(corvid::encodedHeader(*header));
        if (again != header) {
            std::abort();
        }
    }
    return 0;
}
