#include "Benchmarks/Transport/BareSocket.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace corvid::bench {

namespace {

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

void sendAll(int fd, const Bytes& bytes) {
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count < 0) {
            fail("send");
        }
        sent += static_cast<std::size_t>(count);
    }
}

void receiveAll(int fd, std::uint8_t* bytes, std::size_t size) {
    for (std::size_t received = 0; received < size;) {
        const ssize_t count = recv(fd, bytes + received, size - received, 0);
        if (count <= 0) {
            fail("recv");
        }
        received += static_cast<std::size_t>(count);
    }
}

} // namespace

BareServer::BareServer(const std::string& path)
    : path_(path), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = addressOf(path);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 64) != 0) {
        fail("listen");
    }
}

BareServer::~BareServer() {
    close(listener_);
    unlink(path_.c_str());
}

void BareServer::answer(std::size_t requestBytes, const Bytes& reply) {
    Bytes request(requestBytes);
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        receiveAll(fd, request.data(), request.size());
        // A server makes each reply anew, as the callback of a message port does.
        const Bytes made = reply;
        sendAll(fd, made);
        close(fd);
    }
}

void BareServer::take(std::size_t requestBytes, std::size_t count) {
    Bytes request(requestBytes);
    for (std::size_t i = 0; i < count; ++i) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        receiveAll(fd, request.data(), request.size());
        close(fd);
    }
}

void bareRequest(const std::string& path, const Bytes& request, std::uint8_t* reply,
                 std::size_t replyBytes) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("connect");
    }
    sendAll(fd, request);
    receiveAll(fd, reply, replyBytes);
    close(fd);
}

} // namespace corvid::bench
