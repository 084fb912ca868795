// Fuzz target: an encoder host that lies. The input is read event by event: at each sleep of the server,
// each question to the host and in the middle of each frame copy it says what the host does to its ring,
// answers, or makes of its segments. Where it ends, the host turns honest.
//
// Judged are: reads outside the segment (memory that cannot be read lies around it), passes without a rest
// or progress, frames that are not one record as it stood, what reaches the watchers' sockets, the time of
// an exchange with the host, and whether an honest host's key frame is read within two seconds.
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <vector>

#include "common/clock.h"
#include "common/log.h"
#include "common/thread.h"
#include "fuzz/fuzz_input.h"
#include "media/encoder_control.h"
#include "media/frame_source_state.h"
#include "media/media_sender.h"
#include "media/ring_reader.h"
#include "media/ring_segment.h"
#include "media/stream_buffers.h"
#include "media/stream_fanout.h"
#include "media/talk_reader.h"
#include "protocol/connection_table.h"
#include "protocol/send_mutex.h"

#pragma GCC diagnostic ignored "-Wmissing-declarations" // what the linker puts in place of functions
#define WRAPPED(type, name, ...)                                                                             \
    extern "C" type __real_##name(__VA_ARGS__);                                                              \
    extern "C" type __wrap_##name(__VA_ARGS__)

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int32_t kType = 10;
constexpr int kFirstWatcher = 1000; // their sockets, which do not exist
constexpr int kWatchers = 2;
constexpr uint32_t kMostPasses = 1000; // without a sleep or progress
constexpr int64_t kRecoveryMs = 2000;
constexpr int64_t kMostControlMs = 1100;
constexpr uint32_t kFrameMs = 40;
constexpr uint32_t kKeyFrameEvery = 12;
constexpr size_t kGuardBytes = size_t{8} << 30; // no 32-bit position leads beyond it
constexpr size_t kRoomBytes = 0x401000;
constexpr uint8_t kStarts[][5] = {{0, 0, 0, 1, 0x67}, {0, 0, 0, 1, 0x40}, {0, 0, 0, 1, 0x41},
                                  {0, 0, 0, 1, 0x02}, {0xFF, 0xD8, 0xFF}, {0, 0, 0, 1, 0x65}};

[[noreturn]] void Die(const char* what)
{
    fprintf(stderr, "VIOLATION: %s\n", what);
    abort();
}

// Memory for segments, each with its end at memory that cannot be read.
struct Room {
    uint8_t* end;
    std::vector<std::pair<size_t, size_t>> written; // distance from the end, bytes
};

struct Segment {
    int id;
    size_t bytes;
    size_t room;
};

struct Answer {
    int queue;
    long type;
    Bytes text;
};

struct SentFrame {
    uint32_t source;
    Bytes bytes;
};

Room g_rooms[3]; // one for the present segment, one for that which the reader has attached, one free
FuzzInput g_input;
uint32_t g_stream;
Segment g_segment;
int g_newestId;
int g_attached; // id of the reader's segment, 0: none
size_t g_attachedRoom;
int64_t g_nowUs = 1'000'000'000, g_nowMs;
int64_t g_honestSinceMs; // -1: the host lies
int64_t g_nextFrameMs;
uint32_t g_passes, g_place, g_readAt, g_serial, g_newestKey, g_frames;
uint32_t g_deliveredSerial;
bool g_isInCallback, g_isCopying, g_isSending, g_isChangedInCopy, g_isQueueGone;
size_t g_lag; // frames that the sender leaves in the fan-out
std::deque<Answer> g_answers;
int g_takenRequests; // that no one answers
std::deque<SentFrame> g_stored;
Bytes g_copied;
Bytes g_sent[kWatchers];

bool IsHonest()
{
    return g_honestSinceMs >= 0;
}

uint8_t* Base()
{
    return g_rooms[g_segment.room].end - g_segment.bytes;
}

