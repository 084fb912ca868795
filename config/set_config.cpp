#include "config/set_config.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "config/encode_set.h"
#include "config/event_objects.h"
#include "config/general_objects.h"
#include "config/image_objects.h"
#include "config/network_objects.h"

namespace {

// Recorders save whole pages. What the camera keeps no setting for is read by nobody, and said to be
// saved.
SetResult AcceptOnly(const cJSON*, const cJSON*)
{
    return kReply;
}

constexpr SettableObject kObjects[] = {
    {"Simplify.Encode.[0]", ApplySimplifyEncode},
    {"Detect.MotionDetect.[0]", ApplyMotionDetect},
    {"AVEnc.VideoColor.[0]", ApplyVideoColor},
    {"General.AutoMaintain", AcceptOnly},
    {"System.ExUserMap", AcceptOnly},
    {"System.TimeZone", ApplyTimeZone},
    {"NetWork.NetDHCP", ApplyNetDHCP},
    {"OEMcfg.Correspondent", AcceptOnly},
    {"NetWork.NetCommon", ApplyNetCommon},
    {"General.General", AcceptOnly},
    {"General.Location", AcceptOnly},
    {"NetWork.NetNTP", AcceptOnly},
};

const SettableObject* FindObject(const char* name)
{
    if (name == nullptr)
        return nullptr;
    const auto* const row = std::find_if(std::begin(kObjects), std::end(kObjects),
                                         [name](const auto& r) { return strcmp(r.name, name) == 0; });
    return row != std::end(kObjects) ? row : nullptr;
}

// Standard output shows what could not be understood: the title, then the body as it came.
void PrintBody(const char* title, const uint8_t* request, int requestLen, const char* end)
{
    const std::string_view body = RequestBody(request, requestLen);
    printf("%s%.*s%s", title, static_cast<int>(body.size()), body.data(), end);
}

} // namespace

std::span<const SettableObject> SettableObjects()
{
    return kObjects;
}

int ProcessSetConfigReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kSetConfigReply);
    LogTrace("%s %d: seqnum = %d\n", __func__, __LINE__, header.ulSeqNum);
    *replyLen = 0;
    const JsonPtr body = ParseBody(request, requestLen);
    if (body == nullptr) {
        PrintBody("", request, requestLen, " \n");
        return 0;
    }
    const char* const name = GetJsonString(body.get(), "Name");
    LogTrace("%s %d: Name = %s\n", __func__, __LINE__, TextForLog(name));
    const SettableObject* const object = FindObject(name);
    if (object == nullptr) {
        LogTrace("..............%s %d: Name = %s\n", __func__, __LINE__, TextForLog(name));
        PrintBody("request = \n", request, requestLen, "\n");
        return 0;
    }
    if (object->apply(body.get(), GetJsonMember(body.get(), object->name)) == kNoReply)
        return 0;
    return WriteReply(header, R"("Name":"",)", reply, replyLen);
}
