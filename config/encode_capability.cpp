#include "config/encode_capability.h"

#include <cstring>
#include <iterator>

#include "camera/camera_commands.h"
#include "common/log.h"
#include "config/resolution_names.h"

namespace {

constexpr int kTalkFormats = 16;

// Where the mask of a stream's sizes comes from.
enum class Sizes : uint8_t { kMain, kSub, kThird, kNone };

// The five streams that the protocol knows; C are the combined streams, E the single ones.
constexpr struct StreamSlot {
    const char* type;
    bool isSingleEnabled;
    bool isCombinedEnabled;
    Sizes sizes;
} kStreamSlots[] = {
    {"MainStream", true, true, Sizes::kMain},      {"ExtraStream2", true, true, Sizes::kSub},
    {"ExtraStream3", false, false, Sizes::kThird}, {"ExtraStream4", false, false, Sizes::kThird},
    {"JPEGStream", true, false, Sizes::kNone},
};

// Sub-stream sizes that go with a main stream of each size, by the bit of the main stream's size. "@" is what
// the sub stream lists.
constexpr char kSubSizes[] =
    R"("0x00000018","0x00000000","0x00000000","0x00000018","0x00000010","0x00000078","0x00000040",)"
    R"("0x00000000","0x00000000","0x00000000","0x00000000","0x00000001","0x00000001","0x00000000",@,)"
    R"("0x00000000","0x00000000",@,"0x00000001","0x00000000",@,"0x00000000","0x00000000","0x00000000",)"
    R"("0x00000000","0x00000000","0x00000000","0x00000000","0x00000000","0x00000000","0x00000000",)"
    R"("0x00000000")";

struct Capability {
    bool hasAudio;
    bool hasH265;
    JsonValue mainSizes;
    JsonValue subSizes;
};

Capability ReadCapability()
{
    AudioProperty property{};
    (void)CameraGetAudioProperty(&property);
    AudioConfig audio{};
    (void)CameraGetAudioConfig(&audio);
    VideoEncoderConfig video{};
    (void)CameraGetVideoEncoderConfig(&video);
    EncodingScope scope{};
    (void)CameraGetEncodingScope(&scope);
    if (video.stream[0].ulEncoding == 4)
        LogTrace("%s %d: No Support iEncoding %d\n\n\n", "ProcessGetAbilityReq", __LINE__,
                 video.stream[0].ulEncoding);
    scope.szCombination[sizeof scope.szCombination - 1] = '\0';
    return {.hasAudio = property.ucEnable == 1 && audio.ulEncoding == 1,
            .hasH265 = strstr(scope.szCombination, "h265") != nullptr ||
                       strstr(scope.szCombination, "H265") != nullptr,
            .mainSizes = UpperHex(ResolutionCombo(0)),
            .subSizes = Hex(ResolutionCombo(1))};
}

JsonValue SizesOf(const StreamSlot& slot, const Capability& capability)
{
    switch (slot.sizes) {
    case Sizes::kMain:
        return capability.mainSizes;
    case Sizes::kSub:
        return capability.subSizes;
    case Sizes::kThird:
        return Hex(0x8);
    case Sizes::kNone:
        break;
    }
    return Hex(0);
}

JsonValue Separator(const StreamSlot& slot)
{
    return Plain(&slot == kStreamSlots ? "" : ",");
}

void AddCombinedStreams(const Capability& capability, ReplyText* text)
{
    for (const StreamSlot& slot : kStreamSlots)
        Add(text,
            R"(@{"Enable":@,"CompressionMask":"0x00000000","HaveAudio":@,"ResolutionMask":"0x00000000",)"
            R"("StreamType":@})",
            Separator(slot), Flag(slot.isCombinedEnabled), Flag(capability.hasAudio), Quoted(slot.type));
}

void AddSingleStreams(const Capability& capability, ReplyText* text)
{
    for (const StreamSlot& slot : kStreamSlots)
        Add(text, R"(@{"CompressionMask":@,"Enable":@,"HaveAudio":@,"ResolutionMask":@,"StreamType":@})",
            Separator(slot), Hex(capability.hasH265 ? 0x180 : 0x80), Flag(slot.isSingleEnabled),
            Flag(capability.hasAudio), SizesOf(slot, capability), Quoted(slot.type));
}

} // namespace

void BuildEncodeCapability(ReplyText* text)
{
    const Capability capability = ReadCapability();
    const JsonValue sub = capability.subSizes;
    Add(text, R"({"ChannelMaxSetSync":0,"CombEncodeInfo":[)");
    AddCombinedStreams(capability, text);
    Add(text, R"(],"EncodeInfo":[)");
    AddSingleStreams(capability, text);
    Add(text, R"(],"Compression":"0x00000000","ExImageSizePerChannel":[@],"ExImageSizePerChannelEx":[[)",
        sub);
    Add(text, kSubSizes, sub, sub, sub);
    Add(text,
        R"(]],"ImageSizePerChannel":[@],"MaxEncodePowerPerChannel":["0x00000000"],)"
        R"("FourthStreamImageSize":["0x00000000"],"ThirdStreamImageSize":["0x00000000"],)"
        R"("MaxBitrate":49152,"MaxEncodePower":0})",
        capability.mainSizes);
}

void BuildTalkAudioFormat(ReplyText* text)
{
    AudioConfig audio{};
    (void)CameraGetAudioConfig(&audio);
    for (int i = 0; i < kTalkFormats; ++i)
        Add(text, R"(@{"BitRate":@,"SampleBit":8,"SampleRate":@,"EncodeType":"G711_ALAW"})",
            Plain(i == 0 ? "[" : ","), Number(static_cast<int32_t>(audio.ulBitRate)),
            Number(static_cast<int32_t>(audio.ulSampleRate)));
    Add(text, "]");
}
