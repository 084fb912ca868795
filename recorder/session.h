// A login at a camera: requests and their answers, the keepalive, and the media connections it claims.
//
// The camera takes whatever one read returns as one message, so a session never has two requests under
// way: a request waits for the answer of a keepalive that is out, and a keepalive waits for nothing but its
// time. Between requests a poll loop calls KeepAlive() and Receive() on the command connection.
// Thread-bound. Failures are thrown as Failure.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "recorder/connection.h"
#include "recorder/json.h"

// A stream that a recorder can ask for.
struct Stream {
    const char* option; // as the user names it
    const char* name;   // as the protocol names it
    size_t maxFrameBytes;
};
std::span<const Stream> Streams();
// Looks the user's name up without regard to case; throws kExitUsage.
const Stream& FindStream(std::string_view option);

struct Reply {
    MessageHeader header;
    std::string text;
    JsonPtr json; // null when the text is not JSON
};

class Session {
  public:
    // Connects the command connection. `timeout` limits this and every later wait.
    Session(const HostPort& address, milliseconds timeout);

    // Logs in and returns the camera's answer. From here on the session is kept alive.
    Reply Login();
    // Sends one request and waits for its answer, whatever result it carries.
    Reply Request(uint16_t requestId, std::string_view body);
    // The same, but throws kExitCameraError for another result than 100.
    Reply RequestOk(uint16_t requestId, std::string_view body);
    // The same, for a request that the camera may drop without a word: it is sent once more when no answer
    // has come for `patience`, and the answer to either of the two counts. Twice must do as much as once.
    Reply RequestTwiceOk(uint16_t requestId, std::string_view body, milliseconds patience);
    // Throws unless the reply carries the result 100.
    void CheckResult(const Reply& reply) const;

    // Sends one request whose answer matters to nobody; the next request waits for it all the same.
    void Post(uint16_t requestId, std::string_view body);

    // Opens a media connection for the stream and claims it for this session. With `subscribesFirst` alarms
    // will come on it, too.
    Connection Claim(const Stream& stream, bool subscribesFirst = false);
    // Starts or stops the flow on every claimed connection of this session.
    void Monitor(const char* action, const Stream& stream);

    // Stays logged in until the time comes or a descriptor becomes readable, whichever is first; takes in
    // what arrives meanwhile. Pass -1 for no descriptor. Returns false when it was the descriptor.
    bool StayUntil(TimePoint until, int descriptor = -1);
    // Who gets the body of every alarm that arrives. Alarms come only after a subscription.
    using AlarmSink = std::function<void(std::string_view body)>;
    void setAlarmSink(AlarmSink sink) { alarmSink_ = std::move(sink); }

    // For poll loops: sends the keepalive when it is due, and throws when one stays unanswered.
    void KeepAlive();
    // Takes in what arrived; answers to keepalives are noted, alarms are counted.
    void Receive();
    // When KeepAlive() wants to be called next.
    [[nodiscard]] TimePoint nextWake() const;

    [[nodiscard]] const Connection& command() const { return command_; }
    [[nodiscard]] uint32_t id() const { return id_; }
    [[nodiscard]] std::string idText() const; // as it stands in JSON
    [[nodiscard]] milliseconds timeout() const { return timeout_; }
    [[nodiscard]] uint64_t alarms() const { return alarms_; }
    // Replaces the limit of every later wait.
    void setTimeout(milliseconds timeout) { timeout_ = timeout; }

  private:
    void AskOn(Connection& media, uint16_t requestId, std::string_view body, TimePoint deadline);
    uint32_t SendRequest(uint16_t requestId, std::string_view body, TimePoint deadline);
    // The answer to a request with one of the sequence numbers `first` to `last`; nothing at the deadline.
    std::optional<Reply> AwaitReply(uint16_t requestId, uint32_t first, uint32_t last, TimePoint deadline);
    [[noreturn]] void ThrowUnanswered(uint16_t requestId) const;
    // A request whose answer nobody waits for at this moment.
    struct Outstanding {
        uint32_t seqNum;
        uint16_t replyId;
        bool isKeepalive; // which must be answered
    };
    void SendOutstanding(uint16_t requestId, std::string_view body);
    void WaitForOutstanding(TimePoint deadline);
    void Note(const Message& message);
    MessageHeader NewHeader(uint16_t messageId);
    std::string MonitorBody(const char* action, const Stream& stream) const;

    HostPort address_;
    milliseconds timeout_;
    Connection command_;
    uint32_t id_ = 0;
    uint32_t seqNum_ = 0;
    std::chrono::seconds aliveInterval_{0}; // 0 before login: nothing to keep alive
    TimePoint nextKeepalive_;
    std::optional<Outstanding> outstanding_;
    TimePoint outstandingDeadline_;
    uint64_t alarms_ = 0;
    AlarmSink alarmSink_;
};
