#include "server/alarm_push.h"

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <iterator>

#include "camera/alarm_polling.h"
#include "camera/camera_commands.h"
#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"
#include "protocol/connection_table.h"
#include "protocol/message.h"
#include "protocol/reply_text.h"
#include "protocol/send_mutex.h"

namespace {

constexpr suseconds_t kWritableUs = 50000;
constexpr uint32_t kSentPauseMs = 1;
// How long an alarm waits in all for media messages that are on their way: somewhat longer than for the one
// reader that takes nothing. Whoever could not be written to by then misses it.
constexpr uint32_t kBetweenMediaMs = 500;
constexpr size_t kTimeTextBytes = 26; // of ctime_r()

std::atomic<bool> g_isEnabled{false};

// Held from the taking of a number to the end of its send: after a restart of the server two threads poll
// for it, and their messages are to arrive in the order of their numbers.
Mutex g_numberLock;

struct Receivers {
    ConnectionHold connections[kMaxConnections];
    int highest = -1; // socket of these
    fd_set writable;
};

bool TakeIfSubscribed(ConnectionHold* connection, int slot)
{
    if (connection->Take(slot) && connection->entry().alarm_on != 1)
        connection->Release();
    return static_cast<bool>(*connection);
}

bool IsAnyoneSubscribed()
{
    ConnectionHold connection;
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (TakeIfSubscribed(&connection, slot))
            return true;
    return false;
}

// Whether one of the receivers can be written to in time; those that can are then in the set.
bool WaitForReceivers(Receivers* receivers)
{
    FD_ZERO(&receivers->writable);
    for (const ConnectionHold& connection : receivers->connections)
        if (connection)
            FD_SET(connection.entry().fd, &receivers->writable);
    timeval timeout{.tv_sec = 0, .tv_usec = kWritableUs};
    return select(receivers->highest + 1, nullptr, &receivers->writable, nullptr, &timeout) > 0;
}

void SendTo(int fd, uint8_t* message, size_t length)
{
    const Locked lock(g_numberLock);
    StoreLe(message + offsetof(MessageHeader, ulSessionId), GetSessionIdByFd(fd));
    StoreLe(message + offsetof(MessageHeader, ulSeqNum), GetNextSeqnum(fd));
    if (send(fd, message, length, MSG_DONTWAIT | MSG_NOSIGNAL) <= 0)
        RemoveFd(fd);
}

bool IsWritable(int fd)
{
    pollfd socket{.fd = fd, .events = POLLOUT, .revents = 0};
    return poll(&socket, 1, 0) > 0;
}

// A media message may go out in several pieces; the send mutex is free when none is on its way, and
// keeps the next one back. Meanwhile the media may have filled the socket. Returns false when a message is
// still on its way after that time.
bool SendBetweenMedia(int fd, uint8_t* message, size_t length, uint32_t waitMs)
{
    if (!MutexTryLock(&g_sendMutex, waitMs))
        return false;
    if (IsWritable(fd))
        SendTo(fd, message, length);
    MutexUnlock(&g_sendMutex);
    return true;
}

bool CarriesMedia(int fd)
{
    const int32_t type = GetFdType(fd);
    return type == kFdMainStream || type == kFdExtraStream;
}

// Returns false when media keep the connection busy for longer than that time.
bool Deliver(const ConnectionHold& connection, uint8_t* message, size_t length, uint32_t waitMs)
{
    const int fd = connection.entry().fd;
    if (GetAlarmFlag(fd) != 1)
        return true; // removed since, or it has unsubscribed
    if (!CarriesMedia(fd))
        SendTo(fd, message, length);
    else if (!SendBetweenMedia(fd, message, length, waitMs))
        return false;
    SleepMs(kSentPauseMs);
    return true;
}

} // namespace

void StartAlarmPush()
{
    g_isEnabled = true;
    if (const int status = CameraSetAlarmCallback(kCallbackVelmora, AlarmCallbackFunc))
        LogTrace("%s %d: no alarms, status %d\n", __func__, __LINE__, status);
}

void StopAlarmPush()
{
    g_isEnabled = false;
}

void AlarmCallbackFunc(uint32_t kind, uint32_t state, uint32_t)
{
    if (!g_isEnabled || !IsAnyoneSubscribed())
        return;
    uint8_t message[kAlarmBytes];
    if (const size_t length = ProcessAlarmReq(kind, state, message); length > 0)
        (void)SendAlarmReq(message, length); // always 0
}

size_t ProcessAlarmReq(uint32_t kind, uint32_t state, uint8_t (&message)[kAlarmBytes])
{
    static constexpr const char* kStatus[] = {R"(,"Status":"Stop")", R"(,"Status":"Start")"};
    if (kind != kAlarmCallbackKind)
        return 0;
    const bool hasStatus = state < std::size(kStatus);
    if (hasStatus)
        LogTrace("%s %d: \n", __func__, __LINE__);
    const time_t now = time(nullptr);
    char timeText[kTimeTextBytes]; // its line feed travels
    ReplyText text{.buffer = {reinterpret_cast<char*>(message) + kHeaderBytes, kAlarmBytes - kHeaderBytes}};
    Add(&text, R"({"AlarmInfo":{"Channel":0,"Event":"VideoMotion","StartTime":@@},)",
        Quoted(ctime_r(&now, timeText)), Plain(hasStatus ? kStatus[state] : ""));
    Add(&text, R"("Name":"AlarmInfo","SessionID":@})", Hex(0));
    WriteHeader(message, {.ucHeadFlag = kHeadFlag,
                          .ucVersion = kVersion,
                          .ucReserved2 = {},
                          .ulSessionId = 0,
                          .ulSeqNum = 0,
                          .ucReserved12 = {},
                          .usMessageId = kAlarmInfo,
                          .ulBodyLength = static_cast<uint32_t>(text.length)});
    return kHeaderBytes + text.length;
}

int SendAlarmReq(uint8_t* message, size_t length)
{
    LogTrace("%s %d: SendAlarmReqend!\n", __func__, __LINE__);
    Receivers receivers;
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (TakeIfSubscribed(&receivers.connections[slot], slot))
            receivers.highest = std::max(receivers.highest, receivers.connections[slot].entry().fd);
    if (receivers.highest < 0 || !WaitForReceivers(&receivers))
        return 0;
    for (ConnectionHold& connection : receivers.connections) {
        const bool isWritable = connection && FD_ISSET(connection.entry().fd, &receivers.writable);
        if (!isWritable || Deliver(connection, message, length, /* waitMs= */ 0))
            connection.Release();
    }
    // Nobody else waits for those to whom media were on their way.
    const int64_t untilMs = MonotonicMs() + kBetweenMediaMs;
    for (const ConnectionHold& connection : receivers.connections) {
        const int64_t leftMs = std::max<int64_t>(0, untilMs - MonotonicMs());
        if (connection && !Deliver(connection, message, length, static_cast<uint32_t>(leftMs)))
            LogTrace("%s %d: media keep fd %d busy, which misses an alarm\n", __func__, __LINE__,
                     connection.entry().fd);
    }
    return 0;
}
