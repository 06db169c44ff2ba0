#include "Platform/Unix/MessageFrame.h"

#include <algorithm>
#include <span>

namespace corvid {

namespace {

constexpr std::array<std::uint8_t, 4> kMagic{'C', 'V', 'M', 'P'};
constexpr std::uint8_t kHasData = 1;
constexpr std::uint8_t kWantsReply = 2;
constexpr std::uint8_t kIsRefusal = 4;

void put(std::span<std::uint8_t> bytes, std::uint64_t value) {
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(value & 0xFFU);
        value >>= 8U;
    }
}

std::uint64_t get(ByteView bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        value = (value << 8U) | bytes[i - 1];
    }
    return value;
}

} // namespace

std::array<std::uint8_t, kFrameHeaderBytes> encodedHeader(const FrameHeader& header) {
    std::array<std::uint8_t, kFrameHeaderBytes> bytes{};
    const std::span all(bytes);
    std::copy(kMagic.begin(), kMagic.end(), bytes.begin());
    bytes[4] = header.version;
    bytes[5] = header.oldestReader;
    put(all.subspan(6, 2), header.headerBytes);
    bytes[8] = static_cast<std::uint8_t>(header.kind);
    bytes[9] = static_cast<std::uint8_t>((header.hasData ? kHasData : 0U) |
                                         (header.wantsReply ? kWantsReply : 0U) |
                                         (header.isRefusal ? kIsRefusal : 0U));
    put(all.subspan(12, 4), static_cast<std::uint32_t>(header.messageID));
    put(all.subspan(16, 8), header.number);
    put(all.subspan(24, 4), header.dataBytes);
    return bytes;
}

std::optional<FrameHeader> decodedHeader(ByteView bytes) {
    if (bytes.size() < kFrameHeaderBytes ||
        !std::equal(kMagic.begin(), kMagic.end(), bytes.begin())) {
        return std::nullopt;
    }
    FrameHeader header;
    header.version = bytes[4];
    header.oldestReader = bytes[5];
    header.headerBytes = static_cast<std::uint16_t>(get(bytes.subspan(6, 2)));
    header.kind = static_cast<FrameKind>(bytes[8]);
    header.hasData = (bytes[9] & kHasData) != 0;
    header.wantsReply = (bytes[9] & kWantsReply) != 0;
    header.isRefusal = (bytes[9] & kIsRefusal) != 0;
    header.messageID = static_cast<std::int32_t>(get(bytes.subspan(12, 4)));
    header.number = get(bytes.subspan(16, 8));
    header.dataBytes = static_cast<std::uint32_t>(get(bytes.subspan(24, 4)));

    const bool isFrame =
        header.version >= 1 && header.oldestReader >= 1 && header.oldestReader <= header.version &&
        header.headerBytes >= kFrameHeaderBytes && header.headerBytes <= kMaxFrameHeaderBytes &&
        (header.kind == FrameKind::request || header.kind == FrameKind::reply) &&
        header.dataBytes <= kMaxFrameDataBytes && (header.hasData || header.dataBytes == 0);
    return isFrame ? std::optional(header) : std::nullopt;
}

} // namespace corvid
