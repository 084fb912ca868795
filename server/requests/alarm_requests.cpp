#include "server/requests/alarm_requests.h"

#include "protocol/connection_table.h"

namespace {

constexpr char kMembers[] = R"("Name":"",)";

} // namespace

int ProcessAlarmSubscribeReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    (void)WriteReply(StartReply(fd, request, kAlarmSubscribeReply), kMembers, reply, replyLen); // always 0
    SetAlarmFlag(fd, 1);
    return 0;
}

int ProcessAlarmUnsubscribeReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    SetAlarmFlag(fd, 0);
    return WriteReply(StartReply(fd, request, kAlarmUnsubscribeReply), kMembers, reply, replyLen);
}
