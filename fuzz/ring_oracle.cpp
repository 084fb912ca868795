#include "fuzz/ring_oracle.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "fuzz/ring_host.h"
#include "media/frame_source_state.h"
#include "media/media_sender.h"
#include "media/ring_segment.h"
#include "media/stream_buffers.h"
#include "media/stream_fanout.h"
#include "protocol/connection_table.h"

namespace {

constexpr int kFirstWatcher = 1000; // their sockets, which do not exist
constexpr int kWatchers = 2;
constexpr uint32_t kMostPasses = 1000; // without a sleep or progress

struct Frame {
    uint32_t source;
    Bytes bytes;
};

struct Delivery {
    uint32_t passes;          // since the last sleep or progress
    uint32_t serial;          // delivered last
    std::deque<Frame> stored; // that the sender has not taken
    size_t lag;               // frames that the sender leaves in the fan-out
    Bytes copied;             // the record, as it stood before its copy
    bool isInCallback;
    bool isCopying;
    bool isSending;
    bool isChangedInCopy;
    Bytes sent[kWatchers];
};
Delivery g_delivery;

bool IsSendable(const Frame& frame)
{
    if (frame.source == kSourceAudio)
        return true;
    const uint8_t nal = frame.bytes.size() > 4 ? frame.bytes[4] : 0;
    const uint8_t h264 = nal & 0x1F;
    const uint8_t h265 = (nal >> 1) & 0x3F;
    return h264 == 1 || h264 == 7 || h265 == 1 || h265 == 32;
}

// What one frame put on a connection that takes all of it.
void CheckSent(const Bytes& sent, const Frame& frame, uint32_t session)
{
    Bytes body;
    for (auto at = sent.begin(); at != sent.end();) {
        const auto left = static_cast<size_t>(sent.end() - at);
        const MessageHeader header = ReadHeader(&*at, left);
        if (header.ucHeadFlag != kHeadFlag || header.ulSessionId != session ||
            header.usMessageId != kMediaData || header.ulBodyLength + kHeaderBytes > left)
            Violation("what was sent is no media message");
        const auto end = at + static_cast<ptrdiff_t>(kHeaderBytes + header.ulBodyLength);
        body.insert(body.end(), at + kHeaderBytes, end);
        at = end;
    }
    if (!IsSendable(frame) && body.empty())
        return;
    const size_t subBytes = body.size() - std::min(body.size(), frame.bytes.size());
    if ((subBytes != sizeof(OtherFrameHeader) && subBytes != sizeof(KeyFrameHeader)) ||
        !std::equal(frame.bytes.begin(), frame.bytes.end(), body.begin() + static_cast<ptrdiff_t>(subBytes)))
        Violation("what was sent is not the frame");
}

void SendNext()
{
    alignas(64) static uint8_t buffer[kMediaBufferBytes];
    if (g_delivery.stored.empty())
        Violation("a wait that nothing ends");
    const Frame frame = std::move(g_delivery.stored.front());
    g_delivery.stored.pop_front();
    g_delivery.isSending = true;
    uint32_t session[kWatchers];
    for (int i = 0; i < kWatchers; i++) {
        session[i] = GetSendVideoFlag(kFirstWatcher + i) == 1 ? GetSessionIdByFd(kFirstWatcher + i) : 0;
        g_delivery.sent[i].clear();
    }
    if (PackAVFrame(g_stream, buffer) != 0)
        Violation("no frame for the sender");
    for (int i = 0; i < kWatchers; i++)
        if (session[i] != 0 && GetSessionIdByFd(kFirstWatcher + i) != 0)
            CheckSent(g_delivery.sent[i], frame, session[i]);
    g_delivery.isSending = false;
}

// The copy of a frame, in whose middle the host may write over the record.
void* CopyFrame(void* to, const void* from, size_t bytes)
{
    g_delivery.isCopying = true; // what copies below is not the server
    auto* const payload = static_cast<uint8_t*>(const_cast<void*>(from));
    auto* const copy = static_cast<uint8_t*>(to);
    g_delivery.copied.assign(payload, payload + bytes);
    std::copy_n(payload, bytes / 2, copy);
    const uint8_t change = Lie();
    g_delivery.isChangedInCopy = change >= 0x80;
    if (g_delivery.isChangedInCopy) {
        // Any of the header's first 28 bytes but the writer's own word.
        const size_t field = (change % 6 < 3 ? change % 6 : change % 6 + 1) * sizeof(uint32_t);
        (payload - kRecordBytes)[field + change / 6 % 4] ^= static_cast<uint8_t>(g_input.Byte() | 1);
        std::fill(payload + bytes / 2, payload + bytes, change);
    }
    std::copy_n(payload + bytes / 2, bytes - bytes / 2, copy + bytes / 2);
    g_delivery.isCopying = false;
    return to;
}

bool IsFrameCopy(const void* from)
{
    return g_delivery.isInCallback && !g_delivery.isCopying && IsInRooms(from);
}

} // namespace

