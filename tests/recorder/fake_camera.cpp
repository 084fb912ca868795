#include "tests/recorder/fake_camera.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include "recorder/deadline.h"

namespace {

constexpr int kLimitMs = 30'000; // no step of a test takes longer, on the slowest of machines
constexpr const char* kOk = R"({"Name":"OPMonitor","Ret":100,"SessionID":"0x00000007"})";

bool Ready(int fd, short events)
{
    pollfd entry{fd, events, 0};
    return poll(&entry, 1, kLimitMs) == 1;
}

uint32_t Field(const Bytes& bytes, size_t offset, size_t width)
{
    uint32_t value = 0;
    for (size_t i = 0; i < width; i++)
        value |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[offset + i])) << 8 * i;
    return value;
}

} // namespace

Bytes U16(uint32_t value)
{
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8 & 0xFF)};
}
Bytes U32(uint32_t value)
{
    return U16(value) + U16(value >> 16);
}

Bytes Wire(uint16_t id, uint32_t session, uint32_t seqNum, const Bytes& body)
{
    const Bytes media(1, id == 1412 ? '\1' : '\0');
    return "\xFF\x01" + media + Bytes(1, '\0') + U32(session) + U32(seqNum) + U16(0) + U16(id) +
           U32(static_cast<uint32_t>(body.size())) + body;
}

Bytes KeyFrame(uint8_t codec, int frameRate, int width, int height, const Bytes& frame)
{
    const uint32_t dateTime = 25U << 26 | 3U << 22 | 9U << 17 | 14U << 12 | 5U << 6 | 7U;
    return Bytes("\0\0\x01\xFC", 4) + static_cast<char>(codec) + static_cast<char>(frameRate) +
           static_cast<char>(width / 8) + static_cast<char>(height / 8) + U32(dateTime) +
           U32(static_cast<uint32_t>(frame.size())) + frame;
}
Bytes OtherFrame(const Bytes& frame)
{
    return Bytes("\0\0\x01\xFD", 4) + U32(static_cast<uint32_t>(frame.size())) + frame;
}
Bytes AudioFrame(const Bytes& samples)
{
    return Bytes("\0\0\x01\xFA\x0E\x02", 6) + U16(static_cast<uint32_t>(samples.size())) + samples;
}

Request Peer::Read()
{
    Bytes bytes(10240, '\0');
    if (!Ready(fd_.get(), POLLIN)) {
        ADD_FAILURE() << "no request came";
        return {};
    }
    // As a camera does it: one read is one message.
    const ssize_t got = recv(fd_.get(), bytes.data(), bytes.size(), 0);
    if (got <= 0)
        return {};
    bytes.resize(static_cast<size_t>(got));
    EXPECT_GE(bytes.size(), 20U);
    bytes.resize(std::max<size_t>(bytes.size(), 20));
    EXPECT_EQ(bytes.substr(0, 4), Bytes("\xFF\x01\0\0", 4));
    EXPECT_EQ(Field(bytes, 16, 4), bytes.size() - 20) << "one whole message in one read";
    return {static_cast<uint16_t>(Field(bytes, 14, 2)), Field(bytes, 4, 4), Field(bytes, 8, 4),
            bytes.substr(20)};
}

Request Peer::Answer(uint16_t id, const Bytes& body, uint16_t replyId)
{
    Request request = Read();
    EXPECT_EQ(request.id, id);
    Send(Wire(replyId != 0 ? replyId : static_cast<uint16_t>(id + 1), 7, request.seqNum, body));
    return request;
}

void Peer::Login(int aliveInterval)
{
    Answer(1000, R"({"AliveInterval":)" + std::to_string(aliveInterval) +
                     R"(,"ChannelNum":1,"DeviceType":"IPC","ExtraChannel":0,"Ret":100,)"
                     R"("SessionID":"0x00000007"})");
}

void Peer::Claim()
{
    const Request request = Answer(1413, kOk);
    EXPECT_EQ(request.session, 7U);
}

void Peer::Monitor()
{
    const Request request = Answer(1410, kOk);
    EXPECT_EQ(request.session, 7U);
}

int Peer::Serve(const std::function<void()>& onKeepalive)
{
    int keepalives = 0;
    for (;;) {
        const Request request = Read();
        if (request.id == 0)
            return keepalives;
        if (request.id == 1006) {
            keepalives++;
            onKeepalive();
        }
        Send(Wire(static_cast<uint16_t>(request.id + 1), 7, request.seqNum, kOk));
    }
}

bool Peer::Send(const Bytes& bytes, size_t piece)
{
    for (size_t sent = 0; sent < bytes.size();) {
        const size_t rest = bytes.size() - sent;
        if (!Ready(fd_.get(), POLLOUT))
            return false;
        const ssize_t done =
            send(fd_.get(), bytes.data() + sent, piece == 0 ? rest : std::min(piece, rest), MSG_NOSIGNAL);
        if (done <= 0)
            return false;
        sent += static_cast<size_t>(done);
    }
    return true;
}

bool Peer::SendFrame(const Bytes& frame, size_t limit, size_t piece)
{
    for (size_t at = 0; at < frame.size(); at += limit)
        if (!Send(Wire(1412, 7, seqNum++, frame.substr(at, limit)), piece))
            return false;
    return true;
}

void Peer::AwaitClose()
{
    char byte = 0;
    while (Ready(fd_.get(), POLLIN) && recv(fd_.get(), &byte, 1, 0) > 0) {
    }
}

Script UsualCommand(int aliveInterval)
{
    return [aliveInterval](Peer& peer) {
        peer.Login(aliveInterval);
        peer.Monitor();
        peer.Serve();
    };
}

FakeCamera::FakeCamera(std::vector<Script> scripts) : listener_(socket(AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_.get(), generic, length) != 0 || listen(listener_.get(), 8) != 0 ||
        getsockname(listener_.get(), generic, &length) != 0)
        throw std::runtime_error("the fake camera cannot listen");
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this, scripts = std::move(scripts)] {
        for (const Script& script : scripts) {
            const int fd = Ready(listener_.get(), POLLIN) ? accept(listener_.get(), nullptr, nullptr) : -1;
            if (fd < 0) {
                ADD_FAILURE() << "fewer connections than scripts";
                return;
            }
            threads_.emplace_back([fd, script] {
                Peer peer(fd);
                script(peer);
            });
        }
    });
}

FakeCamera::~FakeCamera()
{
    acceptor_.join();
    for (std::thread& thread : threads_)
        thread.join();
}

Event::Event() : fd_(eventfd(0, EFD_CLOEXEC)) {}
void Event::Set()
{
    EXPECT_EQ(eventfd_write(fd_.get(), 1), 0);
}
