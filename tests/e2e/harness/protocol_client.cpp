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

ProtocolClient::ProtocolClient(UniqueFd connected) : fd_(std::move(connected))
{
    const timeval patience{std::chrono::duration_cast<std::chrono::seconds>(Patience()).count(), 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

ProtocolClient::ProtocolClient(uint16_t port, int receiveBuffer)
    : ProtocolClient(UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)))
{
    const int on = 1;
    setsockopt(fd_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (receiveBuffer > 0)
        setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
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

void ProtocolClient::ReadExactly(void* to, size_t bytes, int flags)
{
    if (recv(fd_.get(), to, bytes, MSG_WAITALL | flags) != static_cast<ssize_t>(bytes))
        throw std::runtime_error("neither the rest of a message nor the next one came");
}

Message ProtocolClient::Receive()
{
    Message message{};
    ReadExactly(&message.header, sizeof message.header, MSG_PEEK); // a datagram is read in one piece
    if (message.header.ulBodyLength > 0x10000)
        throw std::runtime_error("a body of " + std::to_string(message.header.ulBodyLength) + " bytes");
    message.body.resize(sizeof message.header + message.header.ulBodyLength);
    ReadExactly(message.body.data(), message.body.size());
    message.body.erase(0, sizeof message.header);
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

ReceivedFrame MediaReader::ReadFrame(std::optional<size_t> bytes)
{
    std::string frame = ReadMessage();
    const bool isAudio = frame.starts_with(kAudioMark);
    const bool isKeyFrame = frame.starts_with(kKeyFrameMark);
    const size_t begin = isKeyFrame ? 16 : 8;
    if (frame.size() < begin || !(isAudio || isKeyFrame || frame.starts_with(kFrameMark)))
        throw std::runtime_error("a frame without a sub-header");
    const size_t said =
        isAudio ? LoadLe<uint16_t>(frame.data() + 6) : LoadLe<uint32_t>(frame.data() + begin - 4);
    EXPECT_EQ(said, isAudio ? static_cast<uint16_t>(bytes.value_or(said)) : bytes.value_or(said));
    const size_t limit = isAudio ? 168 : 32768;
    const size_t end = begin + bytes.value_or(said);
    for (size_t due = std::min(limit, end);; due = std::min(due + limit, end)) {
        if (frame.size() != due)
            throw std::runtime_error(std::to_string(frame.size()) + " bytes of a frame of " +
                                     std::to_string(end) + ", not " + std::to_string(due));
        if (due == end)
            return {frame.substr(0, begin), frame.substr(begin)};
        frame += ReadMessage();
    }
}

std::string ExpectFrame(MediaReader& reader, const Frame& frame)
{
    const ReceivedFrame received = reader.ReadFrame(frame.bytes.size());
    const auto mark = frame.source == kSourceAudio ? kAudioMark
                      : IsKeyFrame(frame)          ? kKeyFrameMark
                                                   : kFrameMark;
    EXPECT_TRUE(received.subHeader.starts_with(mark));
    EXPECT_TRUE(received.bytes == frame.bytes) << "other bytes"; // not printed whole: frames are large
    return received.subHeader;
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
