#include "server/requests/account_requests.h"

#include "protocol/connection_table.h"

namespace {

constexpr JsonValue kAllRights = Plain(
    R"(["ShutDown","ChannelTitle","RecordConfig","Backup","StorageManager","Account","SysInfo","QueryLog",)"
    R"("DelLog","SysUpgrade","AutoMaintain","GeneralConfig","TourConfig","TVadjustConfig","EncodeConfig",)"
    R"("CommConfig","NetConfig","AlarmConfig","VideoConfig","PtzConfig","PTZControl","DefaultConfig",)"
    R"("Talk_01","IPCCamera","ImExport","Monitor_01","Replay_01"])");

// The passwords are fixed digests. Nobody compares them with anything.
constexpr char kUsers[] =
    R"("Users":[{"Group":"admin","Memo":"admin 's account","Name":"admin","Password":"Rk7dWq2M",)"
    R"("Reserved":true,"Sharable":true,"AuthorityList":@},)"
    R"({"Group":"user","Memo":"default account","Name":"default","Password":"Pz3vLn9B",)"
    R"("Reserved":false,"Sharable":false,"AuthorityList":["Monitor_01"]}],)";

constexpr char kGroups[] =
    R"("Groups":[{"Memo":"administrator group","Name":"admin","AuthorityList":@},)"
    R"({"Memo":"user group","Name":"user","AuthorityList":["Monitor_01","Replay_01"]}],)";

} // namespace

int ProcessUserUsersReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    WriteReply(StartReply(fd, request, kUserUsersReply), kUsers, reply, replyLen, kAllRights);
    SetAlarmFlag(fd, 1);
    return 0;
}

int ProcessUserGroupReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    WriteReply(StartReply(fd, request, kUserGroupReply), kGroups, reply, replyLen, kAllRights);
    SetAlarmFlag(fd, 1);
    return 0;
}

int ProcessUserManageReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    WriteReply(StartReply(fd, request, kUserManageReply), R"("AuthorityList":@,)", reply, replyLen,
               kAllRights);
    SetAlarmFlag(fd, 1);
    return 0;
}

int ProcessUserSettingReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    return WriteReply(StartReply(fd, request, kUserSettingReply), R"("Name":"",)", reply, replyLen);
}

int ProcessGetChanTitleReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    return WriteReply(StartReply(fd, request, kGetChanTitleReply),
                      R"("ChannelTitle":["CAM01"],"Name":"ChannelTitle",)", reply, replyLen);
}
