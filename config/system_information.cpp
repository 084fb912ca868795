#include "config/system_information.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "camera/device_commands.h"
#include "common/log.h"
#include "config/named_answer.h"

namespace {

constexpr char kPartition[] =
    R"({"DirverType":0,"LogicSerialNo":0,"IsCurrent":false,"Status":0,"NewEndTime":"0000-00-00 00:00:00",)"
    R"("NewStartTime":"0000-00-00 00:00:00","OldEndTime":"0000-00-00 00:00:00",)"
    R"("OldStartTime":"0000-00-00 00:00:00","RemainSpace":"0000-00-00 00:00:00",)"
    R"("TotalSpace":"0000-00-00 00:00:00","fsType":""})";

// Build time and run time are fixed texts.
void BuildSystemInfo(ReplyText* text)
{
    DeviceInformation device{};
    (void)CameraGetDeviceInformation(&device);
    Add(text,
        R"({"AlarmInChannel":2,"AlarmOutChannel":1,"AudioInChannel":1,"BuildTime":"2014-05-08 09:41:37",)"
        R"("CombineSwitch":0,"DeviceRunTime":"0x00070E38","DigChannel":0,"EncryptVersion":"Unknown",)"
        R"("ExtraChannel":0,"HardWare":@,"HardWareVersion":@,"SerialNo":@,"SoftWareVersion":@,)"
        R"("TalkInChannel":1,"TalkOutChannel":1,"UpdataTime":"","UpdataType":"0x00000000",)"
        R"("VideoInChannel":1,"VideoOutChannel":1})",
        Quoted(device.szFirmwareVersion), Quoted(device.szHardwareId), Quoted(device.szSerialNumber),
        Quoted(device.szFirmwareVersion));
}

// Four partitions, none of which exists, as an array within an array.
void BuildStorageInfo(ReplyText* text)
{
    const JsonValue partition = Plain(kPartition);
    Add(text, "[[@,@,@,@]]", partition, partition, partition, partition);
}

// In the order in which they are looked for.
constexpr NamedAnswer kAnswers[] = {
    {"StorageInfo", "StorageInfo", kObjectLast, nullptr, BuildStorageInfo},
    {"SystemInfo", "SystemInfo", kObjectLast, nullptr, BuildSystemInfo},
};

// The first row whose name stands anywhere in the text.
const NamedAnswer* FindWithin(const char* text)
{
    const auto* const row =
        std::find_if(std::begin(kAnswers), std::end(kAnswers), [text](const NamedAnswer& answer) {
            return text != nullptr && strstr(text, answer.name) != nullptr;
        });
    return row != std::end(kAnswers) ? row : nullptr;
}

} // namespace

std::span<const NamedAnswer> SystemInformationAnswers()
{
    return kAnswers;
}

int ProcessSysinfoReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kSysinfoReply);
    *replyLen = 0;
    const JsonPtr body = ParseBody(request, requestLen);
    if (body == nullptr)
        return 0;
    const char* const name = GetJsonString(body.get(), "Name");
    LogTrace("%s %d: @@@@@@@@@Name=%s\n", __func__, __LINE__, TextForLog(name));
    const NamedAnswer* const row = FindWithin(name);
    if (row == nullptr)
        return 0;
    ReplyText text = StartReplyText(reply);
    WriteNamedAnswer(*row, header.ulSessionId, &text);
    return FinishReply(header, text, reply, replyLen);
}
