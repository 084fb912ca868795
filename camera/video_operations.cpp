#include "camera/video_operations.h"

#include <algorithm>
#include <cstring>

#include "camera/camera_records.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

constexpr int kUsualFrameRate = 30;
constexpr int kPalFrameRate = 25;
constexpr int kMjpegFrameRate = 15;
constexpr uint8_t kPalStandard = 1;
constexpr uint32_t kEncodingMjpeg = 4;
constexpr uint32_t kMaxBitRate = 12288;
constexpr uint32_t kMaxBitRateMjpeg = 16384;
constexpr int kBitsPerKbit = 1024;

// Sizes that the sensor delivers at less than the usual rate, the larger dimension first.
struct SizeCap {
    int iWidth;
    int iHeight;
    int iFrameRate;
};

constexpr SizeCap kSizeCaps[] = {{2592, 1944, 20}, {2560, 1920, 20}, {2560, 1440, 25}};

int SizeFrameRate(int width, int height)
{
    for (const SizeCap& cap : kSizeCaps)
        if (cap.iWidth == std::max(width, height) && cap.iHeight == std::min(width, height))
            return cap.iFrameRate;
    return kUsualFrameRate;
}

uint32_t MainEncoding(const SysInfo* config)
{
    return BlockField<uint8_t>(config, block::kEncoding(0));
}

// What the main stream decides for all streams.
struct MainStreamLimits {
    int iFrameRate;
    uint32_t ulBitRateKbps;
};

MainStreamLimits ReadLimits(const SysInfo* config)
{
    const int width = BlockField<uint16_t>(config, block::kWidth(0));
    const int height = BlockField<uint16_t>(config, block::kHeight(0));
    return {GetMaxFrameRate(config, width, height, kCapByEncoding),
            MainEncoding(config) == kEncodingMjpeg ? kMaxBitRateMjpeg : kMaxBitRate};
}

StreamEncoderConfig ReadStream(const SysInfo* config, const MainStreamLimits& limits, size_t s)
{
    const int cap = limits.iFrameRate;
    const int configuredRate = BlockField<int32_t>(config, block::kFrameRate(s));
    const bool isWithinCap = configuredRate <= cap;
    const auto frameRate = static_cast<uint32_t>(isWithinCap ? configuredRate : cap);
    const int bitRate = BlockField<int32_t>(config, block::kBitRate(s));
    const int interval = BlockField<int32_t>(config, block::kIFrameInterval(s));
    return {
        .ulMinFrameRate = 1,
        .ulMaxFrameRate = static_cast<uint32_t>(cap),
        .ulFrameRate = frameRate,
        .ulWidth = BlockField<uint16_t>(config, block::kWidth(s)),
        .ulHeight = BlockField<uint16_t>(config, block::kHeight(s)),
        .ulMinQuality = 0,
        .ulMaxQuality = 99,
        .ulQuality = BlockField<uint8_t>(config, block::kQuality(s)),
        .ulEncoding = BlockField<uint8_t>(config, block::kEncoding(s)),
        .ulMinBitRate = 64,
        .ulMaxBitRate = limits.ulBitRateKbps,
        .ulBitRateKbps = static_cast<uint32_t>(bitRate / kBitsPerKbit),
        .ulBitRateControl = BlockField<uint8_t>(config, block::kBitRateControl(s)),
        .ulMinIFrameInterval = frameRate,
        .ulMaxIFrameInterval = frameRate * 5,
        .ulIFrameInterval = static_cast<uint32_t>(isWithinCap ? interval : cap),
        .ulStreamByte16 = BlockField<uint8_t>(config, block::kStreamByte16(s)),
        .ulStreamByte17 = BlockField<uint8_t>(config, block::kStreamByte17(s)),
        .ulSmartEncoding = BlockField<uint8_t>(config, block::kSmartEncoding),
    };
}

// The setters of one value of one stream.
struct StreamSetter {
    uint32_t ulField;       // of stream 0; those of the others follow
    uint32_t ulUnit;        // what is sent for a value of 1
    int iStatusOtherStream; // for a stream that does not exist
};

constexpr StreamSetter kEncodingTypeSetter = {4147, 1, kCameraOk};
constexpr StreamSetter kFrameRateSetter = {4151, 1, kCameraFailed};
constexpr StreamSetter kBitRateSetter = {4154, kBitsPerKbit, kCameraFailed};
constexpr StreamSetter kBitRateControlSetter = {4157, 1, kCameraFailed};
constexpr StreamSetter kIFrameIntervalSetter = {4172, 1, kCameraFailed};
constexpr StreamSetter kVideoQualitySetter = {4193, 1, kCameraOk};

