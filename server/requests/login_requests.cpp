#include "server/requests/login_requests.h"

#include <atomic>

#include "common/log.h"
#include "protocol/connection_table.h"

namespace {

// Session ids handed out so far, none of them twice. Counted by the receive thread and by the search
// thread, since a login may come by either.
std::atomic<uint32_t> g_sessionCounter{0};

// "AliveInterval" is the time between keepalives, in seconds.
constexpr char kLoginMembers[] = R"("AliveInterval":20,"ChannelNum":1,"DeviceType":"IPC","ExtraChannel":0,)";

} // namespace

int ProcessLoginReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const uint32_t sessionId = ++g_sessionCounter;
    SetSessionIdByFd(fd, sessionId);
    MessageHeader header = StartReply(fd, request, kLoginReply);
    header.ulSessionId = sessionId; // also when the login came by UDP, which no connection belongs to
    if (const JsonPtr body = ParseBody(request, requestLen))
        LogTrace("%s %d: EncryptType = %s LoginType = %s PassWord = %s UserName = %s \n", __func__, __LINE__,
                 TextForLog(GetJsonString(body.get(), "EncryptType")),
                 TextForLog(GetJsonString(body.get(), "LoginType")),
                 TextForLog(GetJsonString(body.get(), "PassWord")),
                 TextForLog(GetJsonString(body.get(), "UserName")));
    WriteReply(header, kLoginMembers, reply, replyLen);
    SetFdType(fd, kFdCommand);
    return 0;
}

int ProcessKeepaliveReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    return WriteReply(StartReply(fd, request, kKeepaliveReply), R"("Name":"KeepAlive",)", reply, replyLen);
}
