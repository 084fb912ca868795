#include "bench/watchers.h"

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>

#include "bench/client_socket.h"

namespace {

constexpr int64_t kKeepaliveNs = 5000000000LL;

constexpr char kClaim[] = R"({"OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":"Main"}}})";
constexpr char kStart[] = R"({"OPMonitor":{"Action":"Start","Parameter":{"Channel":0,"StreamType":"Main"}}})";

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
    SendAll(fd, message.data(), message.size());
}

// Sends a request, takes its reply and returns the session that the reply names.
uint32_t Ask(int fd, uint16_t id, uint32_t session, const std::string& body)
{
    SendRequest(fd, id, session, body);
    std::array<uint8_t, kReplyBytes> reply;
    ReadExactly(fd, reply.data(), kHeaderBytes);
    const MessageHeader header = ReadHeader(reply.data(), kHeaderBytes);
    if (header.usMessageId != id + 1 || header.ulBodyLength > kMaxBodyBytes)
        throw std::runtime_error("request " + std::to_string(id) + " is answered with " +
                                 std::to_string(header.usMessageId));
    ReadExactly(fd, reply.data() + kHeaderBytes, header.ulBodyLength);
    return header.ulSessionId;
}

} // namespace

Watchers::Watchers(const FramePattern& mainStream, uint16_t port, size_t count) : command_(ConnectTo(port))
{
    session_ = Ask(command_.get(), kLoginReq, 0, R"({"UserName":"admin","PassWord":""})");
    std::vector<int> sockets;
    for (size_t watcher = 0; watcher < count; ++watcher) {
        media_.push_back(ConnectTo(port));
        sockets.push_back(media_.back().get());
        (void)Ask(sockets.back(), kMonitorClaim, session_, kClaim);
        parsers_.push_back({.pattern = &mainStream, .session = session_});
    }
    (void)Ask(command_.get(), kMonitorReq, session_, kStart);
    sockets.push_back(command_.get());
    nextKeepaliveNs_ = MonotonicNs() + kKeepaliveNs;
    const auto take = [this](size_t watcher, const uint8_t* data, size_t bytes,
                             int64_t nowNs) -> const std::vector<ReceivedFrame>& {
        ParseMedia(parsers_[watcher], data, bytes, nowNs);
        return parsers_[watcher].frames;
    };
    receiver_.emplace(std::move(sockets), count, FrameReceiver::Calls{take, [this] { KeepAlive(); }});
}

void Watchers::KeepAlive()
{
    if (MonotonicNs() < nextKeepaliveNs_)
        return;
    nextKeepaliveNs_ += kKeepaliveNs;
    SendRequest(command_.get(), kKeepaliveReq, session_, R"({"Name":"KeepAlive"})");
}
