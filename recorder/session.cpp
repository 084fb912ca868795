#include "recorder/session.h"

#include <poll.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "media/media_layout.h"
#include "recorder/failure.h"

namespace {

constexpr Stream kStreams[] = {
    {"main", "Main", kMainFrameBytes},
    {"extra", "Extra", kExtraFrameBytes},
    {"extra1", "Extra1", kExtraFrameBytes},
    {"extra2", "Extra2", kExtraFrameBytes},
};

constexpr int kResultOk = 100;
constexpr int kDefaultAliveInterval = 20; // seconds, when the camera names none that can be meant
constexpr int kMaxAliveInterval = 3600;
constexpr int kReadsPerPass = 16; // before a poll loop serves its other connections

// A reply's id is its request's plus one, but for these.
constexpr struct {
    uint16_t request;
    uint16_t reply;
} kOddReplies[] = {
    {kUserGroupReq, kUserGroupReply},
    {kForceIFrameReq, kForceIFrameReply},
};

uint16_t ReplyId(uint16_t requestId)
{
    for (const auto& odd : kOddReplies)
        if (odd.request == requestId)
            return odd.reply;
    return static_cast<uint16_t>(requestId + 1);
}

bool IsAnswer(const MessageHeader& header, const MessageHeader& request)
{
    return header.ulSeqNum == request.ulSeqNum && header.usMessageId == ReplyId(request.usMessageId);
}

Reply MakeReply(const Message& message)
{
    const std::string text(reinterpret_cast<const char*>(message.body.data()), message.body.size());
    return {message.header, text, JsonPtr(cJSON_ParseWithLength(text.data(), text.size()))};
}

std::string SessionText(uint32_t id)
{
    char text[11];
    snprintf(text, sizeof text, "0x%08x", id);
    return text;
}

// A camera answers every login, but ignores ids that it does not know.
std::string Unanswered(uint16_t requestId)
{
    return requestId == kLoginReq ? "the login is not answered; perhaps this port speaks another protocol"
                                  : "request " + std::to_string(requestId) + " is not answered";
}

void CheckResult(const Reply& reply, const std::string& name)
{
    const cJSON* result = cJSON_GetObjectItem(reply.json.get(), "Ret");
    if (!cJSON_IsNumber(result))
        throw Failure(kExitNotProtocol, name + ": not this protocol: answer " +
                                            std::to_string(reply.header.usMessageId) + " carries no result");
    if (result->valueint != kResultOk)
        throw Failure(kExitCameraError,
                      name + ": the camera answers with result " + std::to_string(result->valueint));
}

// The interval comes from the peer: one that is missing or senseless must not silence the keepalive.
std::chrono::seconds AliveInterval(const Reply& reply)
{
    const cJSON* interval = cJSON_GetObjectItem(reply.json.get(), "AliveInterval");
    const bool meant =
        cJSON_IsNumber(interval) && interval->valueint >= 1 && interval->valueint <= kMaxAliveInterval;
    return std::chrono::seconds(meant ? interval->valueint : kDefaultAliveInterval);
}

} // namespace

std::span<const Stream> Streams()
{
    return kStreams;
}

const Stream& FindStream(std::string_view option)
{
    const std::string wanted(option);
    for (const Stream& stream : kStreams)
        if (strcasecmp(stream.option, wanted.c_str()) == 0)
            return stream;
    throw Failure(kExitUsage, "no stream is called '" + wanted + "'");
}

Session::Session(const HostPort& address, milliseconds timeout)
    : address_(address), timeout_(timeout), command_(address, Clock::now() + timeout)
{
}

MessageHeader Session::NewHeader(uint16_t messageId)
{
    MessageHeader header{};
    header.ulSessionId = id_;
    header.ulSeqNum = seqNum_++;
    header.usMessageId = messageId;
    return header;
}

Reply Session::Login()
{
    Reply reply = RequestOk(
        kLoginReq, R"({"EncryptType":"None","LoginType":"velmora","PassWord":"","UserName":"velmora"})");
    id_ = reply.header.ulSessionId;
    aliveInterval_ = AliveInterval(reply);
    nextKeepalive_ = Clock::now() + aliveInterval_;
    return reply;
}

uint32_t Session::SendRequest(uint16_t requestId, std::string_view body, TimePoint deadline)
{
    if (body.size() > kMaxBodyBytes)
        throw Failure(kExitUsage, "a request holds at most " + std::to_string(kMaxBodyBytes) + " bytes");
    WaitForOutstanding(deadline);
    const MessageHeader header = NewHeader(requestId);
    command_.Send(header, body);
    return header.ulSeqNum;
}

std::optional<Reply> Session::AwaitReply(uint16_t requestId, uint32_t first, uint32_t last,
                                         TimePoint deadline)
{
    try {
        for (;;) {
            const Message message = command_.Receive(deadline);
            if (message.header.usMessageId == ReplyId(requestId) &&
                message.header.ulSeqNum - first <= last - first)
                return MakeReply(message);
            Note(message);
        }
    } catch (const Failure& failure) {
        if (failure.code() != kExitTimedOut)
            throw;
        return std::nullopt;
    }
}

void Session::ThrowUnanswered(uint16_t requestId) const
{
    throw Failure(kExitTimedOut, command_.name() + ": timed out: " + Unanswered(requestId));
}

Reply Session::Request(uint16_t requestId, std::string_view body)
{
    const TimePoint deadline = Clock::now() + timeout_;
    const uint32_t seqNum = SendRequest(requestId, body, deadline);
    if (auto reply = AwaitReply(requestId, seqNum, seqNum, deadline))
        return std::move(*reply);
    ThrowUnanswered(requestId);
}

