// A camera that does what a test writes down: each connection, in the order of their accepts, plays one
// script on a thread of its own. Messages are built byte by byte here, not by the code under test.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

using Bytes = std::string; // std::string: convenient to write and to join

// Little-endian fields.
Bytes U16(uint32_t value);
Bytes U32(uint32_t value);
// A whole message: FF 01, session, sequence number, id, length, body.
Bytes Wire(uint16_t id, uint32_t session, uint32_t seqNum, const Bytes& body);

// Frame sub-headers with the frame behind them.
Bytes KeyFrame(uint8_t codec, int frameRate, int width, int height, const Bytes& frame);
Bytes OtherFrame(const Bytes& frame);
Bytes AudioFrame(const Bytes& samples);

struct Request {
    uint16_t id = 0;
    uint32_t session = 0;
    uint32_t seqNum = 0;
    Bytes body;
};

class Peer {
  public:
    explicit Peer(int fd) : fd_(fd) {}
    // The next request; id 0 when the recorder has closed.
    Request Read();
    // Reads a request, expects this id and answers it with the body and, unless given, the id plus 1.
    Request Answer(uint16_t id, const Bytes& body, uint16_t replyId = 0);
    // Answers to login, claim and monitor as a camera gives them, all within session 7.
    void Login(int aliveInterval = 20);
    void Claim();
    void Monitor();
    // Answers whatever comes, keepalives and the final stop, until the recorder closes. Counts keepalives.
    int Serve(const std::function<void()>& onKeepalive = [] {});
    // Sends everything, cut into pieces of this many bytes when above 0. False when the recorder has gone.
    bool Send(const Bytes& bytes, size_t piece = 0);
    // Cuts a frame into media messages of the next sequence numbers.
    bool SendFrame(const Bytes& frame, size_t limit, size_t piece = 0);
    // Waits until the recorder closes.
    void AwaitClose();
    void Close() { fd_.reset(); }

    uint32_t seqNum = 0; // of the next media message

  private:
    UniqueFd fd_;
};

using Script = std::function<void(Peer&)>;

// Answers the command connection's usual requests: login, start, then whatever comes.
Script UsualCommand(int aliveInterval = 20);

class FakeCamera {
  public:
    explicit FakeCamera(std::vector<Script> scripts);
    ~FakeCamera(); // waits until every script has ended
    [[nodiscard]] uint16_t port() const { return port_; }

  private:
    UniqueFd listener_;
    uint16_t port_ = 0;
    std::vector<std::thread> threads_;
    std::thread acceptor_;
};

// A descriptor that becomes readable when Set() is called.
class Event {
  public:
    Event();
    void Set();
    [[nodiscard]] int fd() const { return fd_.get(); }

  private:
    UniqueFd fd_;
};
