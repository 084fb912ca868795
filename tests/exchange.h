// Requests for tests: a connection in the table, the bytes of a message, and one exchange with a
// handler.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "protocol/connection_table.h"
#include "protocol/request.h"

// A connection in the table whose other end the test keeps. Ends with its scope.
class TestConnection {
  public:
    explicit TestConnection(uint32_t session = 0, int32_t type = kFdNew)
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        fd_ = ends[0];
        peer_.reset(ends[1]);
        EXPECT_EQ(AddFd(fd_, "192.0.2.1", 0x1234, session), 0);
        SetFdType(fd_, type);
    }
    ~TestConnection() { RemoveFd(fd_); }

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] int peer() const { return peer_.get(); }
    void ClosePeer() { peer_.reset(); }
    [[nodiscard]] bool IsInTable() const { return GetAlarmFlag(fd_) != -1; }
    void Send(const std::vector<uint8_t>& bytes) const
    {
        EXPECT_EQ(send(peer(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    // What has arrived at the other end by now.
    [[nodiscard]] std::string Received() const
    {
        char bytes[2 * kReplyBytes];
        const ssize_t length = recv(peer(), bytes, sizeof bytes, MSG_DONTWAIT);
        return length > 0 ? std::string(bytes, static_cast<size_t>(length)) : std::string();
    }

  private:
    int fd_ = -1;
    UniqueFd peer_;
};

inline std::vector<uint8_t> MakeRequest(uint16_t messageId, std::string_view body = "", uint32_t session = 0,
                                        uint32_t seqNum = 0x12345678)
{
    std::vector<uint8_t> bytes(kHeaderBytes);
    const auto length = static_cast<uint32_t>(body.size());
    WriteHeader(bytes.data(), {kHeadFlag, kVersion, {}, session, seqNum, {}, messageId, length});
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

struct Answer {
    int bytes; // 0: the handler sends nothing
    MessageHeader header;
    std::string body;
};

// Passes the request to the handler with a reply buffer like the receive thread's, and checks what
// every reply has in common.
inline Answer ExchangeOn(int fd, RequestHandler* handler, const std::vector<uint8_t>& request)
{
    std::vector<uint8_t> padded = request;
    padded.resize(request.size() + kHeaderBytes + 1);
    std::vector<uint8_t> reply(kReplyBytes);
    Answer answer{.bytes = -1, .header = {}, .body = {}};
    EXPECT_EQ(handler(fd, padded.data(), static_cast<int>(request.size()), reply.data(), &answer.bytes), 0);
    if (answer.bytes == 0)
        return answer;
    answer.header = ReadHeader(reply.data(), kHeaderBytes);
    answer.body.assign(reply.begin() + kHeaderBytes, reply.begin() + answer.bytes);
    EXPECT_TRUE(answer.header.ucHeadFlag == 0xFF && answer.header.ucVersion == 1);
    EXPECT_EQ(answer.header.ulBodyLength, answer.body.size());
    EXPECT_EQ(answer.header.ulSeqNum, ReadHeader(request.data(), request.size()).ulSeqNum);
    return answer;
}
