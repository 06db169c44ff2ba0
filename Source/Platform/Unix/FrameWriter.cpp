#include "Platform/Unix/FrameWriter.h"

#include <algorithm>
#include <sys/socket.h>
#include <sys/uio.h>

namespace corvid {

namespace {

// To copy so little costs less than to have the system gather two pieces.
constexpr std::size_t kJoinedBytes = std::size_t{4} << 10U;

constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

} // namespace

ssize_t FrameWriter::write(int socket) {
    ssize_t count = -1;
    if (!hasBegun() && left_ <= kJoinedBytes) {
        std::array<std::uint8_t, kJoinedBytes> joined;
        std::copy(data_.begin(), data_.end(),
                  std::copy(header_.begin(), header_.end(), joined.begin()));
        count = send(socket, joined.data(), left_, kFlags);
    } else {
        const std::size_t ofData = std::min(left_, data_.size());
        const std::size_t ofHeader = left_ - ofData;
        // sendmsg() does not write to what it is given.
        auto* const data = const_cast<std::uint8_t*>(data_.data());
        std::array<iovec, 2> parts{iovec{header_.data() + header_.size() - ofHeader, ofHeader},
                                   iovec{data + data_.size() - ofData, ofData}};
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = parts.size();
        count = sendmsg(socket, &message, kFlags);
    }
    if (count > 0) {
        left_ -= static_cast<std::size_t>(count);
    }
    return count;
}

} // namespace corvid