// Writes into the present segment what fits into it.
void Write(uint64_t place, const void* from, size_t bytes)
{
    if (place >= g_segment.bytes)
        return;
    bytes = std::min(bytes, g_segment.bytes - static_cast<size_t>(place));
    std::copy_n(static_cast<const uint8_t*>(from), bytes, Base() + place);
    g_rooms[g_segment.room].written.emplace_back(g_segment.bytes - place, bytes);
}

void Clear(Room& room)
{
    for (const auto& [distance, bytes] : room.written)
        memset(room.end - distance, 0, bytes);
    room.written.clear();
}

DataInfo Header(int32_t length, uint32_t flag)
{
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = g_serial;
    header.AVDataLen = length;
    header.EndFlag = flag;
    header.TimeStamp = static_cast<uint32_t>(g_nowMs);
    return header;
}

// A record where the host is, and the announcement of the next behind it.
void PutRecord(const DataInfo& header, const uint8_t* start, size_t startBytes)
{
    static uint8_t payload[4096]; // behind it is what lies there
    memcpy(payload, start, startBytes);
    memcpy(payload + 5, &g_serial, sizeof g_serial);
    Write(g_place, &header, sizeof header);
    Write(g_place + kRecordBytes, payload, static_cast<size_t>(std::clamp(header.AVDataLen, 0, 4096)));
    const uint32_t next = g_place + kRecordBytes + static_cast<uint32_t>(header.AVDataLen);
    g_place = next < g_segment.bytes ? next : 0;
    DataInfo announced = Header(0x7FFFFFFF, 0);
    announced.SerialNumber = 0;
    Write(g_place, &announced, sizeof announced);
    g_serial++;
}

void PutFrame(uint8_t kind, uint16_t length)
{
    const auto& start = kStarts[kind % std::size(kStarts)];
    if (kind % std::size(kStarts) < 2)
        g_newestKey = g_place;
    DataInfo header = Header(length, kFlagFrame);
    header.AVSource = kind >= 0xF0 ? kSourceAudio : kSourceVideo;
    PutRecord(header, start, sizeof start);
}

// Makes a new segment of the key, empty, in a room where the reader is not.
void MakeSegment(size_t bytes)
{
    const size_t used = g_attached != 0 ? g_attachedRoom : std::size(g_rooms);
    size_t room = 0;
    while (room == used || room == g_segment.room)
        room++;
    g_segment = {.id = ++g_newestId, .bytes = bytes, .room = room};
    Clear(g_rooms[room]);
    memset(Base(), 0, kRecordBytes); // where readers leave their pause mark
    g_place = g_newestKey = 0;
}

size_t SegmentBytes(uint8_t choice)
{
    const RingShape& ring = kRings[g_stream];
    switch (choice % 8) {
    case 0:
        return ring.ulRingBytes;
    case 1:
        return ring.ulRingBytes + choice / 8U;
    case 2:
        return ring.ulRingBytes - 1; // refused
    default:
        return ring.ulSegmentBytes;
    }
}

// One of the places that matter.
uint32_t Place()
{
    switch (g_input.Byte() % 6) {
    case 0:
        return g_place;
    case 1:
        return g_readAt;
    case 2:
        return 0;
    case 3:
        return static_cast<uint32_t>(g_segment.bytes) - g_input.Byte();
    case 4:
        return g_readAt + g_input.Word() % 4096;
    default:
        return g_input.Word();
    }
}

void LieInHeader()
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
    const uint8_t* const start = kStarts[what >> 6];
    PutRecord(header, start, 5);
}

