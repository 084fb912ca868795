// A camera that does what a test writes down: each connection, in the order of their accepts, plays one
// script on a thread of its own. Messages are built byte by byte here, not by the code under test.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/little_endian.h"
#include "common/unique_fd.h"
#include "recorder/connection.h"
#include "tests/recorder/clip.h"

using Bytes = std::string; // std::string: convenient to write and to join

// Little-endian fields.
inline Bytes Le(uint64_t value, int width = 4)
{
    Bytes bytes;
    for (int i = 0; i < width; i++)
        bytes += static_cast<char>(value >> 8 * i & 0xFF);
    return bytes;
}

// A whole message of session 7: FF 01, session, sequence number, id, length, body.
inline Bytes Wire(uint32_t id, uint32_t seqNum, const Bytes& body)
{
    return "\xFF\x01" + Le(id == 1412 ? 1 : 0, 2) + Le(7) + Le(seqNum) + Le(0, 2) + Le(id, 2) +
           Le(body.size()) + body;
}

// Frame sub-headers with the frame behind them. Key frames: H.264, 25 frames a second, 208 x 120.
inline Bytes KeyFrame(const Bytes& frame)
{
    return Bytes("\0\0\x01\xFC\x02\x19\x1A\x0F\x47\xE1\x72\x64", 12) + Le(frame.size()) + frame;
}
inline Bytes OtherFrame(const Bytes& frame)
{
    return Bytes("\0\0\x01\xFD", 4) + Le(frame.size()) + frame;
}
inline Bytes AudioFrame(const Bytes& samples)
{
    return Bytes("\0\0\x01\xFA\x0E\x02", 6) + Le(samples.size(), 2) + samples;
}

struct Request {
    uint16_t id = 0; // 0: the recorder has closed
    uint32_t session = 0;
    uint32_t seqNum = 0;
    Bytes body;
};

struct Peer {
    UniqueFd fd;
    size_t limit = 32768; // bytes of a frame in one message
    size_t piece = 32768; // bytes of a message in one send
    uint32_t seqNum = 0;  // of the next media message

    [[nodiscard]] Request Read() const
    {
        Bytes bytes(10240, '\0'); // as a camera does it: one read is one message
        const ssize_t got = recv(fd.get(), bytes.data(), bytes.size(), 0);
        if (got < 20)
            return {};
        bytes.resize(static_cast<size_t>(got));
        EXPECT_EQ(bytes.substr(0, 4), Bytes("\xFF\x01\0\0", 4));
        EXPECT_EQ(bytes.substr(16, 4), Le(bytes.size() - 20)) << "one whole message in one read";
        return {LoadLe<uint16_t>(bytes.data() + 14), LoadLe<uint32_t>(bytes.data() + 4),
                LoadLe<uint32_t>(bytes.data() + 8), bytes.substr(20)};
    }

    // Reads a request and sends its reply; returns the request.
    Request Answer(const Bytes& body = R"({"AliveInterval":20,"Ret":100})") const
    {
        Request request = Read();
        Send(Wire(request.id == 1562 ? 1501 : request.id + 1U, request.seqNum, body));
        return request;
    }

    // False when the recorder has gone.
    bool Send(const Bytes& bytes) const
    {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            const size_t length = std::min(piece, bytes.size() - at);
            if (send(fd.get(), bytes.data() + at, length, MSG_NOSIGNAL) != static_cast<ssize_t>(length))
                return false;
        }
        return true;
    }

    bool SendFrame(const Bytes& frame)
    {
        bool sent = true;
        for (size_t at = 0; at < frame.size() && sent; at += limit)
            sent = Send(Wire(1412, seqNum++, frame.substr(at, limit)));
        return sent;
    }

    void AwaitClose() const
    {
        while (Read().id != 0) {
        }
    }
};

using Script = std::function<void(Peer&)>;

// Answers login, start, keepalives and stop until the recorder closes.
inline void UsualCommand(const Peer& peer)
{
    while (peer.Answer().id != 0) {
    }
}

// Takes the claim and sends a clip with sound.
inline void SendClip(Peer& peer, const std::vector<ClipFrame>& clip)
{
    EXPECT_EQ(peer.Answer().id, 1413);
    for (const ClipFrame& frame : clip) {
        peer.SendFrame(frame.isKey ? KeyFrame(frame.bytes) : OtherFrame(frame.bytes));
        peer.SendFrame(AudioFrame(Bytes(320, '\xD5')));
    }
}

// Its end waits until every script has ended.
struct FakeCamera {
    UniqueFd listener;
    HostPort address;
    std::vector<std::jthread> threads;
    std::jthread acceptor;

    explicit FakeCamera(std::vector<Script> scripts) : listener(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in own{};
        socklen_t length = sizeof own;
        EXPECT_EQ(listen(listener.get(), 8), 0); // on a port of the system's choice
        EXPECT_EQ(getsockname(listener.get(), reinterpret_cast<sockaddr*>(&own), &length), 0);
        address = {"127.0.0.1", ntohs(own.sin_port)};
        acceptor = std::jthread([this, scripts = std::move(scripts)] {
            for (const Script& script : scripts)
                threads.emplace_back([script, fd = accept(listener.get(), nullptr, nullptr)] {
                    EXPECT_GE(fd, 0) << "fewer connections than scripts";
                    Peer peer{UniqueFd(fd)};
                    script(peer);
                });
        });
    }
};
