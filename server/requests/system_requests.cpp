#include "server/requests/system_requests.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iterator>

#include "camera/device_commands.h"
#include "common/log.h"

namespace {

constexpr char kEmptyName[] = R"("Name":"",)";
constexpr uint32_t kRestoreByHost = 1; // the parameter host restores the defaults

void LogSeqNum(const char* handler, int line, const MessageHeader& header)
{
    LogTrace("%s %d: seqnum = %d\n", handler, line, header.ulSeqNum);
}

void LogName(const char* handler, int line, const char* name)
{
    LogTrace("%s %d:...........Name = %s\n", handler, line, TextForLog(name));
}

// Sets the clock to a text like "2019-03-05 07:04:09"; any other text, or none, changes nothing.
void SetClock(const char* text)
{
    tm time{};
    if (text == nullptr || strptime(text, "%Y-%m-%d %H:%M:%S", &time) == nullptr)
        return;
    (void)CameraSetDateTime({.ulYear = static_cast<uint32_t>(time.tm_year + 1900),
                             .ulMonth = static_cast<uint32_t>(time.tm_mon + 1),
                             .ulReserved2 = 0,
                             .ulDay = static_cast<uint32_t>(time.tm_mday),
                             .ulHour = static_cast<uint32_t>(time.tm_hour),
                             .ulMinute = static_cast<uint32_t>(time.tm_min),
                             .ulSecond = static_cast<uint32_t>(time.tm_sec)});
}

using SystemAction = void(const cJSON* body);

constexpr struct SystemCommand {
    const char* name;
    SystemAction* act;
} kSystemCommands[] = {
    {"OPTimeSetting", [](const cJSON* body) { SetClock(GetJsonString(body, "OPTimeSetting")); }},
    {"OPUTCTimeSetting", [](const cJSON* body) { SetClock(GetJsonString(body, "OPUTCTimeSetting")); }},
    {"OPDefaultConfig", [](const cJSON*) { (void)CameraFactoryDefault(kRestoreByHost); }},
    {"OPMachine", [](const cJSON*) { (void)CameraReboot(); }},
    {"OPLogManager", [](const cJSON*) {}},
};

// Brings the stored zone back into force, as every request of this kind does.
void WriteTimeZoneAgain()
{
    uint8_t index = 0;
    (void)CameraGetTimeZone(&index);
    (void)CameraSetTimeZone(0, index);
}

void Manage(const char* handler, const cJSON* body)
{
    const char* const name = GetJsonString(body, "Name");
    LogName(handler, __LINE__, name);
    WriteTimeZoneAgain();
    const auto* const command =
        std::find_if(std::begin(kSystemCommands), std::end(kSystemCommands),
                     [name](const auto& row) { return name != nullptr && strcmp(row.name, name) == 0; });
    if (command != std::end(kSystemCommands))
        command->act(body);
    else
        LogName(handler, __LINE__, name);
}

} // namespace

int ProcessTimeQueryReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kTimeQueryReply);
    LogSeqNum(__func__, __LINE__, header);
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[80];
    snprintf(text, sizeof text, "%d-%d-%d %d:%d:%d", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
             utc.tm_hour, utc.tm_min, utc.tm_sec);
    return WriteReply(header, R"("Name":"OPTimeQuery","OPTimeQuery":@,)", reply, replyLen, Quoted(text));
}

int ProcessTimeSettingReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kTimeSettingReply);
    LogSeqNum(__func__, __LINE__, header);
    const JsonPtr body = ParseBody(request, requestLen);
    SetClock(GetJsonString(body.get(), "OPTimeSettingNoRTC"));
    return WriteReply(header, kEmptyName, reply, replyLen);
}

int ProcessSysManagerReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kSysManagerReply);
    LogSeqNum(__func__, __LINE__, header);
    if (const JsonPtr body = ParseBody(request, requestLen))
        Manage(__func__, body.get());
    return WriteReply(header, kEmptyName, reply, replyLen);
}

int ProcessOPLogQueryReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kLogQueryReply);
    LogSeqNum(__func__, __LINE__, header);
    if (const JsonPtr body = ParseBody(request, requestLen)) {
        const char* const name = GetJsonString(body.get(), "Name");
        if (name == nullptr || strcmp(name, "OPLogQuery") != 0)
            LogName(__func__, __LINE__, name);
    }
    return WriteReply(header, kEmptyName, reply, replyLen);
}