int SendStreamValue(const StreamSetter& setter, const void* input)
{
    const StreamValue& change = *static_cast<const StreamValue*>(input);
    if (change.ulStream >= kVideoStreams)
        return setter.iStatusOtherStream;
    const uint32_t value = change.ulValue * setter.ulUnit;
    (void)ControlSystemData(setter.ulField + change.ulStream, &value, sizeof value);
    return kCameraOk;
}

struct ResolutionName {
    const char* prefix; // a name that begins so
    uint32_t ulWidth;
    uint32_t ulHeight;
};

constexpr ResolutionName kResolutionNames[] = {
    {"D1", 720, 480},    {"HD1", 352, 576},     {"BCIF", 640, 320},    {"CIF", 352, 288},
    {"QCIF", 176, 144},  {"VGA", 640, 480},     {"SVGA", 800, 600},    {"QVGA", 320, 240},
    {"SVCD", 640, 360},  {"QQVGA", 160, 128},   {"720N", 720, 720},    {"720P", 1280, 720},
    {"1_3M", 1280, 960}, {"WUXGA", 1536, 1536}, {"1080P", 1920, 1080}, {"4M", 2560, 1440},
    {"5M", 2592, 1944},
};

constexpr uint32_t kFieldResolution = 4160; // width of stream 0, its height, width of stream 1, ...

const ResolutionName* FindResolution(const char* name)
{
    for (const ResolutionName& row : kResolutionNames)
        if (strncmp(name, row.prefix, strlen(row.prefix)) == 0)
            return &row;
    return nullptr;
}

} // namespace

int GetMaxFrameRate(const SysInfo* config, int width, int height, int mode)
{
    int cap = SizeFrameRate(width, height);
    if (cap == kUsualFrameRate && BlockField<uint8_t>(config, block::kFrameRateStandard) == kPalStandard)
        cap = kPalFrameRate;
    if (mode == kCapMjpeg || (mode == kCapByEncoding && MainEncoding(config) == kEncodingMjpeg))
        cap = std::min(cap, kMjpegFrameRate);
    return cap;
}

int Common_GetVideoEncoderConfig(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    const MainStreamLimits limits = ReadLimits(config);
    VideoEncoderConfig record;
    for (size_t s = 0; s < kVideoStreams; s++)
        record.stream[s] = ReadStream(config, limits, s);
    memcpy(output, &record, sizeof record);
    return kCameraOk;
}

int Common_SetResolution(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& change = *static_cast<const StreamResolutionName*>(input);
    char name[sizeof change.szName + 1];
    CopyBounded(name, sizeof name, change.szName, sizeof change.szName);
    LogTrace("%s %d: index = %d Resolution = %s\n", __func__, __LINE__, change.ulStream, name);
    const ResolutionName* const resolution = FindResolution(name);
    if (resolution == nullptr) {
        LogTrace("%s %d:  index = %d Not Support Resolution = %s\n", __func__, __LINE__, change.ulStream,
                 name);
        return kCameraOk;
    }
    if (change.ulStream >= kVideoStreams)
        return kCameraOk;
    const uint32_t field = kFieldResolution + 2 * change.ulStream;
    (void)ControlSystemData(field, &resolution->ulWidth, sizeof resolution->ulWidth);
    (void)ControlSystemData(field + 1, &resolution->ulHeight, sizeof resolution->ulHeight);
    return kCameraOk;
}

int Common_SetVideoQuality(const void* input, void*)
{
    return input == nullptr ? kCameraFailed : SendStreamValue(kVideoQualitySetter, input);
}

int Common_SetFrameRate(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& change = *static_cast<const StreamValue*>(input);
    LogTrace("%s %d:index = %d value = %d::video_name=%.64s\n", __func__, __LINE__, change.ulStream,
             change.ulValue, change.szName);
    return SendStreamValue(kFrameRateSetter, input);
}

int Common_SetBitRate(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& change = *static_cast<const StreamValue*>(input);
    LogTrace("%s %d:index = %d value = %d\n", __func__, __LINE__, change.ulStream, change.ulValue);
    return SendStreamValue(kBitRateSetter, input);
}

int Common_SetBitRateCtl(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& change = *static_cast<const StreamValue*>(input);
    LogTrace("%s %d:index = %d value = %d\n", __func__, __LINE__, change.ulStream, change.ulValue);
    return SendStreamValue(kBitRateControlSetter, input);
}

int Common_SetIFrameInterval(const void* input, void*)
{
    return input == nullptr ? kCameraFailed : SendStreamValue(kIFrameIntervalSetter, input);
}

int Common_SetEncodingType(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& change = *static_cast<const StreamValue*>(input);
    LogTrace("%s %d: index = %d value = %d\n", __func__, __LINE__, change.ulStream, change.ulValue);
    return SendStreamValue(kEncodingTypeSetter, input);
}
