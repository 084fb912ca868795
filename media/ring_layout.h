// Layout of what the encoder host and its readers share: a ring of frame records per stream in System
// V shared memory, and a message queue on which readers ask for positions (docs/ipc.md).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "common/sysv_ipc.h"

enum VideoIndex : uint32_t { kMainStream = 0, kSecondStream = 1, kThirdStream = 2, kTalkAudio = 3 };
inline constexpr uint32_t kRingCount = 4;

// One ring: the segment holds 64 bytes more than the ring, which readers do not use.
struct RingShape {
    key_t key;
    uint32_t ulRingBytes; // positions stay below
    uint32_t ulSegmentBytes;
};

inline constexpr RingShape kRings[kRingCount] = {
    {0x61766C79, 0x400000, 0x400040}, // main stream
    {0x61766C7A, 0x100000, 0x100040}, // second stream
    {0x61766C7B, 0x100000, 0x100040}, // third stream
    {0x61766D79, 0x20000, 0x20040},   // talk audio
};
inline constexpr int kRingMode = 0777;

// Header of a ring record; AVDataLen payload bytes follow at once, then the next record.
struct DataInfo {
    uint32_t AVDataCheck;  // kRecordMagic, or no valid record lies here (yet)
    uint32_t SerialNumber; // rises by one a record; compared unsigned
    int32_t AVDataLen;     // payload bytes
    uint32_t ulReserved12; // zero in a pause mark, else the writer's own
    uint32_t AVSource;     // 0 video, 1 audio
    uint32_t EndFlag;      // RecordFlag; any other value: not complete yet
    uint32_t TimeStamp;    // milliseconds on the uptime clock
    uint8_t ucKeyFrame;    // 1 for a key frame; readers look at the payload instead
    uint8_t ucReserved29[35];
};
static_assert(std::is_trivially_copyable_v<DataInfo>);
static_assert(offsetof(DataInfo, AVDataLen) == 8);
static_assert(offsetof(DataInfo, AVSource) == 16);
static_assert(offsetof(DataInfo, EndFlag) == 20);
static_assert(offsetof(DataInfo, TimeStamp) == 24);
static_assert(offsetof(DataInfo, ucKeyFrame) == 28);
static_assert(sizeof(DataInfo) == 64);

inline constexpr uint32_t kRecordBytes = sizeof(DataInfo);
inline constexpr uint32_t kRecordMagic = 0x12345678;

enum RecordFlag : uint32_t {
    kFlagPause = 0xFD, // AV_RINGBUFFER_FLAG_PAUSE: the next record will appear at offset 0
    kFlagFrame = 0xFE,
    kFlagWrap = 0xFF, // the next record is at offset 0
};

enum AVSourceKind : uint32_t { kSourceVideo = 0, kSourceAudio = 1 };

// Position queue
inline constexpr key_t kPositionQueueKey = 0x61766C79;
inline constexpr int kPositionQueueMode = 0666;
inline constexpr long kPositionRequestType = 1; // replies carry the requester's client type
inline constexpr int32_t kFirstClientType = 2;
inline constexpr int32_t kLastClientType = 16;

using PositionMessage = QueueMessage<11>;
// Indices of its words; the rest is not set and not read.
enum PositionWord : size_t {
    kWordClientType = 0,
    kWordCommand = 1,
    kWordStream = 2,
    kWordResult = 3, // reply: a byte offset into the ring
};

enum PositionCommand : uint32_t {
    kQueryStart = 0x2001,    // where a reader starts
    kQueryKeyFrame = 0x2002, // the newest key-frame record
    kQueryRecord = 0x2003,
    kQueryReserved = 0x4001,
};

// Control queue, on which the encoder host takes orders
inline constexpr key_t kControlQueueKey = 0x61766C8A;
inline constexpr int kControlQueueMode = 0666;
inline constexpr long kControlRequestType = 1;
inline constexpr long kControlReplyType = 2;
inline constexpr uint32_t kCommandForceIFrame = 0x2010;

using ControlMessage = QueueMessage<8>;
enum ControlWord : size_t {
    kControlWordReplyType = 0, // request: 2
    kControlWordCommand = 1,
    kControlWordArgument = 2,
    kControlWordResult = 3,
};
