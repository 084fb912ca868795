// The recorder's end of a connection: sends anything, and reads whole messages.
//
// Everything throws where it would have to wait longer than a test's patience.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "protocol/message.h"
#include "tests/e2e/harness/fake_param_host.h"
#include "tests/e2e/harness/frames.h"
#include "tests/e2e/harness/patience.h"

struct Message {
    MessageHeader header;
    std::string body;
};

class ProtocolClient {
  public:
    explicit ProtocolClient(uint16_t port = kServerPort, int receiveBuffer = 0);

    // A request's bytes with the session and the next sequence number; `announced` replaces the body length.
    std::string Request(uint16_t id, std::string_view body = {}, std::optional<uint32_t> announced = {});
    void SendBytes(std::string_view bytes); // in one piece
    void Send(uint16_t id, std::string_view body = {}) { SendBytes(Request(id, body)); }
    Message Receive();
    // Receives a reply to the last request: its header is checked to the byte against its own body.
    Message ReceiveReply(uint16_t replyId);
    Message Ask(uint16_t id, std::string_view body = {});
    uint32_t Login(); // and takes the session on

    void WaitForText(const std::string& text); // in what arrives, which is no message
    void WaitUntilClosed();                    // by the server; what arrives before is dropped
    [[nodiscard]] bool HasInput() const;       // something has arrived, or the connection is closed
    void Close() { fd_.reset(); }
    void Abort(); // closes with a reset, whatever is unread

    uint32_t session = 0;
    uint32_t sequence = 0x12345678;

  private:
    void ReadExactly(void* to, size_t bytes);
    UniqueFd fd_;
};

// A claimed media connection. Checks every message's header to the byte: its session, and its sequence
// numbers, which start at 0 and have no gap.
class MediaReader {
  public:
    MediaReader(uint32_t session, std::string_view stream, int receiveBuffer = 0);
    std::string ReadMessage(); // the body of one message
    ProtocolClient client;

  private:
    uint32_t nextSequence_ = 0;
};

std::string MonitorBody(std::string_view action, std::string_view stream);

// A recorder in live view: its command connection and the media connection of one stream.
struct Watcher {
    explicit Watcher(std::string_view stream = "Main", int receiveBuffer = 0)
        : media(command.Login(), stream, receiveBuffer)
    {
        Monitor("Start");
    }
    void Monitor(std::string_view action) { command.Ask(kMonitorReq, MonitorBody(action, "Main")); }
    ProtocolClient command;
    MediaReader media;
};

// The next frame that arrives is this one, cut into messages as it must be. Returns its sub-header.
std::string ExpectFrame(MediaReader& reader, const Frame& frame);
// The next frames that arrive are exactly these.
void ExpectFrames(MediaReader& reader, const std::vector<Frame>& frames);
