#include "media/monitor_requests.h"

#include <strings.h>

#include <atomic>

#include "common/log.h"
#include "protocol/connection_table.h"

namespace {

std::atomic<bool> g_monitorStart{false};

constexpr char kReplyMembers[] = R"("Name":"OPMonitor",)";

constexpr struct StreamName {
    const char* name;
    FdType type;
} kStreamNames[] = {
    {"Main", kFdMainStream},
    {"Extra", kFdExtraStream},
    {"Extra1", kFdExtraStream},
    {"Extra2", kFdExtra2Stream},
};

FdType StreamTypeOf(const cJSON* parameter)
{
    const char* const text = GetJsonString(parameter, "StreamType");
    for (const StreamName& row : kStreamNames)
        if (text != nullptr && strcasecmp(text, row.name) == 0)
            return row.type;
    return kFdNew;
}

enum PlayCommand : int { kPlayStart = 0, kPlayStop = 1 };

// An action other than the two starts the flow too, but says nothing about the monitor-start flag.
PlayCommand ActOn(const char* action)
{
    if (action != nullptr && strcasecmp(action, "Stop") == 0) {
        ClearMonitorStartFlag();
        return kPlayStop;
    }
    if (action != nullptr && strcasecmp(action, "Start") == 0)
        SetMonitorStartFlag();
    return kPlayStart;
}

} // namespace

int ProcessMonitorClaim(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    // Taken as it is: a recorder may claim before, after or without a login of that session.
    SetSessionIdByFd(fd, ReadHeader(request, kHeaderBytes).ulSessionId);
    const MessageHeader header = StartReply(fd, request, kMonitorClaimReply);
    LogTrace("%s %d: ###################\n", __func__, __LINE__);
    const JsonPtr body = ParseBody(request, requestLen);
    FdType type = kFdNew;
    if (const cJSON* const parameter = GetJsonMember(GetJsonMember(body.get(), "OPMonitor"), "Parameter")) {
        type = StreamTypeOf(parameter);
        LogTrace("%s %d: playcmd = %d channel = %d\n", __func__, __LINE__, kPlayStart,
                 GetJsonNumber(parameter, "Channel"));
    }
    (void)WriteReply(header, kReplyMembers, reply, replyLen); // always 0
    LogTrace("%s %d: fd_type = %d\n", __func__, __LINE__, type);
    SetFdType(fd, type);
    return 0;
}

int ProcessMonitorReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kMonitorReply);
    const JsonPtr body = ParseBody(request, requestLen);
    const cJSON* const monitor = GetJsonMember(body.get(), "OPMonitor");
    const PlayCommand command = ActOn(GetJsonString(monitor, "Action"));
    if (const cJSON* const parameter = GetJsonMember(monitor, "Parameter")) {
        const bool isExtra = StreamTypeOf(parameter) == kFdExtraStream;
        LogTrace("%s %d: playcmd = %d channel = %d fd_type = %d\n", __func__, __LINE__, command,
                 GetJsonNumber(parameter, "Channel"), isExtra ? kFdExtraStream : kFdMainStream);
    }
    (void)WriteReply(header, kReplyMembers, reply, replyLen); // always 0
    SetSendVideoFlag(fd, command == kPlayStart ? 1 : 0);
    return 0;
}

void SetMonitorStartFlag()
{
    g_monitorStart = true;
}

void ClearMonitorStartFlag()
{
    g_monitorStart = false;
}

bool TakeMonitorStartFlag()
{
    return g_monitorStart.exchange(false);
}
