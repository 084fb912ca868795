#include "config/get_config.h"

#include <cstdio>

#include "common/log.h"
#include "config/encode_objects.h"
#include "config/event_objects.h"
#include "config/general_objects.h"
#include "config/image_objects.h"
#include "config/network_objects.h"

namespace {

constexpr int kRetUnknownName = 607;

constexpr NamedAnswer kAnswers[] = {
    {"AVEnc.Encode", "Simplify.Encode", kObjectFirst, nullptr, BuildAVEncEncode},
    {"General.General", "General.General", kObjectFirst, kGeneralGeneral, nullptr},
    {"General.Location", "General.Location", kObjectFirst, kGeneralLocation, nullptr},
    {"NetWork.NetDHCP", "NetWork.NetDHCP", kNameFirst, nullptr, BuildNetDHCP},
    {"NetWork.NetDNS", "NetWork.NetDNS", kNameFirst, nullptr, BuildNetDNS},
    {"Alarm.LocalAlarm.[0]", "Alarm.LocalAlarm.[0]", kObjectFirst, nullptr, BuildLocalAlarm},
    {"Alarm.AlarmOut", "Alarm.AlarmOut", kObjectFirst, kAlarmOut, nullptr},
    {"System.ExUserMap", "System.ExUserMap", kObjectLast, kExUserMap, nullptr},
    {"Record.[0]", "Record.[0]", kNameFirst, nullptr, BuildRecord},
    {"Storage.Snapshot.[0]", "Storage.Snapshot.[0]", kNameFirst, nullptr, BuildStorageSnapshot},
    {"Storage.StoragePosition", "Storage.StoragePosition", kObjectLast, kStoragePosition, nullptr},
    {"OEMcfg.Correspondent", "OEMcfg.Correspondent", kNameFirst, nullptr, BuildCorrespondent},
    {"NetWork.NetCommon", "NetWork.NetCommon", kNameFirst, nullptr, BuildNetCommon},
    {"Simplify.Encode", "Simplify.Encode", kObjectFirst, nullptr, BuildSimplifyEncode},
    {"AVEnc.CombineEncode", "AVEnc.CombineEncode", kObjectFirst, nullptr, BuildCombineEncode},
    {"AVEnc.CombineEncodeParam", "AVEnc.CombineEncodeParam", kObjectFirst, kCombineEncodeParam, nullptr},
    {"AVEnc.VideoColor.[0]", "AVEnc.VideoColor.[0]", kObjectFirst, nullptr, BuildVideoColor},
    {"Camera.Param.[0]", "Camera.Param.[0]", kObjectFirst, kCameraParam, nullptr},
    {"Detect.MotionDetect.[0]", "Detect.MotionDetect.[0]", kObjectFirst, nullptr, BuildMotionDetect},
    {"fVideo.GUISet", "fVideo.GUISet", kObjectFirst, kGuiSet, nullptr},
    {"AVEnc.VideoWidget", "AVEnc.VideoWidget", kObjectFirst, kVideoWidget, nullptr},
    {"General.AutoMaintain", "General.AutoMaintain", kObjectLast, kAutoMaintain, nullptr},
    {"NetWork.OnlineUpgrade", "NetWork.OnlineUpgrade", kObjectLast, kOnlineUpgrade, nullptr},
    {"System.TimeZone", "System.TimeZone", kObjectLast, nullptr, BuildTimeZone},
    {"NetWork.NetNTP", "NetWork.NetNTP", kObjectLast, kNetNTP, nullptr},
    {"NetWork.DigManagerShow", nullptr, kObjectFirst, nullptr, nullptr}, // known, and never served
};

// The replies about alarms go to standard output, all others to the log.
void ShowReply(const NamedAnswer& row, const ReplyText& text, int line)
{
    const int length = static_cast<int>(text.length);
    if (row.build == BuildLocalAlarm || row.fixed == kAlarmOut)
        printf("respond = \n%.*s\n", length, text.buffer.data());
    else
        LogTrace("%s %d respond = \n%.*s\n", "ProcessGetConfigReq", line, length, text.buffer.data());
}

} // namespace

std::span<const NamedAnswer> GetConfigAnswers()
{
    return kAnswers;
}

int ProcessGetConfigReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kGetConfigReply);
    const JsonPtr body = ParseBody(request, requestLen);
    *replyLen = 0;
    if (body == nullptr)
        return 0;
    const char* const name = GetJsonString(body.get(), "Name");
    LogTrace("%s %d: ###################Name = %s\n", __func__, __LINE__, TextForLog(name));
    ReplyText text = StartReplyText(reply);
    const NamedAnswer* const row = FindAnswer(kAnswers, name);
    if (row != nullptr && row->answer != nullptr) {
        WriteNamedAnswer(*row, header.ulSessionId, &text);
        ShowReply(*row, text, __LINE__);
    } else {
        if (row == nullptr)
            LogTrace("..............%s %d: Name = %s\n", __func__, __LINE__, TextForLog(name));
        WriteNamelessAnswer(kRetUnknownName, header.ulSessionId, &text);
    }
    return FinishReply(header, text, reply, replyLen);
}
