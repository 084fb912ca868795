#include "media/media_sender.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "common/clock.h"
#include "common/log.h"
#include "common/shared_wait.h"
#include "media/ring_layout.h"
#include "media/stream_fanout.h"
#include "protocol/send_mutex.h"

namespace {

constexpr size_t kPieceBytes = 32768;
constexpr uint32_t kRetryMs = 2;
constexpr int kMostBlocked = 200;   // attempts in a row; about 400 ms
constexpr uint32_t kIdleMs = 5 + 3; // between two walks over the connections

alignas(kFrameOffset) uint8_t g_buffers[kLiveStreams][kMediaBufferBytes];

// Decides what a send that wrote nothing means. Returns true when the piece is to be tried again.
bool MayRetry(const ConnectionHold& hold, int ret, int error, int* blocked)
{
    static constexpr char kFunction[] = "SendAVStream";
    const int fd = hold.entry().fd;
    if (error != EAGAIN) {
        RemoveFd(fd);
        LogTrace("%s %d: ret %d <= 0!errno = %d\n", kFunction, __LINE__, ret, error);
        return false;
    }
    LogTrace("%s %d: ret %d <= 0 !errno = %d\n", kFunction, __LINE__, ret, error);
    if (++*blocked >= kMostBlocked) {
        RemoveFd(fd);
        LogTrace("%s %d: ret11count >= 200\n", kFunction, __LINE__);
        return false;
    }
    if (!hold.IsLive())
        return false; // removed by another thread: nobody waits for these bytes any more
    SleepMs(kRetryMs);
    return true;
}

// Writes the whole message to one connection. Returns false when the connection failed.
bool SendMessage(const ConnectionHold& hold, const uint8_t* message, size_t length)
{
    int blocked = 0; // attempts in a row
    for (size_t sent = 0; sent < length;) {
        const size_t piece = std::min(length - sent, kPieceBytes);
        errno = 0;
        const auto ret =
            static_cast<int>(send(hold.entry().fd, message + sent, piece, MSG_DONTWAIT | MSG_NOSIGNAL));
        if (ret <= 0) {
            if (!MayRetry(hold, ret, errno, &blocked))
                return false;
            continue;
        }
        blocked = 0;
        sent += static_cast<size_t>(ret);
        if (static_cast<size_t>(ret) < piece) {
            LogTrace("%s %d: ret != sendlen !%d != %d\n", "SendAVStream", __LINE__, ret,
                     static_cast<int>(piece));
            SleepMs(kRetryMs);
        }
    }
    return true;
}

bool IsWatching(const ConnectionEntry& entry, uint32_t stream)
{
    return entry.send_video == 1 && entry.fd_type == static_cast<int32_t>(stream) + 1;
}

bool IsSenderNeeded(void* stream)
{
    return !IsVideoProcessRunning() || IsStreamWanted(*static_cast<const uint32_t*>(stream)) == 1;
}

} // namespace

FrameReceivers::FrameReceivers(uint32_t stream)
{
    for (int slot = 0; slot < kMaxConnections; slot++)
        if (connections[slot].Take(slot) && !IsWatching(connections[slot].entry(), stream))
            connections[slot].Release();
}

void SendAVStream(const FrameReceivers& receivers, uint8_t* message, size_t length)
{
    const RecursiveLocked lock(&g_sendMutex);
    for (const ConnectionHold& hold : receivers.connections) {
        if (!hold || !hold.IsLive())
            continue;
        const int fd = hold.entry().fd;
        StoreLe(message + offsetof(MessageHeader, ulSessionId), hold.entry().sessionid);
        StoreLe(message + offsetof(MessageHeader, ulSeqNum), GetNextSeqnum(fd));
        if (SendMessage(hold, message, length))
            RefreshLastActive(fd);
    }
}

void SendAVStreamThread(uint32_t stream)
{
    LogTrace("%s %d: VideoIndex = %d\n", __func__, __LINE__, static_cast<int>(stream));
    signal(SIGPIPE, SIG_IGN); // once, since it holds for the whole process
    while (IsVideoProcessRunning()) {
        if (IsStreamWanted(stream) == 1) {
            if (PackAVFrame(stream, g_buffers[stream]) != 0)
                break;
            continue;
        }
        (void)LookEvery(kIdleMs, 0, IsSenderNeeded, &stream);
    }
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
}
