#include "fuzz/ring_host.h"

#include <sys/mman.h>
#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fuzz/ring_oracle.h"
#include "media/ring_layout.h"

RingHost g_host;
FuzzInput g_input;
uint32_t g_stream;
uint32_t g_readAt;

namespace {

constexpr size_t kRoomBytes = 0x401000;
constexpr size_t kStartBytes = 5;
constexpr uint8_t kStarts[][kStartBytes] = {{0, 0, 0, 1, 0x67}, {0, 0, 0, 1, 0x40}, {0, 0, 0, 1, 0x41},
                                            {0, 0, 0, 1, 0x02}, {0xFF, 0xD8, 0xFF}, {0, 0, 0, 1, 0x65}};
constexpr uint32_t kFrameMs = 40;
constexpr uint32_t kKeyFrameEvery = 12;
constexpr int32_t kMostWritten = 4096; // of a payload; behind it is what lies there

int g_newestId;

// Writes into the present segment what fits into it.
void Write(uint64_t place, const void* from, size_t bytes)
{
    const size_t size = g_host.segment->bytes;
    if (place < size)
        memcpy(g_host.segment->hostsBase() + place, from, std::min(bytes, size - static_cast<size_t>(place)));
}

DataInfo Header(int32_t length, uint32_t flag)
{
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = g_host.serial;
    header.AVDataLen = length;
    header.EndFlag = flag;
    header.TimeStamp = static_cast<uint32_t>(NowMs());
    return header;
}

// A record where the host is, and the announcement of the next behind it.
void PutRecord(const DataInfo& header, const uint8_t* start)
{
    static uint8_t payload[kMostWritten];
    memcpy(payload, start, kStartBytes);
    memcpy(payload + kStartBytes, &g_host.serial, sizeof g_host.serial);
    Write(g_host.place, &header, sizeof header);
    Write(uint64_t{g_host.place} + kRecordBytes, payload,
          static_cast<size_t>(std::clamp(header.AVDataLen, 0, kMostWritten)));
    const uint32_t next = g_host.place + kRecordBytes + static_cast<uint32_t>(header.AVDataLen);
    g_host.place = next < g_host.segment->bytes ? next : 0;
    DataInfo announced = Header(0x7FFFFFFF, 0);
    announced.SerialNumber = 0;
    Write(g_host.place, &announced, sizeof announced);
    g_host.serial++;
}

void PutFrame(uint8_t kind, uint16_t length)
{
    const size_t start = kind % std::size(kStarts);
    if (start < 2)
        g_host.newestKey = g_host.place;
    DataInfo header = Header(length, kFlagFrame);
    header.AVSource = kind >= 0xF0 ? kSourceAudio : kSourceVideo;
    PutRecord(header, kStarts[start]);
}

void PutLie()
{
    DataInfo header = Header(g_input.Byte(), kFlagFrame);
    const uint8_t what = g_input.Byte();
    const uint32_t value = g_input.Word();
    if ((what & 1) != 0)
        header.AVDataLen = static_cast<int32_t>(value);
    if ((what & 2) != 0)
        header.SerialNumber += value;
    if ((what & 4) != 0)
        header.EndFlag = value % 4 + 0xFC;
    if ((what & 8) != 0)
        header.TimeStamp += value;
    if ((what & 16) != 0)
        header.AVSource = value % 3;
    if ((what & 32) != 0)
        header.AVDataCheck ^= value;
    PutRecord(header, kStarts[what >> 6]);
}

void EmptySegment()
{
    madvise(g_host.segment->hostsEnd - kRoomBytes, kRoomBytes, MADV_REMOVE); // reads as zeros then
    g_host.place = g_host.newestKey = 0;
}

// An empty segment under the ring's key; the one before it loses its key, and lives while it is attached.
void MakeSegment(size_t bytes)
{
    Segment* const old = g_host.segment;
    if (old != nullptr)
        old->id = 0;
    g_host.segment = std::find_if(std::begin(g_segments), std::end(g_segments),
                                  [old](const Segment& room) { return !room.isAttached && &room != old; });
    g_host.segment->id = ++g_newestId;
    g_host.segment->bytes = bytes;
    EmptySegment();
}

size_t SegmentBytes(uint8_t choice)
{
    const RingShape& ring = kRings[g_stream];
    const size_t odd[] = {ring.ulRingBytes, ring.ulRingBytes + choice / 8U, ring.ulRingBytes - 1};
    return choice % 8 < std::size(odd) ? odd[choice % 8] : ring.ulSegmentBytes;
}

// One of the places that matter.
uint32_t Place()
{
    const uint8_t choice = g_input.Byte() % 6;
    const uint32_t segmentBytes = static_cast<uint32_t>(g_host.segment->bytes);
    const uint32_t places[] = {g_host.place, g_readAt, 0, segmentBytes, g_readAt, 0};
    const uint32_t further = choice == 3 ? 0U - g_input.Byte() : choice > 3 ? g_input.Word() : 0;
    return places[choice] + (choice == 4 ? further % 4096 : further);
}

void EndLap()
{
    const DataInfo header = Header(0, g_input.Byte() % 2 == 0 ? kFlagWrap : kFlagPause);
    Write(g_host.place, &header, sizeof header);
    g_host.place = 0;
}

void Scribble()
{
    const uint32_t word = g_input.Word();
    Write(Place(), &word, sizeof word);
}

// The reply to a request: right, with another position or echo, cut, many times, or none.
void AnswerRequest(int queue, const uint8_t* text, size_t bytes)
{
    uint32_t word[11] = {};
    memcpy(word, text, std::min(bytes, sizeof word));
    const long type = queue == kPositionQueueKey ? static_cast<long>(word[0]) : 2;
    const uint8_t how = Lie();
    const uint8_t position = how % 4;
    word[3] = position == 0 ? g_host.newestKey : g_host.place;
    if (position == 1 || position == 2)
        word[3] = position == 1 ? Place() : g_input.Word();
    if (how >= 0xE0)
        return;
    if (how >= 0xC0)
        word[how % 3] ^= g_input.Byte();
    else if (how >= 0xA0)
        bytes = g_input.Byte() % 64;
    Bytes reply(bytes);
    std::copy_n(reinterpret_cast<const uint8_t*>(word), std::min(bytes, sizeof word), reply.begin());
    g_host.answers.insert(g_host.answers.end(), how >= 0x98 && how < 0xA0 ? how * 8U : 1U,
                          {queue, type, reply});
}

} // namespace