// What the host does next.
void TakeTurn()
{
    switch (g_input.Byte() % 16) {
    case 0:
    case 1:
        return PutFrame(g_input.Byte(), g_input.Byte());
    case 2:
        return PutFrame(g_input.Byte(), static_cast<uint16_t>(g_input.Word()));
    case 3:
    case 4:
        return LieInHeader();
    case 5: {
        const DataInfo header = Header(0, g_input.Byte() % 2 == 0 ? kFlagWrap : kFlagPause);
        Write(g_place, &header, sizeof header);
        g_place = 0;
        return;
    }
    case 6:
        g_place = Place();
        return;
    case 7: {
        const uint32_t word = g_input.Word();
        return Write(Place(), &word, sizeof word);
    }
    case 8:
        g_serial += g_input.Byte();
        return;
    case 9:
        g_serial = g_input.Word();
        return;
    case 10:
        return MakeSegment(SegmentBytes(g_input.Byte()));
    case 11:
        g_segment.id = -g_segment.id; // removed, or there again
        return;
    case 12:
        g_lag = g_input.Byte() % 6;
        return;
    case 13: {
        if (g_isSending)
            return; // who joins in the middle of a frame gets its end
        const int watcher = kFirstWatcher + g_input.Byte() % kWatchers;
        return SetSendVideoFlag(watcher, GetSendVideoFlag(watcher) ^ 1);
    }
    case 14:
        g_isQueueGone = true;
        return;
    default:
        return;
    }
}

// A host that starts anew, as a host should: its ring cleared, its first frame a key frame.
void TurnHonest()
{
    g_honestSinceMs = g_nowMs;
    g_segment.id = std::abs(g_segment.id);
    if (g_segment.bytes == kRings[g_stream].ulSegmentBytes) {
        Clear(g_rooms[g_segment.room]);
        memset(Base(), 0, kRecordBytes);
        g_place = g_newestKey = 0;
    } else {
        MakeSegment(kRings[g_stream].ulSegmentBytes);
    }
    g_answers.clear();
    g_isQueueGone = false;
    g_serial = 1000;
    g_nextFrameMs = g_nowMs;
    g_lag = 0;
}

void BeHonest()
{
    for (; g_nextFrameMs <= g_nowMs; g_nextFrameMs += kFrameMs)
        PutFrame(g_frames++ % kKeyFrameEvery == 0 ? 0 : 2, 500);
    if (g_nowMs - g_honestSinceMs > kRecoveryMs) {
        if (g_stream != kTalkAudio)
            Die("no key frame within two seconds of an honest host");
        g_clients[kType].reader[g_stream].isRunning = false;
    }
}

// An honest host's key frame has arrived.
void NoteFrame(const uint8_t* payload, const DataInfo& header)
{
    if (header.SerialNumber != g_deliveredSerial)
        g_passes = 0;
    g_deliveredSerial = header.SerialNumber;
    if (IsHonest() && header.AVDataLen >= 5 && memcmp(payload, kStarts[0], 5) == 0)
        g_clients[kType].reader[g_stream].isRunning = false;
}

bool IsSendable(const SentFrame& frame)
{
    if (frame.source == kSourceAudio)
        return true;
    const uint8_t nal = frame.bytes.size() > 4 ? frame.bytes[4] : 0;
    const uint8_t h264 = nal & 0x1F;
    const uint8_t h265 = (nal >> 1) & 0x3F;
    return frame.bytes.size() > 4 && (h264 == 1 || h264 == 7 || h265 == 1 || h265 == 32);
}

// What one frame put on a connection that takes all of it.
void CheckSent(const Bytes& sent, const SentFrame& frame, uint32_t session)
{
    Bytes body;
    for (size_t at = 0; at < sent.size();) {
        const MessageHeader header = ReadHeader(sent.data() + at, sent.size() - at);
        at += kHeaderBytes;
        if (header.ucHeadFlag != kHeadFlag || header.ulSessionId != session ||
            header.usMessageId != kMediaData || header.ulBodyLength > sent.size() - at)
            Die("what was sent is no media message");
        body.insert(body.end(), sent.begin() + static_cast<ptrdiff_t>(at),
                    sent.begin() + static_cast<ptrdiff_t>(at + header.ulBodyLength));
        at += header.ulBodyLength;
    }
    if (!IsSendable(frame) && body.empty())
        return;
    const size_t subBytes = body.size() - std::min(body.size(), frame.bytes.size());
    if ((subBytes != sizeof(OtherFrameHeader) && subBytes != sizeof(KeyFrameHeader)) ||
        !std::equal(frame.bytes.begin(), frame.bytes.end(), body.begin() + static_cast<ptrdiff_t>(subBytes)))
        Die("what was sent is not the frame");
}

