#include "config/encode_set.h"

#include <algorithm>
#include <cstring>

#include "camera/camera_commands.h"
#include "common/clock.h"
#include "common/log.h"
#include "config/resolution_names.h"
#include "media/monitor_requests.h"

namespace {

constexpr char kHandler[] = "ProcessSetConfigReq";
constexpr uint32_t kMjpeg = 4;
constexpr uint32_t kH264 = 2;
constexpr uint32_t kH265 = 3;
constexpr int kLongestGop = 5; // seconds
constexpr uint8_t kVolume = 80;
constexpr uint32_t kSettleMs = 100; // between the other settings of a stream and its size

// The camera's settings as the request met them, and what the request has asked for so far. The passes over
// the request share it.
struct EncodeSet {
    AudioConfig audio;
    AudioProperty property;
    VideoEncoderConfig video;
    bool isTypeChanged;
    uint32_t requestedType[2]; // by stream; 0: none yet
};

// Nobody but the log learns that the camera did not take a setting.
void Check(int status, const char* setting, uint32_t stream)
{
    if (status != kCameraOk)
        LogWarn("%s %d: %s of stream %u is not set: %d\n", kHandler, __LINE__, setting, stream, status);
}

void SetType(uint32_t stream, uint32_t type)
{
    Check(CameraSetEncodingType(stream, type), "encoding type", stream);
}

void SetIFrameInterval(uint32_t stream, int64_t frames)
{
    Check(CameraSetIFrameInterval(stream, static_cast<uint32_t>(frames)), "I-frame interval", stream);
}

void SetFrameRate(uint32_t stream, int64_t frameRate)
{
    Check(CameraSetFrameRate(stream, static_cast<uint32_t>(frameRate)), "frame rate", stream);
}

int32_t Word(uint32_t word)
{
    return static_cast<int32_t>(word);
}

// The main stream's type is the measure for every stream, so that all of them follow a change of it.
void ApplyType(EncodeSet* set, uint32_t stream, uint32_t requested)
{
    if (requested == 0)
        return;
    const uint32_t mainType = set->video.stream[0].ulEncoding;
    if (mainType == kMjpeg) {
        SetType(stream, kH264);
        if (set->isTypeChanged)
            SetType(stream, requested);
    } else if (requested != mainType || set->isTypeChanged) {
        set->isTypeChanged = true;
        SetType(stream, requested);
    }
}

void ApplyBitRateControl(uint32_t stream, const cJSON* video)
{
    const char* const control = GetJsonString(video, "BitRateControl");
    if (control != nullptr && (strcmp(control, "VBR") == 0 || strcmp(control, "CBR") == 0))
        Check(CameraSetBitRateCtl(stream, strcmp(control, "VBR") == 0 ? 1 : 0), "bit-rate control", stream);
}

void ReadCompression(const cJSON* video, uint32_t* requested)
{
    const char* const compression = GetJsonString(video, "Compression");
    if (compression != nullptr && strcmp(compression, "H.264") == 0)
        *requested = kH264;
    else if (compression != nullptr && strcmp(compression, "H.265") == 0)
        *requested = kH265;
}

bool HasNumber(const cJSON* video, const char* key)
{
    return cJSON_IsNumber(GetJsonMember(video, key)) != 0;
}

void ApplyQuality(uint32_t stream, const cJSON* video)
{
    if (!HasNumber(video, "Quality"))
        return;
    const int quality = GetJsonNumber(video, "Quality");
    if (stream == 0)
        LogTrace("%s %d index 0 Quality %d\n", kHandler, __LINE__, quality);
    else
        LogTrace("%s %d index 1 Quality %d\n", kHandler, __LINE__, quality);
    Check(CameraSetVideoQuality(stream, static_cast<uint32_t>(quality)), "quality", stream);
}

void ApplyGop(const StreamEncoderConfig& now, uint32_t stream, int64_t gop)
{
    if (gop == 0 && Word(now.ulMinIFrameInterval) <= 0)
        return;
    if (Word(now.ulMaxIFrameInterval) < gop)
        LogTrace("CONFIGMODIFY %s %s %d\n", "ProtocolAccess.c", kHandler, __LINE__);
    else if (Word(now.ulIFrameInterval) != gop)
        SetIFrameInterval(stream, Word(now.ulFrameRate) * gop);
}

// A rate that the camera cannot do becomes its highest one. The I-frames keep their distance in time.
void ApplyFrameRate(const StreamEncoderConfig& now, uint32_t stream, const cJSON* video, const int64_t* gop)
{
    const int32_t wanted = GetJsonNumber(video, "FPS");
    if (!HasNumber(video, "FPS") || wanted == Word(now.ulFrameRate))
        return;
    const int32_t highest = Word(now.ulMaxFrameRate);
    const int32_t frameRate = wanted > highest || wanted < Word(now.ulMinFrameRate) ? highest : wanted;
    SetFrameRate(stream, frameRate);
    if (gop != nullptr)
        SetIFrameInterval(stream, frameRate * *gop);
}

void ApplyBitRate(const StreamEncoderConfig& now, uint32_t stream, const cJSON* video)
{
    if (HasNumber(video, "BitRate") && GetJsonNumber(video, "BitRate") != Word(now.ulBitRateKbps))
        Check(CameraSetBitRate(stream, static_cast<uint32_t>(GetJsonNumber(video, "BitRate"))), "bit rate",
              stream);
}

void ApplyResolution(uint32_t stream, const cJSON* video)
{
    const char* const name = GetJsonString(video, "Resolution");
    if (name == nullptr)
        return;
    if (IsResolutionSupported(static_cast<int32_t>(stream), name) == 0)
        Check(CameraSetResolution(stream, name), "resolution", stream);
    else
        LogTrace("%s %d NOT Support \n", kHandler, __LINE__);
}

// "Video" of the main or the second stream.
void ApplyVideo(EncodeSet* set, uint32_t stream, const cJSON* video)
{
    const StreamEncoderConfig& now = set->video.stream[stream];
    const int64_t gop = std::min(GetJsonNumber(video, "GOP"), kLongestGop);
    const bool hasGop = HasNumber(video, "GOP");
    ApplyBitRateControl(stream, video);
    ReadCompression(video, &set->requestedType[stream]);
    ApplyType(set, stream, set->requestedType[stream]);
    ApplyQuality(stream, video);
    if (hasGop)
        ApplyGop(now, stream, gop);
    ApplyFrameRate(now, stream, video, hasGop ? &gop : nullptr);
    ApplyBitRate(now, stream, video);
    SleepMs(kSettleMs);
    ApplyResolution(stream, video);
}

// The sound of all streams is switched with the main one.
void ApplyAudio(EncodeSet* set, const cJSON* format)
{
    LogTrace("%s %d $$$$$$$$$$$$AUDIO Support \n", kHandler, __LINE__);
    const bool isOn = GetJsonBool(format, "AudioEnable") == 1;
    if (cJSON_IsBool(GetJsonMember(format, "AudioEnable")) != 0)
        set->property.ucEnable = isOn ? 1 : 0;
    if (set->property.ucOutputVolume == 0) {
        set->property.ucOutputVolume = kVolume;
        set->property.ucInputVolume = kVolume;
    }
    Check(CameraSetAudioProperty(&set->property), "audio", 0);
    if (!isOn)
        return;
    set->audio.ulEncoding = 1;
    Check(CameraSetAudioConfig(&set->audio), "audio encoding", 0);
}

void ApplyFormat(EncodeSet* set, uint32_t stream, const cJSON* format)
{
    const cJSON* const video = GetJsonMember(format, "Video");
    if (cJSON_IsObject(video) != 0)
        ApplyVideo(set, stream, video);
    if (stream == 0 && GetJsonMember(format, "Audio") != nullptr)
        ApplyAudio(set, format);
}

// The third stream, which no recorder knows, follows the main stream's type and is written anew.
void ApplyThirdStream(EncodeSet* set)
{
    constexpr uint32_t kStream = 2;
    const StreamEncoderConfig& now = set->video.stream[kStream];
    ApplyType(set, kStream, set->requestedType[0]);
    SetIFrameInterval(kStream, Word(now.ulFrameRate));
    Check(CameraSetBitRateCtl(kStream, now.ulBitRateControl), "bit-rate control", kStream);
    Check(CameraSetBitRate(kStream, now.ulBitRateKbps), "bit rate", kStream);
    SetFrameRate(kStream, Word(now.ulFrameRate));
    SleepMs(kSettleMs);
    LogTrace("%s %d VideoConfig[2].iVideoWidth %d VideoConfig[2].iVideoHeight %d\n", kHandler, __LINE__,
             now.ulWidth, now.ulHeight);
    const char* const name = GetResolutionName(Word(now.ulWidth), Word(now.ulHeight));
    Check(CameraSetResolution(kStream, name != nullptr ? name : ""), "resolution", kStream);
}

} // namespace

SetResult ApplySimplifyEncode(const cJSON*, const cJSON* object)
{
    LogTrace("%s %d: \n", kHandler, __LINE__);
    if (TakeMonitorStartFlag()) { // recorders repeat the settings when they start to watch
        LogTrace("%s %d: \n", kHandler, __LINE__);
        return kNoReply;
    }
    EncodeSet set{};
    (void)CameraGetAudioConfig(&set.audio);
    (void)CameraGetAudioProperty(&set.property);
    (void)CameraGetVideoEncoderConfig(&set.video);
    const int passes = cJSON_IsObject(object) != 0 ? cJSON_GetArraySize(object) : 0;
    // Once for every member that the object has. What was read before the first pass is not read again.
    for (int pass = 0; pass < passes; ++pass) {
        ApplyFormat(&set, 1, GetJsonMember(object, "ExtraFormat"));
        ApplyFormat(&set, 0, GetJsonMember(object, "MainFormat"));
        ApplyThirdStream(&set);
    }
    return kReply;
}
