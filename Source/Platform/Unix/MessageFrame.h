#pragma once

#include "Core/Base/Bytes.h"
#include "Platform/Interfaces/MessagePortService.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

// The bytes of a message between two processes: a header, then the data. All numbers are
// little-endian. docs/message-port-protocol.md explains them for other languages.
//
//   offset  size
//    0      4     "CVMP"
//    4      1     version of the sender
//    5      1     oldest version that can read this frame
//    6      2     bytes of this header; what lies beyond those known here is skipped
//    8      1     kind: 1 request, 2 reply
//    9      1     flags: 1 data present, 2 reply wanted (request), 4 refused (reply)
//   10      2     0
//   12      4     message identifier, signed; a reply repeats that of its request
//   16      8     number of the request; a reply repeats it
//   24      4     bytes of data

namespace corvid {

constexpr std::uint8_t kFrameVersion = 1;
constexpr std::size_t kFrameHeaderBytes = 28;
/// A later version may use that much.
constexpr std::size_t kMaxFrameHeaderBytes = 1024;
/// Of one payload or reply.
constexpr std::size_t kMaxFrameDataBytes = kMaxMessageBytes;

enum class FrameKind : std::uint8_t { request = 1, reply = 2 };

struct FrameHeader {
    std::uint8_t version = kFrameVersion;
    std::uint8_t oldestReader = 1;
    std::uint16_t headerBytes = kFrameHeaderBytes;
    FrameKind kind = FrameKind::request;
    bool hasData = false;
    bool wantsReply = false;
    bool isRefusal = false;
    std::int32_t messageID = 0;
    /// The requester's own, told back in the reply.
    std::uint64_t number = 0;
    std::uint32_t dataBytes = 0;

    friend bool operator==(const FrameHeader&, const FrameHeader&) = default;
};

/// The first kFrameHeaderBytes of a frame; a caller that announces more writes them itself.
std::array<std::uint8_t, kFrameHeaderBytes> encodedHeader(const FrameHeader& header);

/// Reads the first kFrameHeaderBytes of a frame that may come from anyone. Nothing when they are
/// not the beginning of a frame, or announce more than the bounds above. A frame that `version`
/// cannot read is returned: `oldestReader` says so.
std::optional<FrameHeader> decodedHeader(ByteView bytes);

} // namespace corvid