void MakeRooms()
{
    for (Segment& room : g_segments)
        MakeRoom(&room, kRoomBytes, true);
}

bool IsInRooms(const void* address)
{
    const auto* const at = static_cast<const uint8_t*>(address);
    return std::any_of(std::begin(g_segments), std::end(g_segments),
                       [at](const Segment& room) { return at < room.end && at >= room.end - kRoomBytes; });
}

void StartHost()
{
    g_host = {};
    g_newestId = 0;
    for (Segment& room : g_segments)
        room.id = 0;
    MakeSegment(SegmentBytes(g_input.Byte()));
}

void TakeTurn()
{
    const uint8_t turn = g_input.Byte() % 16;
    switch (turn) {
    case 0:
    case 1:
    case 2: {
        const uint8_t kind = g_input.Byte();
        return PutFrame(kind, turn == 2 ? static_cast<uint16_t>(g_input.Word()) : g_input.Byte());
    }
    case 3:
    case 4:
        return PutLie();
    case 5:
        return EndLap();
    case 6:
        g_host.place = Place();
        return;
    case 7:
        return Scribble();
    case 8:
        g_host.serial += g_input.Byte();
        return;
    case 9:
        g_host.serial = g_input.Word();
        return;
    case 10:
        return MakeSegment(SegmentBytes(g_input.Byte()));
    case 11:
        g_host.segment->id = -g_host.segment->id; // removed, or there again
        return;
    case 12:
        return ChangeLag(g_input.Byte() % 6);
    case 13:
        return ChangeWatcher(g_input.Byte());
    case 14:
        g_host.isQueueGone = true;
        return;
    default:
        return;
    }
}

void TurnHonest()
{
    g_host.segment->id = std::abs(g_host.segment->id);
    if (g_host.segment->bytes == kRings[g_stream].ulSegmentBytes)
        EmptySegment();
    else
        MakeSegment(kRings[g_stream].ulSegmentBytes);
    g_host.answers.clear();
    g_host.isQueueGone = false;
    g_host.serial = 1000;
    g_host.honestSinceMs = g_host.nextFrameMs = NowMs();
    ChangeLag(0);
}

void WriteHonestFrames()
{
    for (; g_host.nextFrameMs <= NowMs(); g_host.nextFrameMs += kFrameMs)
        PutFrame(g_host.frames++ % kKeyFrameEvery == 0 ? 0 : 2, 500);
}

int IdOfKey(key_t key)
{
    NotePass();
    return key == kRings[g_stream].key ? g_host.segment->id : 0;
}

WRAPPED(int, msgget, key_t key, int)
{
    g_host.isQueueGone = false;
    return key;
}

WRAPPED(int, msgsnd, int queue, const void* message, size_t bytes, int)
{
    const uint8_t how = Lie();
    errno = g_host.isQueueGone ? EIDRM : how >= 0xF0 ? EAGAIN : how >= 0xEC ? EINTR : EINVAL;
    if (g_host.isQueueGone || how >= 0xE8)
        return -1;
    AnswerRequest(queue, static_cast<const uint8_t*>(message) + sizeof(long), bytes);
    return 0;
}

WRAPPED(ssize_t, msgrcv, int queue, void* message, size_t bytes, long type, int)
{
    auto& answers = g_host.answers;
    const auto found = std::find_if(answers.begin(), answers.end(), [queue, type](const Answer& answer) {
        return answer.queue == queue && answer.type == type;
    });
    errno = g_host.isQueueGone ? EIDRM : ENOMSG;
    if (g_host.isQueueGone || found == answers.end())
        return -1;
    const size_t taken = std::min(bytes, found->text.size());
    std::copy_n(found->text.data(), taken, static_cast<uint8_t*>(message) + sizeof(long));
    answers.erase(found);
    return static_cast<ssize_t>(taken);
}

WRAPPED(int, msgctl, int, int, msqid_ds* status)
{
    status->msg_qnum = g_host.answers.size();
    return g_host.isQueueGone ? -1 : 0;
}