void SendNext()
{
    alignas(64) static uint8_t buffer[kMediaBufferBytes];
    if (g_stored.empty())
        Die("a wait that nothing ends");
    g_isSending = true;
    const SentFrame frame = std::move(g_stored.front());
    g_stored.pop_front();
    uint32_t session[kWatchers];
    for (int i = 0; i < kWatchers; i++) {
        session[i] = GetSendVideoFlag(kFirstWatcher + i) == 1 ? GetSessionIdByFd(kFirstWatcher + i) : 0;
        g_sent[i].clear();
    }
    if (PackAVFrame(g_stream, buffer) != 0)
        Die("no frame for the sender");
    for (int i = 0; i < kWatchers; i++)
        if (session[i] != 0 && GetSessionIdByFd(kFirstWatcher + i) != 0)
            CheckSent(g_sent[i], frame, session[i]);
    g_isSending = false;
}

int TakeFrame(uint32_t source, uint32_t stream, const uint8_t* payload, const DataInfo* header)
{
    if (source != header->AVSource || stream != g_stream)
        Die("a frame under another's name");
    Bytes all(payload, payload + header->AVDataLen); // all of it can be read
    NoteFrame(all.data(), *header);
    return 0;
}

// The host's reply to a request: honest, or one of the ways to get it wrong.
void AnswerRequest(int queue, const Bytes& text)
{
    uint32_t word[11] = {};
    std::copy_n(text.data(), std::min(text.size(), sizeof word), reinterpret_cast<uint8_t*>(word));
    const long type = queue == kPositionQueueKey ? static_cast<long>(word[0]) : 2;
    const uint8_t how = IsHonest() ? 0 : g_input.Byte();
    word[3] = how % 4 == 0 ? g_newestKey : how % 4 == 1 ? Place() : how % 4 == 2 ? g_input.Word() : g_place;
    size_t bytes = text.size();
    if (how >= 0xE0) {
        g_takenRequests++;
        return;
    }
    if (how >= 0xC0)
        word[how % 3] ^= g_input.Byte();
    if (how >= 0xA0 && how < 0xC0)
        bytes = g_input.Byte() % 64;
    const auto* const from = reinterpret_cast<const uint8_t*>(word);
    Bytes reply(from, from + sizeof word);
    reply.resize(bytes);
    for (int i = how >= 0x98 && how < 0xA0 ? how * 8 : 1; i > 0; i--)
        g_answers.push_back({queue, type, reply});
}

void Reset()
{
    for (Room& room : g_rooms)
        Clear(room);
    g_nowUs = (g_nowUs / 1'000'000 + 2) * 1'000'000; // time goes on from input to input
    g_nowMs = g_nowUs / 1000;
    g_honestSinceMs = -1;
    g_passes = g_place = g_readAt = g_newestKey = g_frames = g_deliveredSerial = 0;
    g_serial = 1;
    g_attached = g_takenRequests = 0;
    g_isInCallback = g_isSending = g_isChangedInCopy = g_isQueueGone = false;
    g_lag = 0;
    g_answers.clear();
    g_stored.clear();
    g_newestId = 0;
    MakeSegment(SegmentBytes(g_input.Byte()));
    EmptyStreamBuffers();
    for (int i = 0; i < kWatchers; i++) {
        RemoveFd(kFirstWatcher + i);
        (void)AddFd(kFirstWatcher + i, "192.0.2.1", 0, static_cast<uint32_t>(i) + 7);
        SetFdType(kFirstWatcher + i, static_cast<int32_t>(g_stream) + 1);
        SetSendVideoFlag(kFirstWatcher + i, 1);
    }
    gGetAVStreamSysInfo.StreamSharememID[g_stream] = g_segment.id;
    gGetAVStreamSysInfo.queueId = kPositionQueueKey;
}

} // namespace

