#include "bench/watchers.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "common/clock.h"

namespace {

constexpr int64_t kSecondNs = 1000000000;
constexpr int64_t kStartLimitNs = 20 * kSecondNs; // for a server that is starting on a busy machine
constexpr int64_t kKeepaliveNs = 5 * kSecondNs;
constexpr size_t kReceiveBytes = 1 << 20;
constexpr uint32_t kCommandEvent = UINT32_MAX;
constexpr uint32_t kWakeEvent = UINT32_MAX - 1;

constexpr char kClaim[] = R"({"OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":"Main"}}})";
constexpr char kStart[] = R"({"OPMonitor":{"Action":"Start","Parameter":{"Channel":0,"StreamType":"Main"}}})";

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what);
}

UniqueFd Connect(uint16_t port)
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
    Fail(std::string("connecting: ") + strerror(errno));
}

void SendRequest(int fd, uint16_t id, uint32_t session, const std::string& body)
{
    std::vector<uint8_t> message(kHeaderBytes + body.size());
    WriteHeader(message.data(), {.ucHeadFlag = kHeadFlag,
                                 .ucVersion = kVersion,
                                 .ucReserved2 = {},
                                 .ulSessionId = session,
                                 .ulSeqNum = 0,
                                 .ucReserved12 = {},
                                 .usMessageId = id,
                                 .ulBodyLength = static_cast<uint32_t>(body.size())});
    memcpy(message.data() + kHeaderBytes, body.data(), body.size());
    if (send(fd, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size()))
        Fail(std::string("sending a request: ") + strerror(errno));
}

void ReadExactly(int fd, uint8_t* to, size_t bytes)
{
    const int64_t limit = MonotonicNs() + kStartLimitNs;
    for (size_t got = 0; got < bytes;) {
        pollfd ready{.fd = fd, .events = POLLIN, .revents = 0};
        const int64_t leftMs = (limit - MonotonicNs()) / 1000000;
        if (leftMs <= 0 || poll(&ready, 1, static_cast<int>(leftMs)) == 0)
            Fail("a request is not answered");
        const ssize_t part = recv(fd, to + got, bytes - got, 0);
        if (part <= 0)
            Fail("the server closed a connection during the set-up");
        got += static_cast<size_t>(part);
    }
}

// Sends a request, takes its reply and returns the session that the reply names.
uint32_t Ask(int fd, uint16_t id, uint32_t session, const std::string& body)
{
    SendRequest(fd, id, session, body);
    std::array<uint8_t, kReplyBytes> reply;
    ReadExactly(fd, reply.data(), kHeaderBytes);
    const MessageHeader header = ReadHeader(reply.data(), kHeaderBytes);
    if (header.usMessageId != id + 1 || header.ulBodyLength > kMaxBodyBytes)
        Fail("request " + std::to_string(id) + " is answered with " + std::to_string(header.usMessageId));
    ReadExactly(fd, reply.data() + kHeaderBytes, header.ulBodyLength);
    return header.ulSessionId;
}

void Watch(int epoll, int fd, uint32_t event)
{
    epoll_event interest{};
    interest.events = EPOLLIN;
    interest.data.u32 = event;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &interest) != 0)
        Fail("epoll_ctl failed");
}

} // namespace

Watchers::Watchers(const FramePattern& mainStream, uint16_t port, size_t count)
    : command_(Connect(port)), epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC)),
      reached_(std::make_unique<std::atomic<uint64_t>[]>(count))
{
    session_ = Ask(command_.get(), kLoginReq, 0, R"({"UserName":"admin","PassWord":""})");
    for (size_t watcher = 0; watcher < count; ++watcher) {
        media_.push_back(Connect(port));
        (void)Ask(media_.back().get(), kMonitorClaim, session_, kClaim);
        parsers_.push_back({.pattern = &mainStream, .session = session_});
        Watch(epoll_.get(), media_.back().get(), static_cast<uint32_t>(watcher));
    }
    (void)Ask(command_.get(), kMonitorReq, session_, kStart);
    Watch(epoll_.get(), command_.get(), kCommandEvent);
    Watch(epoll_.get(), wake_.get(), kWakeEvent);
    nextKeepaliveNs_ = MonotonicNs() + kKeepaliveNs;
    thread_ = std::jthread([this] { Receive(); });
}

Watchers::~Watchers()
{
    (void)eventfd_write(wake_.get(), 1);
}

bool Watchers::AllReached(uint64_t number) const
{
    for (size_t watcher = 0; watcher < media_.size(); ++watcher)
        if (reached_[watcher] <= number)
            return false;
    return true;
}

const std::vector<MediaParser>& Watchers::Stop()
{
    (void)eventfd_write(wake_.get(), 1);
    thread_.join();
    if (!error_.empty())
        Fail(error_);
    return parsers_;
}

void Watchers::Drain(size_t watcher, std::vector<uint8_t>& buffer)
{
    const ssize_t got = recv(media_[watcher].get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got < 0 && errno == EAGAIN)
        return;
    if (got <= 0)
        Fail("the server closed media connection " + std::to_string(watcher));
    MediaParser& parser = parsers_[watcher];
    ParseMedia(parser, buffer.data(), static_cast<size_t>(got), MonotonicNs());
    delivered_ += static_cast<uint64_t>(got);
    if (!parser.frames.empty())
        reached_[watcher] = parser.frames.back().number + 1;
}

void Watchers::KeepAlive()
{
    if (MonotonicNs() < nextKeepaliveNs_)
        return;
    nextKeepaliveNs_ += kKeepaliveNs;
    SendRequest(command_.get(), kKeepaliveReq, session_, R"({"Name":"KeepAlive"})");
}

void Watchers::Receive()
{
    std::vector<uint8_t> buffer(kReceiveBytes);
    std::array<epoll_event, 16> events;
    try {
        for (;;) {
            const int ready = epoll_wait(epoll_.get(), events.data(), events.size(), 1000);
            for (int i = 0; i < ready; ++i) {
                const uint32_t event = events[static_cast<size_t>(i)].data.u32;
                if (event == kWakeEvent)
                    return;
                if (event != kCommandEvent)
                    Drain(event, buffer);
                else if (recv(command_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT) == 0)
                    Fail("the server closed the command connection");
            }
            KeepAlive();
        }
    } catch (const std::exception& failure) {
        error_ = failure.what();
    }
}
