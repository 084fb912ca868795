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
    explicit ProtocolClient(UniqueFd connected); // of any kind

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

    uint32_t session = 0;
    uint32_t sequence = 0x12345678;

  private:
    void ReadExactly(void* to, size_t bytes, int flags = 0);
    UniqueFd fd_;
};

struct ReceivedFrame {
    std::string subHeader, bytes;
};

// A claimed media connection. Checks every message's header to the byte: its session, and its sequence
// numbers, which start at 0 and have no gap.
class MediaReader {
  public:
    MediaReader(uint32_t session, std::string_view stream, int receiveBuffer = 0);
    std::string ReadMessage(); // the body of one message
    // The next frame, cut into messages as it must be. So many bytes if given: what its sub-header says is
    // cut.
    ReceivedFrame ReadFrame(std::optional<size_t> bytes = {});
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

inline constexpr auto kKeyFrameMark = "\0\0\1\xFC"sv; // begins a sub-header
inline constexpr auto kFrameMark = "\0\0\1\xFD"sv;
inline constexpr auto kAudioMark = "\0\0\1\xFA"sv;

// The next frame that arrives is this one. Returns its sub-header.
std::string ExpectFrame(MediaReader& reader, const Frame& frame);
// The next frames that arrive are exactly these.
void ExpectFrames(MediaReader& reader, const std::vector<Frame>& frames);
