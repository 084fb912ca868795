#include "protocol/request.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "protocol/connection_table.h"

namespace {

// The library asks for a few bytes more than it prints; with this room a body may fill the reply.
constexpr size_t kPrintSlack = 64;

JsonPtr BuildBody(std::span<const JsonMember> members, uint32_t sessionId)
{
    char sessionText[16];
    snprintf(sessionText, sizeof sessionText, "0x%08x", sessionId);
    const JsonMember tail[] = {Int("Ret", kRetSuccess), Text("SessionID", sessionText)};
    JsonPtr object(cJSON_CreateObject());
    if (object == nullptr || !AddMembers(object.get(), members) || !AddMembers(object.get(), tail))
        return nullptr;
    return object;
}

} // namespace

void LogRequest(const char* handler, int line)
{
    LogTrace("Process %s %s %d\n", "ProtocolAccess.c", handler, line);
}

std::string_view RequestBody(const uint8_t* request, int requestLen)
{
    if (requestLen <= static_cast<int>(kHeaderBytes))
        return ""; // not null: it is copied and printed like any other
    const char* const body = reinterpret_cast<const char*>(request) + kHeaderBytes;
    return {body, strnlen(body, static_cast<size_t>(requestLen) - kHeaderBytes)};
}

JsonPtr ParseBody(const uint8_t* request, int requestLen)
{
    const std::string_view body = RequestBody(request, requestLen).substr(0, kMaxBodyBytes);
    // The parser may look one byte beyond a body that breaks off, so it gets one that ends in zero.
    char text[kMaxBodyBytes + 1];
    memcpy(text, body.data(), body.size());
    text[body.size()] = '\0';
    return JsonPtr(cJSON_ParseWithLength(text, body.size() + 1));
}

MessageHeader StartReply(int fd, const uint8_t* request, MessageId replyId)
{
    MessageHeader header{};
    header.ucHeadFlag = kHeadFlag;
    header.ucVersion = kVersion;
    header.ulSessionId = GetSessionIdByFd(fd);
    header.ulSeqNum = ReadHeader(request, kHeaderBytes).ulSeqNum;
    header.usMessageId = replyId;
    return header;
}

int WriteReply(int fd, const uint8_t* request, MessageId replyId, std::span<const JsonMember> members,
               uint8_t* reply, int* replyLen)
{
    return WriteReply(StartReply(fd, request, replyId), members, reply, replyLen);
}

int WriteReply(const MessageHeader& header, std::span<const JsonMember> members, uint8_t* reply,
               int* replyLen)
{
    *replyLen = 0;
    const JsonPtr body = BuildBody(members, header.ulSessionId);
    char text[kMaxBodyBytes + kPrintSlack];
    const bool isPrinted =
        body != nullptr && cJSON_PrintPreallocated(body.get(), text, sizeof text, /* format= */ 0) != 0;
    const size_t bodyBytes = isPrinted ? strlen(text) : 0;
    if (!isPrinted || bodyBytes > kMaxBodyBytes) {
        LogTrace("%s %d: reply %d exceeds %zu bytes or memory ran out, not sent\n", __func__, __LINE__,
                 header.usMessageId, kReplyBytes);
        return 0;
    }
    MessageHeader complete = header;
    complete.ulBodyLength = static_cast<uint32_t>(bodyBytes);
    WriteHeader(reply, complete);
    std::copy_n(text, bodyBytes, reply + kHeaderBytes); // without its zero, which does not travel
    *replyLen = static_cast<int>(kHeaderBytes + bodyBytes);
    return 0;
}
