// One TCP connection to a camera, message by message.
//
// The socket is non-blocking. Reading comes in two forms: a poll loop calls ReadMore() and takes whole
// messages with NextMessage(); a request that waits for its answer calls Receive() with a deadline. Every
// message is delimited by the body length of its header, which is bounded: a peer that announces more, or
// that does not begin with the protocol's two first bytes, is told apart as "not this protocol".
// Thread-bound: one thread uses a connection. All failures are thrown as Failure.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "protocol/message.h"
#include "recorder/deadline.h"

inline constexpr uint16_t kDefaultPort = 9000;

struct HostPort {
    std::string host;
    uint16_t port = kDefaultPort;
};

// Reads "HOST" or "HOST:PORT"; throws kExitUsage when the text is neither.
HostPort ParseHostPort(const std::string& text);
std::string PrintHostPort(const HostPort& address);

// A whole message. The body lies in the connection's buffer until the next read.
struct Message {
    MessageHeader header;
    std::span<const uint8_t> body;
};

class Connection {
  public:
    // Connects to the first of the host's IPv4 addresses that answers before the deadline. A name is
    // resolved first, within the resolver's own limits.
    Connection(const HostPort& address, TimePoint deadline);

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] const std::string& name() const { return name_; }

    // Queues one message and sends what the socket takes; the rest goes out with Flush().
    void Send(MessageHeader header, std::string_view body);
    void Flush();
    [[nodiscard]] bool hasUnsent() const { return !unsent_.empty(); }

    // One read; false when nothing has arrived.
    bool ReadMore();
    // The next whole message among what was read.
    std::optional<Message> NextMessage();
    // Waits for the next message; throws kExitTimedOut at the deadline.
    Message Receive(TimePoint deadline);

  private:
    [[noreturn]] void ThrowClosed(const char* how) const;
    [[noreturn]] void ThrowNotProtocol(const std::string& why) const;
    void CheckFirstBytes() const;

    std::string name_; // "HOST:PORT", the first words of every error line
    UniqueFd fd_;
    std::string unsent_;
    std::vector<uint8_t> buffer_;
    size_t begin_ = 0; // buffer_[begin_, end_) is read and not yet taken
    size_t end_ = 0;
};
