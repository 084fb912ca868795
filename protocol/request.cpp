#include "protocol/request.h"

#include <cstring>

#include "common/log.h"
#include "protocol/connection_table.h"

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

// The parser and the release of what it made call themselves for every level; see kThreadStackBytes.
static_assert(CJSON_NESTING_LIMIT <= 1000);

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

ReplyText StartReplyText(uint8_t* reply)
{
    return {.buffer = {reinterpret_cast<char*>(reply) + kHeaderBytes, kMaxBodyBytes}};
}

int FinishReply(const MessageHeader& header, const ReplyText& text, uint8_t* reply, int* replyLen)
{
    *replyLen = 0;
    if (text.isCut) {
        LogTrace("%s %d: reply %d exceeds %zu bytes, not sent\n", __func__, __LINE__, header.usMessageId,
                 kReplyBytes);
        return 0;
    }
    MessageHeader complete = header;
    complete.ulBodyLength = static_cast<uint32_t>(text.length);
    WriteHeader(reply, complete);
    *replyLen = static_cast<int>(kHeaderBytes + text.length);
    return 0;
}
