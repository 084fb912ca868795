#include "tests/e2e/harness/protocol_client.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>

#include <gtest/gtest.h>

#include "tests/e2e/harness/patience.h"

namespace {

MessageHeader MakeHeader(uint8_t kind, uint32_t session, uint32_t sequence, uint16_t id, size_t bodyBytes)
{
    return {0xFF, 1, {kind, 0}, session, sequence, {0, 0}, id, static_cast<uint32_t>(bodyBytes)};
}

} // namespace

ProtocolClient::ProtocolClient(uint16_t port, int receiveBuffer)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const timeval patience{std::chrono::duration_cast<std::chrono::seconds>(Patience()).count(), 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
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
    const MessageHeader header = MakeHeader(0, session, ++sequence, id, announced.value_or(body.size()));
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    return bytes.append(body);
}

void ProtocolClient::SendBytes(std::string_view bytes)
{
    if (send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error(std::string("cannot send: ") + strerror(errno));
}

void ProtocolClient::ReadExactly(void* to, size_t bytes)
{
    if (bytes > 0 && recv(fd_.get(), to, bytes, MSG_WAITALL) != static_cast<ssize_t>(bytes))
        throw std::runtime_error("neither the rest of a message nor the next one came");
}

Message ProtocolClient::Receive()
{
    Message message{};
    ReadExactly(&message.header, sizeof message.header);
    if (message.header.ulBodyLength > 0x10000)
        throw std::runtime_error("a body of " + std::to_string(message.header.ulBodyLength) + " bytes");
    message.body.resize(message.header.ulBodyLength);
    ReadExactly(message.body.data(), message.body.size());
    return message;
}

Message ProtocolClient::ReceiveReply(uint16_t replyId)
{
    Message message = Receive();
    const uint32_t ownSession = message.header.ulSessionId;
    const MessageHeader expected = MakeHeader(0, ownSession, sequence, replyId, message.body.size());
    EXPECT_EQ(memcmp(&message.header, &expected, sizeof expected), 0)
        << "message " << message.header.usMessageId << ", number " << message.header.ulSeqNum;
    char member[40]; // of every reply: the session of its header
    snprintf(member, sizeof member, "\"SessionID\":\"0x%08x\"", ownSession);
    EXPECT_NE(message.body.find(member), std::string::npos) << message.body;
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

void ProtocolClient::WaitForText(const std::string& text)
{
    char byte = 0;
    for (std::string seen; !seen.ends_with(text); seen.push_back(byte))
        ReadExactly(&byte, 1);
}

void ProtocolClient::WaitUntilClosed()
{
    std::string dropped(0x10000, 0);
    ssize_t bytes = 0;
    do
        bytes = recv(fd_.get(), dropped.data(), dropped.size(), 0);
    while (bytes > 0);
    if (bytes < 0 && errno != ECONNRESET)
        throw std::runtime_error("the connection is not closed");
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
    const MessageHeader expected = MakeHeader(1, client.session, nextSequence_++, 1412, message.body.size());
    if (memcmp(&message.header, &expected, sizeof expected) != 0)
        throw std::runtime_error("media message " + std::to_string(message.header.ulSeqNum) +
                                 " has a wrong header; expected number " + std::to_string(expected.ulSeqNum));
    return message.body;
}

std::string ExpectFrame(MediaReader& reader, const Frame& frame)
{
    const bool isAudio = frame.source == kSourceAudio;
    const size_t subHeaderBytes = IsKeyFrame(frame) ? 16 : 8;
    const size_t limit = isAudio ? 168 : 32768;
    std::string received;
    for (const size_t all = subHeaderBytes + frame.bytes.size(); received.size() < all;) {
        const std::string body = reader.ReadMessage();
        if (body.size() != std::min(limit, all - received.size()))
            throw std::runtime_error("a message of " + std::to_string(body.size()) + " bytes behind " +
                                     std::to_string(received.size()) + " of " + std::to_string(all));
        received += body;
    }
    EXPECT_EQ(received.substr(0, 4), isAudio             ? "\0\0\1\xFA"sv
                                     : IsKeyFrame(frame) ? "\0\0\1\xFC"sv
                                                         : "\0\0\1\xFD"sv);
    EXPECT_EQ(isAudio ? LoadLe<uint16_t>(received.data() + 6)
                      : LoadLe<uint32_t>(received.data() + subHeaderBytes - 4),
              isAudio ? static_cast<uint16_t>(frame.bytes.size()) : frame.bytes.size());
    // Not printed whole: frames are large.
    EXPECT_TRUE(received.compare(subHeaderBytes, std::string::npos, frame.bytes) == 0) << "other bytes";
    return received.substr(0, subHeaderBytes);
}

void ExpectFrames(MediaReader& reader, const std::vector<Frame>& frames)
try {
    for (size_t i = 0; i < frames.size() && !testing::Test::HasFailure(); i++) {
        SCOPED_TRACE("frame " + std::to_string(i) + " of " + std::to_string(frames.size()));
        ExpectFrame(reader, frames[i]);
    }
} catch (const std::runtime_error& failure) { // here, where the caller's traces are shown
    FAIL() << failure.what();
}
