#include "bench/client_socket.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "bench/frame_pattern.h"
#include "common/clock.h"

namespace {

constexpr int64_t kStartLimitNs = 20000000000LL; // for a server that is starting on a busy machine

} // namespace

UniqueFd ConnectTo(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (const int64_t limit = MonotonicNs() + kStartLimitNs; MonotonicNs() < limit; SleepMs(20)) {
        UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            return fd;
    }
    throw std::runtime_error(std::string("connecting: ") + strerror(errno));
}

void SendAll(int fd, const void* data, size_t bytes)
{
    if (send(fd, data, bytes, MSG_NOSIGNAL) != static_cast<ssize_t>(bytes))
        throw std::runtime_error(std::string("sending a request: ") + strerror(errno));
}

void ReadExactly(int fd, uint8_t* to, size_t bytes)
{
    const int64_t limit = MonotonicNs() + kStartLimitNs;
    for (size_t got = 0; got < bytes;) {
        pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
        const int64_t leftMs = (limit - MonotonicNs()) / 1000000;
        if (leftMs <= 0 || poll(&ready, 1, static_cast<int>(leftMs)) == 0)
            throw std::runtime_error("a request is not answered");
        const ssize_t part = recv(fd, to + got, bytes - got, 0);
        if (part <= 0)
            throw std::runtime_error("the server closed a connection during the set-up");
        got += static_cast<size_t>(part);
    }
}

std::string ReadUpTo(int fd, const std::string& end, size_t limit)
{
    std::string text;
    while (!text.ends_with(end)) {
        if (text.size() == limit)
            throw std::runtime_error("an answer has no end: " + text);
        uint8_t byte;
        ReadExactly(fd, &byte, 1);
        text += static_cast<char>(byte);
    }
    return text;
}
