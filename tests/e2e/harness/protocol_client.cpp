#include "tests/e2e/harness/protocol_client.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>

#include <gtest/gtest.h>

#include "tests/e2e/harness/patience.h"

ProtocolClient::ProtocolClient(uint16_t port, int receiveBuffer)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (receiveBuffer > 0)
        setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error(std::string("cannot connect: ") + strerror(errno));
}

std::string ProtocolClient::Request(uint16_t id, std::string_view body, std::optional<uint32_t> announced)
{
    const MessageHeader header{.ucHeadFlag = kHeadFlag,
                               .ucVersion = kVersion,
                               .ucReserved2 = {},
                               .ulSessionId = session,
                               .ulSeqNum = ++sequence,
                               .ucReserved12 = {},
                               .usMessageId = id,
                               .ulBodyLength = announced.value_or(static_cast<uint32_t>(body.size()))};
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    return bytes.append(body);
}

void ProtocolClient::SendBytes(std::string_view bytes)
{
    if (send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error(std::string("cannot send: ") + strerror(errno));
}

void ProtocolClient::WaitForInput(Clock::time_point deadline) const
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd readable{fd_.get(), POLLIN, 0};
    if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) == 0)
        throw std::runtime_error("neither a message nor the connection's end came");
}

bool ProtocolClient::ReadExactly(void* to, size_t bytes)
{
    auto* at = static_cast<uint8_t*>(to);
    for (const auto deadline = Clock::now() + Patience(); bytes > 0;) {
        WaitForInput(deadline);
        const ssize_t count = recv(fd_.get(), at, bytes, MSG_DONTWAIT);
        if (count <= 0)
            return false;
        at += count;
        bytes -= static_cast<size_t>(count);
    }
    return true;
}

Message ProtocolClient::Receive()
{
    Message message{};
    bool whole = ReadExactly(&message.header, sizeof message.header);
    if (whole && message.header.ulBodyLength > 0x10000)
        throw std::runtime_error("a body of " + std::to_string(message.header.ulBodyLength) + " bytes");
    message.body.resize(message.header.ulBodyLength);
    whole = whole && ReadExactly(message.body.data(), message.body.size());
    if (!whole)
        throw std::runtime_error("the connection was closed where a message was awaited");
    return message;
}

Message ProtocolClient::ReceiveReply(uint16_t replyId)
{
    Message message = Receive();
    const MessageHeader& header = message.header;
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(&header), 4), "\xFF\1\0\0"sv);
    EXPECT_EQ(header.ulSeqNum, sequence);
    EXPECT_EQ(header.ucReserved12[0] | header.ucReserved12[1], 0);
    EXPECT_EQ(header.usMessageId, replyId);
    char end[40]; // of every reply: the session of its header
    snprintf(end, sizeof end, "\"SessionID\":\"0x%08x\"}", header.ulSessionId);
    EXPECT_TRUE(message.body.ends_with(end)) << message.body;
    return message;
}

Message ProtocolClient::Ask(uint16_t id, std::string_view body)
{
    Send(id, body);
    return ReceiveReply(static_cast<uint16_t>(id + 1));
}

uint32_t ProtocolClient::Login()
{
    session = Ask(kLoginReq, R"({"UserName":"admin"})").header.ulSessionId;
    return session;
}

void ProtocolClient::WaitUntilClosed()
{
    std::string dropped(0x10000, 0);
    while (WaitForInput(Clock::now() + Patience()), recv(fd_.get(), dropped.data(), dropped.size(), 0) > 0)
        continue;
}

bool ProtocolClient::HasInput() const
{
    pollfd readable{fd_.get(), POLLIN, 0};
    return poll(&readable, 1, 0) > 0;
}

void ProtocolClient::Abort()
{
    const linger reset{1, 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    fd_.reset();
}

std::string MonitorBody(std::string_view action, std::string_view stream)
{
    return R"({"Name":"OPMonitor","OPMonitor":{"Action":")" + std::string(action) +
           R"(","Parameter":{"Channel":0,"CombinMode":"NONE","StreamType":")" + std::string(stream) +
           R"(","TransMode":"TCP"}}})";
}

MediaReader::MediaReader(uint32_t session, std::string_view stream, int receiveBuffer)
    : client(kServerPort, receiveBuffer)
{
    client.session = session;
    client.Ask(kMonitorClaim, MonitorBody("Claim", stream));
}

std::string MediaReader::ReadMessage()
{
    const Message message = client.Receive();
    const MessageHeader expected{.ucHeadFlag = 0xFF,
                                 .ucVersion = 1,
                                 .ucReserved2 = {1, 0},
                                 .ulSessionId = client.session,
                                 .ulSeqNum = nextSequence_++,
                                 .ucReserved12 = {0, 0},
                                 .usMessageId = 1412,
                                 .ulBodyLength = static_cast<uint32_t>(message.body.size())};
    if (memcmp(&message.header, &expected, sizeof expected) != 0)
        throw std::runtime_error("media message " + std::to_string(message.header.ulSeqNum) +
                                 " has a wrong header; expected number " + std::to_string(expected.ulSeqNum));
    return message.body;
}

ReceivedFrame MediaReader::ReadFrame()
{
    ReceivedFrame frame;
    std::string body = ReadMessage();
    const std::string kind = body.substr(0, 4);
    const bool isAudio = kind == "\0\0\1\xFA"sv;
    const size_t subHeaderBytes = kind == "\0\0\1\xFC"sv ? 16 : 8;
    if (body.size() < subHeaderBytes || (!isAudio && subHeaderBytes == 8 && kind != "\0\0\1\xFD"sv))
        throw std::runtime_error("a frame begins without a sub-header");
    frame.subHeader = body.substr(0, subHeaderBytes);
    const size_t length =
        isAudio ? LoadLe<uint16_t>(body.data() + 6) : LoadLe<uint32_t>(body.data() + subHeaderBytes - 4);
    frame.bytes = body.substr(subHeaderBytes);
    const size_t limit = isAudio ? 168 : 32768;
    while (frame.bytes.size() < length && body.size() == limit) {
        body = ReadMessage();
        frame.bytes += body;
    }
    if (frame.bytes.size() != length || body.size() > limit)
        throw std::runtime_error("a frame is cut into messages of a wrong size");
    return frame;
}

void ExpectFrames(MediaReader& reader, const std::vector<Frame>& frames)
try {
    for (size_t i = 0; i < frames.size(); i++) {
        const Frame& frame = frames[i];
        const ReceivedFrame received = reader.ReadFrame();
        // Not printed whole: frames are large.
        ASSERT_TRUE(received.bytes == frame.bytes)
            << "frame " << i << " of " << frames.size() << ": " << received.bytes.size()
            << " bytes instead of " << frame.bytes.size();
        const auto kind = frame.source == kSourceAudio ? "\0\0\1\xFA"sv
                          : IsKeyFrame(frame)          ? "\0\0\1\xFC"sv
                                                       : "\0\0\1\xFD"sv;
        EXPECT_TRUE(received.subHeader.starts_with(kind)) << "frame " << i;
    }
} catch (const std::runtime_error& failure) { // here, where the caller's traces are shown
    FAIL() << failure.what();
}