Reply Session::RequestOk(uint16_t requestId, std::string_view body)
{
    Reply reply = Request(requestId, body);
    CheckResult(reply);
    return reply;
}

Reply Session::RequestTwiceOk(uint16_t requestId, std::string_view body, milliseconds patience)
{
    TimePoint deadline = Clock::now() + timeout_;
    const uint32_t first = SendRequest(requestId, body, deadline);
    auto reply = AwaitReply(requestId, first, first, std::min(Clock::now() + patience, deadline));
    if (!reply) {
        deadline = Clock::now() + timeout_;
        const uint32_t second = SendRequest(requestId, body, deadline);
        reply = AwaitReply(requestId, first, second, deadline);
        // Late, not dropped: the second one is still under way, and the next request must not join it.
        if (reply && reply->header.ulSeqNum == first)
            (void)AwaitReply(requestId, second, second, deadline);
    }
    if (!reply)
        ThrowUnanswered(requestId);
    CheckResult(*reply);
    return std::move(*reply);
}

void Session::CheckResult(const Reply& reply) const
{
    ::CheckResult(reply, command_.name());
}

std::string Session::idText() const
{
    return SessionText(id_);
}

std::string Session::MonitorBody(const char* action, const Stream& stream) const
{
    return std::string(R"({"Name":"OPMonitor","OPMonitor":{"Action":")") + action +
           R"(","Parameter":{"Channel":0,"StreamType":")" + stream.name + R"("}},"SessionID":")" +
           SessionText(id_) + R"("})";
}

void Session::AskOn(Connection& media, uint16_t requestId, std::string_view body, TimePoint deadline)
{
    const MessageHeader header = NewHeader(requestId);
    media.Send(header, body);
    for (;;) {
        const Message message = media.Receive(deadline);
        if (IsAnswer(message.header, header))
            return ::CheckResult(MakeReply(message), media.name());
    }
}

Connection Session::Claim(const Stream& stream, bool subscribesFirst)
{
    const TimePoint deadline = Clock::now() + timeout_;
    Connection media(address_, deadline);
    if (subscribesFirst)
        AskOn(media, kAlarmSubscribeReq, R"({"Name":""})", deadline);
    AskOn(media, kMonitorClaim, MonitorBody("Claim", stream), deadline);
    return media;
}

void Session::Monitor(const char* action, const Stream& stream)
{
    RequestOk(kMonitorReq, MonitorBody(action, stream));
}

void Session::KeepAlive()
{
    const TimePoint now = Clock::now();
    command_.Flush();
    if (outstanding_.has_value()) {
        if (now < outstandingDeadline_)
            return;
        if (outstanding_->isKeepalive)
            throw Failure(kExitTimedOut, command_.name() + ": timed out: the keepalive is not answered");
        outstanding_.reset();
    }
    if (aliveInterval_.count() == 0 || now < nextKeepalive_)
        return;
    nextKeepalive_ = now + aliveInterval_;
    SendOutstanding(kKeepaliveReq, R"({"Name":"KeepAlive","SessionID":")" + SessionText(id_) + R"("})");
}

void Session::Post(uint16_t requestId, std::string_view body)
{
    WaitForOutstanding(Clock::now() + timeout_);
    SendOutstanding(requestId, body);
}

void Session::SendOutstanding(uint16_t requestId, std::string_view body)
{
    const MessageHeader header = NewHeader(requestId);
    outstanding_ = {
        .seqNum = header.ulSeqNum, .replyId = ReplyId(requestId), .isKeepalive = requestId == kKeepaliveReq};
    outstandingDeadline_ = Clock::now() + timeout_;
    command_.Send(header, body);
}

void Session::Receive()
{
    // Begins with what lies there: a request that waited for its answer may have read more than that.
    for (int reads = 0; reads < kReadsPerPass; reads++) {
        while (const auto message = command_.NextMessage())
            Note(*message);
        if (!command_.ReadMore())
            return;
    }
}

bool Session::StayUntil(TimePoint until, int descriptor)
{
    while (Clock::now() < until) {
        Receive();
        KeepAlive();
        const auto out = static_cast<short>(command_.hasUnsent() ? POLLOUT : 0);
        pollfd polled[] = {{descriptor, POLLIN, 0}, {command_.fd(), static_cast<short>(POLLIN | out), 0}};
        (void)poll(polled, std::size(polled),
                   PollTimeout(std::min(until, nextWake()))); // again if interrupted
        if (polled[0].revents != 0)
            return false;
    }
    return true;
}

void Session::WaitForOutstanding(TimePoint deadline)
{
    while (outstanding_.has_value() && (outstanding_->isKeepalive || Clock::now() < outstandingDeadline_))
        Note(command_.Receive(deadline));
}

void Session::Note(const Message& message)
{
    if (outstanding_.has_value() && message.header.usMessageId == outstanding_->replyId &&
        message.header.ulSeqNum == outstanding_->seqNum) {
        outstanding_.reset();
    } else if (message.header.usMessageId == kAlarmInfo) {
        alarms_++;
        if (alarmSink_)
            alarmSink_({reinterpret_cast<const char*>(message.body.data()), message.body.size()});
    }
}

TimePoint Session::nextWake() const
{
    if (outstanding_.has_value())
        return outstandingDeadline_;
    return aliveInterval_.count() == 0 ? TimePoint::max() : nextKeepalive_;
}