// What is freed is soon used again: inputs are many, and the machine's memory is not.
extern "C" const char* __asan_default_options()
{
    return "quarantine_size_mb=4";
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    auto* at = static_cast<uint8_t*>(mmap(nullptr, 4 * (kGuardBytes + kRoomBytes), PROT_NONE,
                                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    for (Room& room : g_rooms) {
        at += kGuardBytes;
        mprotect(at, kRoomBytes, PROT_READ | PROT_WRITE);
        at += kRoomBytes;
        room.end = at;
    }
    if (getenv("FUZZ_LOG") != nullptr) // what the server logs about one input
        LogInit("ring_fuzz", 3);
    CreateStreamLocks();
    CreateSendMutex();
    SetVideoProcessRunning(true);
    return 0;
}

namespace {

void RunReader(uint32_t stream)
{
    g_stream = stream;
    Reset();
    g_clients[kType].reader[stream].isStarted = false;
    if (stream < kLiveStreams) {
        (void)StartAVStream(kType);
    } else if (stream == kTalkAudio) {
        (void)GetVoiceTalkAVStreamInit(kType, TakeFrame, nullptr);
    } else {
        g_clients[kType].frame = TakeFrame;
    }
    gGetAVStreamSysInfo.StreamSharememID[stream] = g_segment.id;
    g_clients[kType].reader[stream].isRunning = true;
    ReaderArgument argument{.clientType = kType, .index = stream};
    (stream == kTalkAudio ? AVStreamGetAudioTalkThread : AVStreamGetAVDataThread)(&argument);
    while (!g_stored.empty())
        SendNext();
    if (g_attached != 0)
        Die("the segment was left attached");
}

void RunControl()
{
    g_stream = kMainStream;
    Reset();
    while (!g_input.IsAtEnd()) {
        const int64_t startMs = g_nowMs;
        uint8_t payload[16];
        for (uint8_t& byte : payload)
            byte = g_input.Byte();
        switch (payload[0] % 4) {
        case 0:
            (void)MediaHostVideoForceIFrame(payload[1]);
            break;
        case 1:
            (void)MediaHostPayloadRequest(payload);
            break;
        case 2:
            (void)MediaHostRequest(kControlCommands[payload[1] % std::size(kControlCommands)].command, 1);
            break;
        default:
            (void)MediaHostRequest(g_input.Word(), 1);
        }
        if (g_nowMs - startMs > kMostControlMs)
            Die("an order took more than a second");
    }
}

} // namespace

WRAPPED(int, clock_gettime, clockid_t clock, timespec* now)
{
    if (clock == CLOCK_REALTIME)
        return __real_clock_gettime(clock, now);
    *now = {.tv_sec = g_nowUs / 1'000'000, .tv_nsec = g_nowUs % 1'000'000 * 1000};
    return 0;
}

WRAPPED(int, clock_nanosleep, clockid_t, int flags, const timespec* time, timespec*)
{
    const int64_t timeUs = int64_t{time->tv_sec} * 1'000'000 + time->tv_nsec / 1000;
    const int64_t beforeMs = g_nowMs;
    g_nowUs = (flags & TIMER_ABSTIME) != 0 ? std::max(g_nowUs, timeUs) : g_nowUs + timeUs;
    g_nowMs = g_nowUs / 1000;
    g_passes = 0;
    if (g_isInCallback && !g_isSending)
        g_stored.clear(); // nobody watches: the fan-out has just dropped what it had
    if (IsHonest() && g_isSending)
        g_honestSinceMs += g_nowMs - beforeMs; // the backlog has its own pace
    if (IsHonest())
        BeHonest();
    else if (g_input.IsAtEnd())
        TurnHonest();
    else
        TakeTurn();
    while (!g_isSending && !g_isInCallback && g_stored.size() > g_lag)
        SendNext();
    return 0;
}

WRAPPED(int, _Z19StartDetachedThreadPKcPFPvS1_ES1_, const char*, ThreadBody*, void*)
{
    return 0;
}

// The producer waits for the sender, which is this thread too.
WRAPPED(int, pthread_cond_wait, pthread_cond_t*, pthread_mutex_t* mutex)
{
    if (g_isSending)
        Die("the sender waits for a frame that was stored");
    pthread_mutex_unlock(mutex);
    SendNext();
    return pthread_mutex_lock(mutex);
}

WRAPPED(DataInfo, _Z10CopyHeaderRK11RingSegmentm, const RingSegment& ring, uint64_t position)
{
    if (++g_passes > kMostPasses)
        Die("more than 1000 passes without a rest or progress");
    g_readAt = static_cast<uint32_t>(position);
    return __real__Z10CopyHeaderRK11RingSegmentm(ring, position);
}

WRAPPED(int, _Z17VideoCallbackFuncjjPKhiPK8DataInfo, uint32_t kind, uint32_t stream, const uint8_t* data,
        int32_t length, const DataInfo* header)
{
    g_isInCallback = true;
    const int result = __real__Z17VideoCallbackFuncjjPKhiPK8DataInfo(kind, stream, data, length, header);
    g_isInCallback = false;
    NoteFrame(data, *header);
    return result;
}

// The copy of a frame, in whose middle the host may write over the record.
void* CopyFrame(void* to, const void* from, size_t bytes)
{
    g_isCopying = true; // what copies below is not the server
    g_copied.assign(static_cast<const uint8_t*>(from), static_cast<const uint8_t*>(from) + bytes);
    std::copy_n(static_cast<const uint8_t*>(from), bytes / 2, static_cast<uint8_t*>(to));
    const uint8_t change = IsHonest() ? 0 : g_input.Byte();
    g_isChangedInCopy = change >= 0x80;
    auto* const payload = static_cast<uint8_t*>(const_cast<void*>(from));
    if (g_isChangedInCopy) {
        // Any of the header's first 28 bytes but the writer's own word.
        const size_t field = (change % 6 < 3 ? change % 6 : change % 6 + 1) * sizeof(uint32_t);
        (payload - kRecordBytes)[field + change / 6 % 4] ^= static_cast<uint8_t>(g_input.Byte() | 1);
        std::fill(payload + bytes / 2, payload + bytes, change);
    }
    std::copy_n(payload + bytes / 2, bytes - bytes / 2, static_cast<uint8_t*>(to) + bytes / 2);
    g_isCopying = false;
    return to;
}

bool IsInRing(const void* address)
{
    const auto* const at = static_cast<const uint8_t*>(address);
    return g_isInCallback && !g_isCopying &&
           std::any_of(std::begin(g_rooms), std::end(g_rooms),
                       [at](const Room& room) { return at < room.end && at >= room.end - kRoomBytes; });
}

WRAPPED(void*, memcpy, void* to, const void* from, size_t bytes)
{
    return IsInRing(from) ? CopyFrame(to, from, bytes) : __real_memcpy(to, from, bytes);
}

#if defined __clang__ && defined __has_feature
#if __has_feature(address_sanitizer)
WRAPPED(void*, __asan_memcpy, void* to, const void* from, size_t bytes)
{
    return IsInRing(from) ? CopyFrame(to, from, bytes) : __real___asan_memcpy(to, from, bytes);
}
#endif
#endif

WRAPPED(bool, _Z17IsRecordUnchangedPKhRK8DataInfo, const uint8_t* payload, const DataInfo& copy)
{
    const bool isUnchanged = __real__Z17IsRecordUnchangedPKhRK8DataInfo(payload, copy);
    if (isUnchanged && g_isChangedInCopy)
        Die("a frame of two records");
    if (isUnchanged)
        g_stored.push_back({copy.AVSource, g_copied});
    return isUnchanged;
}

WRAPPED(ssize_t, send, int fd, const void* data, size_t bytes, int)
{
    const uint8_t how = IsHonest() ? 0 : g_input.Byte();
    if (how >= 0xE0) {
        errno = how < 0xF8 ? EAGAIN : EPIPE;
        return -1;
    }
    const size_t taken = how >= 0xC0 ? std::min<size_t>(bytes, how % 16U + 1) : bytes;
    const auto* const from = static_cast<const uint8_t*>(data);
    Bytes& sent = g_sent[fd - kFirstWatcher];
    sent.insert(sent.end(), from, from + taken);
    return static_cast<ssize_t>(taken);
}

WRAPPED(int, shutdown, int fd, int how)
{
    return fd >= kFirstWatcher ? 0 : __real_shutdown(fd, how);
}

WRAPPED(int, close, int fd)
{
    return fd >= kFirstWatcher ? 0 : __real_close(fd);
}

WRAPPED(int, shmget, key_t key, size_t, int)
{
    errno = ENOENT;
    return key == kRings[g_stream].key ? g_segment.id : 1; // negative: removed
}

WRAPPED(int, shmctl, int id, int, shmid_ds* status)
{
    status->shm_segsz = g_segment.bytes;
    errno = EINVAL;
    return id == g_segment.id ? 0 : -1;
}

WRAPPED(void*, shmat, int id, const void*, int)
{
    errno = EINVAL;
    if (id != g_segment.id)
        return reinterpret_cast<void*>(-1);
    if (g_attached != 0)
        g_attached = 0; // the new one is attached before the old one goes
    g_attached = id;
    g_attachedRoom = g_segment.room;
    return Base();
}

WRAPPED(int, shmdt, const void* address)
{
    const auto* const at = static_cast<const uint8_t*>(address);
    const uint8_t* const end = g_rooms[g_attachedRoom].end;
    if (at < end && at >= end - kRoomBytes)
        g_attached = 0;
    return 0;
}

WRAPPED(int, msgget, key_t key, int)
{
    g_isQueueGone = false;
    return key;
}

WRAPPED(int, msgsnd, int queue, const void* message, size_t bytes, int)
{
    const uint8_t how = IsHonest() ? 0 : g_input.Byte();
    errno = g_isQueueGone ? EIDRM : how >= 0xF0 ? EAGAIN : how >= 0xEC ? EINTR : EINVAL;
    if (g_isQueueGone || how >= 0xE8)
        return -1;
    const uint8_t* const text = static_cast<const uint8_t*>(message) + sizeof(long);
    AnswerRequest(queue, Bytes(text, text + bytes));
    return 0;
}

WRAPPED(ssize_t, msgrcv, int queue, void* message, size_t bytes, long type, int)
{
    errno = g_isQueueGone ? EIDRM : ENOMSG;
    const auto found = std::find_if(g_answers.begin(), g_answers.end(), [&](const Answer& answer) {
        return answer.queue == queue && answer.type == type;
    });
    if (g_isQueueGone || found == g_answers.end())
        return -1;
    const size_t taken = std::min(bytes, found->text.size());
    std::copy_n(found->text.data(), taken, static_cast<uint8_t*>(message) + sizeof(long));
    g_answers.erase(found);
    return static_cast<ssize_t>(taken);
}

WRAPPED(int, msgctl, int, int, msqid_ds* status)
{
    status->msg_qnum = g_answers.size();
    return g_isQueueGone ? -1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t bytes)
{
    g_input = {data, data + bytes};
    const uint8_t what = g_input.Byte() % 8;
    if (what == 7)
        RunControl();
    else
        RunReader(what == 6 ? kTalkAudio : what == 5 ? kThirdStream : what < 3 ? kMainStream : kSecondStream);
    return 0;
}
