#include "fuzz/reply_check.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "fuzz/machine.h"
#include "protocol/json_fields.h"
#include "protocol/message.h"

namespace {

// The server writes JSON just as cJSON prints it, so a body that is JSON comes out as it went in.
bool IsPrintedJson(std::string_view text)
{
    const JsonPtr value(cJSON_ParseWithLength(text.data(), text.size()));
    const JsonText printed(cJSON_PrintUnformatted(value.get()));
    return printed != nullptr && text == printed.get();
}

uint16_t ReplyIdOf(uint16_t requestId)
{
    switch (requestId) {
    case kUserGroupReq:
        return kUserGroupReply;
    case kForceIFrameReq:
        return kForceIFrameReply;
    default:
        return static_cast<uint16_t>(requestId + 1);
    }
}

} // namespace

void CheckMessage(std::span<const uint8_t> message)
{
    if (message.size() < kHeaderBytes || message.size() > kReplyBytes)
        Violation("a message of an impossible length");
    const MessageHeader header = ReadHeader(message.data(), message.size());
    if (header.ulBodyLength != message.size() - kHeaderBytes)
        Violation("a message's length field is wrong");
    if (header.ucHeadFlag != kHeadFlag || header.ucVersion != kVersion || header.ucReserved2[0] != 0 ||
        header.ucReserved2[1] != 0 || header.ucReserved12[0] != 0 || header.ucReserved12[1] != 0)
        Violation("a message's fixed header fields are wrong");
    const std::string_view body(reinterpret_cast<const char*>(message.data()) + kHeaderBytes,
                                message.size() - kHeaderBytes);
    static std::string checked; // a reply is seen twice, when it is made and when it is sent
    if (body != checked && !IsPrintedJson(body))
        Violation("a body that is not JSON");
    checked = body;
    const bool isForEverybody = header.usMessageId == kDevSearchReply || header.usMessageId == kAlarmInfo;
    char session[32];
    snprintf(session, sizeof session, R"("SessionID":"0x%08x")", isForEverybody ? 0 : header.ulSessionId);
    if (body.find(session) == std::string_view::npos)
        Violation("a body without its session");
}

void CheckReply(std::span<const uint8_t> request, std::span<const uint8_t> reply)
{
    CheckMessage(reply);
    const MessageHeader asked = ReadHeader(request.data(), request.size());
    const MessageHeader answered = ReadHeader(reply.data(), reply.size());
    if (answered.ulSeqNum != asked.ulSeqNum)
        Violation("a reply with another sequence number than its request");
    if (answered.usMessageId != ReplyIdOf(asked.usMessageId))
        Violation("a reply with a wrong message id");
}
