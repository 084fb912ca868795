#include "hosts/parameter_defaults.h"

#include <cstring>

#include "camera/image_fields.h"
#include "camera/parameter_block_layout.h"
#include "common/little_endian.h"

namespace {

struct DefaultNumber {
    size_t block;
    uint8_t ucBytes;
    uint32_t ulValue;
};
constexpr DefaultNumber kDefaultNumbers[] = {
    {block::kHttpPort, 2, 80},         {block::kRtspPort, 2, 554},         {block::kHttpsPort, 2, 443},
    {block::kOnvifPort, 2, 8000},      {block::kOnvifEnable, 1, 1},        {block::kMobilePort, 2, 34599},
    {block::kOstraPort, 2, 9988},      {block::kPalloPort, 2, 9989},       {block::kVelmoraPort, 2, 9000},
    {block::kVelmoraEnable, 1, 1},     {block::kTimeZone, 1, 24},  // UTC
    {block::kNtpInterval, 4, 3600},    {block::kStreamMode, 1, 1}, // two streams
    {block::kMotionSensitivity, 1, 3}, {block::kAudioEnable, 1, 1},        {block::kAudioEncoding, 1, 1},
    {block::kAudioInputVolume, 1, 50}, {block::kAudioOutputVolume, 1, 50},
};

struct DefaultText {
    size_t block;
    const char* text;
};
constexpr DefaultText kDefaultTexts[] = {
    {block::kNtpServer, "pool.ntp.org"},        {block::kDeviceName, "Velmora-Bench"},
    {block::kFirmwareVersion, "V1.0.0-bench"},  {block::kHardwareId, "BENCH-CAMERA"},
    {block::kSerialNumber, "VB00000000000001"}, {block::kUsers, "admin"},
};

constexpr uint8_t kDefaultPicture = 50; // brightness, colour, contrast and sharpness
constexpr uint8_t kPictureSettings = 4; // their indices in the image record are the first ones

constexpr StreamFacts kDefaultStreams[kVideoStreams] = {
    {kCodecH265, 1920, 1080, 25, 4 * 1024 * 1024, 50},
    {kCodecH264, 720, 480, 25, 1024 * 1024, 50},
    {kCodecH264, 352, 288, 25, 512 * 1024, 50},
};

} // namespace

void StoreNumber(uint8_t* to, uint8_t bytes, uint32_t value)
{
    if (bytes == 1)
        *to = static_cast<uint8_t>(value);
    else if (bytes == 2)
        StoreLe(to, static_cast<uint16_t>(value));
    else
        StoreLe(to, value);
}

void WriteStreamFacts(uint8_t* block, size_t stream, const StreamFacts& facts)
{
    block[block::kEncoding(stream)] = facts.codec;
    StoreLe(block + block::kFrameRate(stream), facts.iFrameRate);
    StoreLe(block + block::kBitRate(stream), facts.iBitRate);
    StoreLe(block + block::kIFrameInterval(stream), facts.iIFrameInterval);
    StoreLe(block + block::kWidth(stream), facts.usWidth);
    StoreLe(block + block::kHeight(stream), facts.usHeight);
    block[block::kBitRateControl(stream)] = facts.ucBitRateControl;
}

StreamFacts ReadStreamFacts(const uint8_t* block, size_t stream)
{
    return {.codec = static_cast<MediaCodec>(block[block::kEncoding(stream)]),
            .usWidth = LoadLe<uint16_t>(block + block::kWidth(stream)),
            .usHeight = LoadLe<uint16_t>(block + block::kHeight(stream)),
            .iFrameRate = LoadLe<int32_t>(block + block::kFrameRate(stream)),
            .iBitRate = LoadLe<int32_t>(block + block::kBitRate(stream)),
            .iIFrameInterval = LoadLe<int32_t>(block + block::kIFrameInterval(stream)),
            .ucBitRateControl = block[block::kBitRateControl(stream)]};
}

void WriteDefaultParameters(uint8_t* block)
{
    memset(block, 0, kSysConfigBytes);
    for (const DefaultNumber& number : kDefaultNumbers)
        StoreNumber(block + number.block, number.ucBytes, number.ulValue);
    for (const DefaultText& text : kDefaultTexts)
        memcpy(block + text.block, text.text, strlen(text.text));
    for (const ImageField& image : kImageFields)
        if (image.ucIndex < kPictureSettings)
            block[image.usBlock] = kDefaultPicture;
    memset(block + block::kMotionGrid, 0xFF, 32 * sizeof(uint32_t));
    for (size_t stream = 0; stream < kVideoStreams; ++stream)
        WriteStreamFacts(block, stream, kDefaultStreams[stream]);
}
