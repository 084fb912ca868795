// Layout of the parameter block: the camera's settings, in shared memory that the parameter host owns
// and writes. One named offset per field that this program reads; all else in the block is unknown.
//
// Multi-byte integers are little-endian and not always aligned, texts are zero-terminated when the
// host keeps its promises. Image bytes are listed with the image record in image_fields.h.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

inline constexpr key_t kSysConfigKey = 12930021;
inline constexpr size_t kSysConfigBytes = 0x24000;
inline constexpr int kSysConfigMode = 0660;
inline constexpr key_t kLogFileSemaphoreKey = 12930005;
inline constexpr int kVideoStreams = 3; // main, sub, third

// Per-stream fields: offset of stream 0 and the distance between streams.
struct StreamField {
    size_t first;
    size_t step;
    constexpr size_t operator()(size_t stream) const { return first + step * stream; }
};

namespace block {

// Accounts: sixteen 68-byte entries {char name[32], char password[32], u32 authority}.
inline constexpr size_t kUsers = 4;
inline constexpr size_t kUserEntries = 16;
inline constexpr size_t kUserEntryBytes = 68;

// Network and services
inline constexpr size_t kGateway = 1100;         // 4 bytes, network order: used when no route has one
inline constexpr size_t kHttpPort = 1108;        // u16
inline constexpr size_t kRtspPort = 1110;        // u16
inline constexpr size_t kNtpServer = 1117;       // text, up to the time-zone byte
inline constexpr size_t kTimeZone = 1158;        // u8 0..48: (index - 24) / 2 hours
inline constexpr size_t kTimeMode = 1159;        // u8
inline constexpr size_t kMobilePort = 1166;      // u16
inline constexpr size_t kOnvifEnable = 1168;     // u8
inline constexpr size_t kOnvifAuth = 1169;       // u8
inline constexpr size_t kTimeLock = 1170;        // u8: when non-zero, manual clock changes are ignored
inline constexpr size_t kHttpsPort = 1196;       // u16
inline constexpr size_t kOnvifPort = 1198;       // u16
inline constexpr size_t kOstraPort = 1200;       // u16
inline constexpr size_t kOstraEnable = 1202;     // u8
inline constexpr size_t kVelmoraPort = 1204;     // u16: the port of the protocol that we serve
inline constexpr size_t kVelmoraEnable = 1206;   // u8
inline constexpr size_t kRtspEncryption = 1208;  // u8
inline constexpr size_t kPalloPort = 1210;       // u16
inline constexpr size_t kNtpAutomatic = 1212;    // u32
inline constexpr size_t kNtpInterval = 1216;     // u32
inline constexpr size_t kPalloEncryption = 6197; // u8

// Device identity: 64-byte text fields
inline constexpr size_t kIdentityBytes = 64;
inline constexpr size_t kDeviceName = 1912; // host name and model
inline constexpr size_t kFirmwareVersion = 1976;
inline constexpr size_t kHardwareId = 2040;
inline constexpr size_t kSerialNumber = 5908;

// The image byte that code reads by itself
inline constexpr size_t kFrameRateStandard = 1313; // u8: 1 caps 30 frames a second at 25

// Video streams
inline constexpr size_t kStreamMode = 1334;            // u8: 0 one stream, 1 two, 2 three
inline constexpr StreamField kEncoding{1335, 1};       // u8: 2 H.264, 3 H.265, 4 MJPEG
inline constexpr StreamField kFrameRate{1340, 4};      // i32, frames a second
inline constexpr StreamField kBitRate{1352, 4};        // i32, bit/s
inline constexpr StreamField kBitRateControl{1364, 1}; // u8: 0 CBR, 1 VBR
inline constexpr StreamField kQuality{1369, 1};        // u8, picture quality: record word 7
inline constexpr StreamField kStreamByte17{1372, 1};   // u8, record word 17
inline constexpr size_t kSmartEncoding = 1402;         // u8, 1: smart encoding of all streams; record word 18
inline constexpr StreamField kIFrameInterval{3436, 12}; // i32, frames
inline constexpr StreamField kWidth{3472, 158};         // u16, pixels
inline constexpr StreamField kHeight{3474, 158};        // u16, pixels
inline constexpr StreamField kStreamByte16{3628, 158};  // u8, record word 16

// Audio and motion
inline constexpr size_t kMotionEnable = 2104;      // u8
inline constexpr size_t kMotionSensitivity = 2106; // u8
inline constexpr size_t kMotionGrid = 2116;        // 32 x u32 row masks
inline constexpr size_t kAudioEnable = 2440;       // u8
inline constexpr size_t kAudioEncoding = 2441;     // u8
inline constexpr size_t kAudioInputVolume = 2448;  // u8
inline constexpr size_t kAudioOutputVolume = 2449; // u8
inline constexpr size_t kAudioInputMode = 2450;    // u8
inline constexpr size_t kAudioOutputMode = 2451;   // u8
inline constexpr size_t kMotionRecStream = 7075;   // u8

// Tours: an 8-byte entry for channel c (0 or 1), tour t (0..31), point i (0..15) at
// kTours + ((32 c + t) * 16 + i) * 8: u32 preset index, u8 dwell time, u8 step, u8 enable, u8 reserved.
inline constexpr size_t kTours = 68708;
inline constexpr size_t kTourCount = 32;
inline constexpr size_t kTourPoints = 16;
inline constexpr size_t kTourEntryBytes = 8;

} // namespace block

static_assert(block::kStreamByte16(2) < kSysConfigBytes);
