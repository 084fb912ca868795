#include "config/ability_report.h"

#include "common/log.h"
#include "config/ability_answers.h"
#include "config/encode_capability.h"

namespace {

constexpr int kRetUnknownName = 101;

constexpr NamedAnswer kAbilities[] = {
    {"MultiLanguage", "MultiLanguage", kObjectFirst, kMultiLanguage, nullptr},
    {"BlindCapability", "BlindCapability", kObjectFirst, kBlindCapability, nullptr},
    {"SupportExtRecord", "SupportExtRecord", kObjectFirst, kSupportExtRecord, nullptr},
    {"PTZcontrol", "PTZcontrol", kObjectFirst, kPtzControl, nullptr},
    {"SystemFunction", "SystemFunction", kObjectLast, kSystemFunction, nullptr},
    {"EncodeCapability", "EncodeCapability", kObjectFirst, nullptr, BuildEncodeCapability},
    {"AHDEncodeL", "AHDEncodeL", kObjectFirst, kAhdEncodeL, nullptr},
    {"AVEnc.EncodeStaticParam", "AVEnc.EncodeStaticParam", kObjectFirst, nullptr,
     BuildAVEncEncodeStaticParam},
    {"EncStaticParam", "EncodeStaticParam", kObjectFirst, nullptr, BuildEncodeStaticParam},
    {"MotionArea", "MotionArea", kObjectFirst, kMotionArea, nullptr},
    {"MotionArea.[0]", "MotionArea.[0]", kObjectFirst, kMotionArea, nullptr},
    {"TalkAudioFormat", "TalkAudioFormat", kObjectFirst, nullptr, BuildTalkAudioFormat},
    {"MultiVstd", "MultiVstd", kObjectFirst, kMultiVstd, nullptr},
    {"Camera", "Camera", kObjectLast, kCameraAbility, nullptr},
};

} // namespace

std::span<const NamedAnswer> Abilities()
{
    return kAbilities;
}

int ProcessGetAbilityReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kGetAbilityReply);
    LogTrace("%s %d: seqnum = %d\n", __func__, __LINE__, header.ulSeqNum);
    const JsonPtr body = ParseBody(request, requestLen);
    const char* const name = GetJsonString(body.get(), "Name");
    if (body != nullptr)
        LogTrace("%s %d: ###############Name = %s\n", __func__, __LINE__, TextForLog(name));
    ReplyText text = StartReplyText(reply);
    if (const NamedAnswer* const row = FindAnswer(kAbilities, name)) {
        WriteNamedAnswer(*row, header.ulSessionId, &text);
        LogTrace("%s %d: data = \n%.*s\n", __func__, __LINE__, static_cast<int>(text.length),
                 text.buffer.data());
    } else {
        LogTrace("..............%s %d: Name = %s\n", __func__, __LINE__, TextForLog(name));
        WriteNamelessAnswer(kRetUnknownName, header.ulSessionId, &text);
    }
    return FinishReply(header, text, reply, replyLen);
}
