// Layout of media messages: the sub-header in front of every frame and the limits by which a frame is
// cut into messages. Both ends of the wire include this file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/little_endian.h"

inline constexpr size_t kVideoBodyBytes = 0x8000; // most body bytes of one message, sub-header included
inline constexpr size_t kAudioBodyBytes = 0xA8;
inline constexpr size_t kMainFrameBytes = 0xC0000;  // largest frame of the main stream
inline constexpr size_t kExtraFrameBytes = 0x40000; // largest frame of the second stream

// First word of a sub-header, as it reads little-endian: bytes 00 00 01 and the frame's kind.
enum FrameKind : uint32_t {
    kKeyFrame = 0xFC010000,
    kOtherFrame = 0xFD010000,
    kAudioFrame = 0xFA010000,
};

enum MediaCodec : uint8_t { kCodecH264 = 2, kCodecH265 = 3 };

struct KeyFrameHeader {
    uint32_t ulKind;     // kKeyFrame
    uint8_t ucCodec;     // bits 0-3 MediaCodec; bits 4-5 are 1 when the width is above 1920
    uint8_t ucFrameRate; // frames a second
    uint8_t ucWidth8;    // width / 8, low 8 bits
    uint8_t ucHeight8;   // height / 8, low 8 bits
    uint32_t ulDateTime; // local time of packing, PackedDateTime
    uint32_t ulLength;   // frame bytes that follow
};
static_assert(sizeof(KeyFrameHeader) == 16);

struct OtherFrameHeader {
    uint32_t ulKind;   // kOtherFrame
    uint32_t ulLength; // frame bytes that follow
};
static_assert(sizeof(OtherFrameHeader) == 8);

struct AudioFrameHeader {
    uint32_t ulKind;   // kAudioFrame
    uint8_t ucCodec;   // 14
    uint8_t ucRate;    // 2
    uint16_t usLength; // frame bytes that follow, low 16 bits
};
static_assert(sizeof(AudioFrameHeader) == 8);

inline constexpr uint8_t kAudioCodec = 14;
inline constexpr uint8_t kAudioRate = 2;

// Fields of the date and time word: first bit and number of bits.
struct BitField {
    uint32_t shift;
    uint32_t bits;
    constexpr uint32_t Get(uint32_t word) const { return (word >> shift) & ((1U << bits) - 1); }
    constexpr uint32_t Put(uint32_t value) const { return (value & ((1U << bits) - 1)) << shift; }
};
namespace date_time_word {
inline constexpr BitField kSecond{0, 6};
inline constexpr BitField kMinute{6, 6};
inline constexpr BitField kHour{12, 5};
inline constexpr BitField kDay{17, 5};
inline constexpr BitField kMonth{22, 4}; // 1 to 12
inline constexpr BitField kYear{26, 6};  // since 2000
} // namespace date_time_word