void StartWatchers()
{
    g_delivery = {};
    EmptyStreamBuffers();
    for (int i = 0; i < kWatchers; i++) {
        RemoveFd(kFirstWatcher + i);
        (void)AddFd(kFirstWatcher + i, "192.0.2.1", 0, static_cast<uint32_t>(i) + 7);
        SetFdType(kFirstWatcher + i, static_cast<int32_t>(g_stream) + 1);
        SetSendVideoFlag(kFirstWatcher + i, 1);
    }
}

void SendWaitingFrames()
{
    while (!g_delivery.isSending && !g_delivery.isInCallback && g_delivery.stored.size() > g_delivery.lag)
        SendNext();
}

void NoteFrame(const uint8_t* payload, const DataInfo& header)
{
    if (header.SerialNumber != g_delivery.serial)
        g_delivery.passes = 0;
    g_delivery.serial = header.SerialNumber;
    if (IsHonest() && header.AVDataLen >= 5 && memcmp(payload, kKeyFrameStart, sizeof kKeyFrameStart) == 0)
        EndReader();
}

void NotePass()
{
    if (++g_delivery.passes > kMostPasses)
        Violation("more than 1000 passes without a rest or progress");
}

void NoteSleep(int64_t sleptUs)
{
    g_delivery.passes = 0;
    if (g_delivery.isInCallback && !g_delivery.isSending)
        g_delivery.stored.clear(); // nobody watches: the fan-out has just dropped what it had
    if (IsHonest() && g_delivery.isSending)
        g_host.honestSinceMs += sleptUs / 1000; // the backlog has its own pace
}

void ChangeLag(uint8_t frames)
{
    g_delivery.lag = frames;
}

void ChangeWatcher(uint8_t watcher)
{
    const int fd = kFirstWatcher + watcher % kWatchers;
    SetSendVideoFlag(fd, GetSendVideoFlag(fd) ^ 1);
}

// The producer waits for the sender, which is this thread too.
WRAPPED(int, pthread_cond_wait, pthread_cond_t*, pthread_mutex_t* mutex)
{
    if (g_delivery.isSending)
        Violation("the sender waits for a frame that was stored");
    pthread_mutex_unlock(mutex);
    SendNext();
    return pthread_mutex_lock(mutex);
}

WRAPPED(DataInfo, _Z10CopyHeaderRK11RingSegmentm, const RingSegment& ring, uint64_t position)
{
    NotePass();
    g_readAt = static_cast<uint32_t>(position);
    return __real__Z10CopyHeaderRK11RingSegmentm(ring, position);
}

WRAPPED(int, _Z17VideoCallbackFuncjjPKhiPK8DataInfo, uint32_t kind, uint32_t stream, const uint8_t* data,
        int32_t length, const DataInfo* header)
{
    g_delivery.isInCallback = true;
    const int result = __real__Z17VideoCallbackFuncjjPKhiPK8DataInfo(kind, stream, data, length, header);
    g_delivery.isInCallback = false;
    NoteFrame(data, *header);
    return result;
}

WRAPPED(void*, memcpy, void* to, const void* from, size_t bytes)
{
    return IsFrameCopy(from) ? CopyFrame(to, from, bytes) : __real_memcpy(to, from, bytes);
}

#if defined __clang__ && defined __has_feature
#if __has_feature(address_sanitizer)
WRAPPED(void*, __asan_memcpy, void* to, const void* from, size_t bytes)
{
    return IsFrameCopy(from) ? CopyFrame(to, from, bytes) : __real___asan_memcpy(to, from, bytes);
}
#endif
#endif

WRAPPED(bool, _Z17IsRecordUnchangedPKhRK8DataInfo, const uint8_t* payload, const DataInfo& copy)
{
    const bool isUnchanged = __real__Z17IsRecordUnchangedPKhRK8DataInfo(payload, copy);
    if (isUnchanged && g_delivery.isChangedInCopy)
        Violation("a frame of two records");
    if (isUnchanged)
        g_delivery.stored.push_back({copy.AVSource, g_delivery.copied});
    return isUnchanged;
}

WRAPPED(ssize_t, send, int fd, const void* data, size_t bytes, int)
{
    const uint8_t how = Lie();
    if (how >= 0xE0) {
        errno = how < 0xF8 ? EAGAIN : EPIPE;
        return -1;
    }
    const size_t taken = how >= 0xC0 ? std::min<size_t>(bytes, how % 16U + 1) : bytes;
    const auto* const from = static_cast<const uint8_t*>(data);
    Bytes& sent = g_delivery.sent[fd - kFirstWatcher];
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
