// Settings of which no two are alike, so that a value in a wrong place shows. The replies that belong to
// them are data/replies/.
#pragma once

#include <cstring>

#include "camera/parameter_block_layout.h"
#include "common/little_endian.h"

// Bytes of the parameter block and the number that stands in them.
struct Setting {
    size_t offset;
    size_t bytes;
    uint32_t value;
};

inline void Store(uint8_t* settings, const Setting& setting)
{
    memcpy(settings + setting.offset, &setting.value, setting.bytes); // little-endian, as this machine is
}

inline constexpr size_t kBrightness = 1300, kContrast = 1301, kColour = 1302, kSharpness = 1303,
                        kWhiteBalance = 1307;

inline constexpr Setting kDistinctNumbers[] = {
    {block::kHttpPort, 2, 8081},
    {block::kVelmoraPort, 2, 9000}, // where the tests find the server
    {block::kTimeZone, 1, 13},      // 330 minutes
    {kBrightness, 1, 255},
    {kContrast, 1, 3},
    {kColour, 1, 128},
    {kSharpness, 1, 64},
    {kWhiteBalance, 1, 7},
    // Main stream: H.265, VBR, 2560x1440, a picture quality of its own; the rate has a broken kilobit.
    {block::kEncoding(0), 1, 3},
    {block::kFrameRate(0), 4, 20},
    {block::kBitRate(0), 4, 6144 * 1024 + 1000},
    {block::kBitRateControl(0), 1, 1},
    {block::kStreamByte7(0), 1, 5},
    {block::kIFrameInterval(0), 4, 65},
    {block::kWidth(0), 2, 2560},
    {block::kHeight(0), 2, 1440},
    // Second stream: H.264, CBR, 704x576, key frames little more than a second apart.
    {block::kEncoding(1), 1, 2},
    {block::kFrameRate(1), 4, 12},
    {block::kBitRate(1), 4, 1536 * 1024},
    {block::kIFrameInterval(1), 4, 13},
    {block::kWidth(1), 2, 704},
    {block::kHeight(1), 2, 576},
    // Third stream, as every encode set leaves it.
    {block::kEncoding(2), 1, 2},
    {block::kFrameRate(2), 4, 10},
    {block::kBitRate(2), 4, 256 * 1024},
    {block::kBitRateControl(2), 1, 1},
    {block::kIFrameInterval(2), 4, 10},
    {block::kWidth(2), 2, 352},
    {block::kHeight(2), 2, 288},
    {block::kMotionEnable, 1, 1},
    {block::kMotionSensitivity, 1, 8},
    {block::kMotionRecStream, 1, 1},
    {block::kAudioEnable, 1, 1},
    {block::kAudioEncoding, 1, 1},
    {block::kAudioInputVolume, 1, 30},
    {block::kAudioOutputVolume, 1, 70},
};

inline constexpr struct {
    size_t offset;
    const char* text;
} kDistinctTexts[] = {
    {block::kDeviceName, "Gate 7 \"north\" \\ behind the mill, T\xC3\xBCr"},
    {block::kFirmwareVersion, "V4.02/R11\t\"nightly\"\n"},
    {block::kHardwareId, "HW\\A\x01\x1F\x7F"},
    // Fills its place to the last byte, and another field follows.
    {block::kSerialNumber, "SN-0123456789-abcdefghijklmnopqrstuvwxyz-ABCDEFGHIJKLMNOPQRSTUVW|"},
};

// Writes them over the whole block, which has kSysConfigBytes.
inline void WriteDistinctSettings(uint8_t* settings)
{
    memset(settings, 0, kSysConfigBytes);
    for (const Setting& number : kDistinctNumbers)
        Store(settings, number);
    for (const auto& row : kDistinctTexts)
        memcpy(settings + row.offset, row.text, strlen(row.text));
    for (uint32_t row = 0; row < 32; ++row)
        StoreLe(settings + block::kMotionGrid + row * sizeof row, row * 0x9E3779B1);
}
