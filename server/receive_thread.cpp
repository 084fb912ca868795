#include "server/receive_thread.h"

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "common/clock.h"
#include "common/log.h"
#include "common/shared_wait.h"
#include "server/network_state.h"

namespace {

constexpr char kThreadName[] = "SendRecvSocketThread"; // whose lines these are, in the log
constexpr int64_t kSelectTimeoutUs = 1005000;
constexpr uint32_t kNoSlotPauseMs = 100;
constexpr uint32_t kNoConnectionPauseMs = 1000;
constexpr uint32_t kServedPauseMs = 10;

struct Pass {
    ReceiveBuffers* buffers;
    ConnectionHold connections[kMaxConnections];
    int highest; // socket of these, or -1
    fd_set readable;
    fd_set writable;
    fd_set exceptional;
};

void TakeConnections(Pass* pass)
{
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (pass->connections[slot].Take(slot))
            pass->highest = std::max(pass->highest, pass->connections[slot].entry().fd);
}

void ClearSets(Pass* pass)
{
    FD_ZERO(&pass->readable);
    FD_ZERO(&pass->writable);
    FD_ZERO(&pass->exceptional);
}

// A part whose connection has left its slot waits for nothing any more.
void DropOrphanedParts(Pass* pass)
{
    for (int slot = 0; slot < kMaxConnections; ++slot) {
        HeldPart& part = pass->buffers->parts[slot];
        if (part.isHeld() && part.connection.entry().fd != pass->connections[slot].entry().fd)
            DropPart(&part);
    }
}

// The time that select() may wait: no longer than the part that is due first.
timeval SelectTimeout(const ReceiveBuffers& buffers)
{
    int64_t us = kSelectTimeoutUs;
    const int64_t nowMs = MonotonicMs();
    for (const HeldPart& part : buffers.parts)
        if (part.isHeld())
            us = std::clamp<int64_t>((part.dueMs - nowMs) * 1000, 0, us);
    return {.tv_sec = static_cast<time_t>(us / 1000000), .tv_usec = static_cast<suseconds_t>(us % 1000000)};
}

// False when no socket has anything to report; the sets are then empty.
bool WaitForSockets(Pass* pass)
{
    ClearSets(pass);
    for (const ConnectionHold& connection : pass->connections) {
        if (!connection)
            continue;
        const int fd = connection.entry().fd;
        FD_SET(fd, &pass->readable);
        FD_SET(fd, &pass->writable);
        FD_SET(fd, &pass->exceptional);
    }
    timeval timeout = SelectTimeout(*pass->buffers);
    if (select(pass->highest + 1, &pass->readable, &pass->writable, &pass->exceptional, &timeout) > 0)
        return true;
    ClearSets(pass);
    return false;
}

bool WouldBlock(ssize_t result)
{
    return result < 0 && (errno == EAGAIN || errno == EINTR);
}

// Hands the message to the dispatcher and sends what it answers. The reply is lost when the socket was
// not writable in this pass, and when the connection was removed while its request was handled.
void HandleMessage(const Pass& pass, const ConnectionHold& connection, const uint8_t* message, int length)
{
    const int fd = connection.entry().fd;
    RequestHandler* const callback = GetMessageCallback();
    if (callback == nullptr)
        return;
    uint8_t* const reply = pass.buffers->reply;
    memset(reply, 0, sizeof pass.buffers->reply);
    int replyLen = 0;
    callback(fd, message, length, reply, &replyLen);
    if (!FD_ISSET(fd, &pass.writable) || replyLen <= 0 || !connection.IsLive())
        return;
    if (send(fd, reply, static_cast<size_t>(replyLen), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        RefreshLastActive(fd);
        return;
    }
    LogTrace("%s %d: Command disconnect\n", kThreadName, __LINE__);
    RemoveFd(fd);
}

void HandlePart(const Pass& pass, const ConnectionHold& connection, HeldPart* part)
{
    HandleMessage(pass, connection, part->bytes, part->length);
    DropPart(part);
}

void TakeIn(const Pass& pass, int slot, int length)
{
    const ConnectionHold& connection = pass.connections[slot];
    const uint8_t* const bytes = pass.buffers->request;
    HeldPart& part = pass.buffers->parts[slot];
    if (part.isHeld())
        AppendToPart(&part, bytes, length);
    else if (IsFirstPart(bytes, length))
        HoldPart(&part, slot, connection.entry().fd, bytes, length, MonotonicMs());
    else
        HandleMessage(pass, connection, bytes, length);
}

// Reads a command or new connection. Returns false when the peer is gone and the connection removed.
bool ReadCommand(Pass* pass, int slot)
{
    const ConnectionHold& connection = pass->connections[slot];
    const int fd = connection.entry().fd;
    uint8_t* const request = pass->buffers->request;
    memset(request, 0, sizeof pass->buffers->request);
    const ssize_t length = recv(fd, request, kReadBytes, 0);
    if (WouldBlock(length))
        return true;
    if (length > 0) {
        RefreshLastActive(fd);
        TakeIn(*pass, slot, static_cast<int>(length));
        return true;
    }
    HeldPart& part = pass->buffers->parts[slot];
    if (part.isHeld()) { // handled first: a peer that has ended its own direction may still listen
        HandlePart(*pass, connection, &part);
        if (!connection.IsLive())
            return false; // its reply could not be sent
    }
    RemoveFd(fd);
    LogTrace("%s %d: Command disconnect\n", kThreadName, __LINE__);
    return false;
}

// A part is handled once it is complete, or with what came when its time is over. What arrived before
// this pass still counts: another request may have kept the thread busy beyond that time.
void ServePart(Pass* pass, int slot)
{
    HeldPart& part = pass->buffers->parts[slot];
    if (part.isHeld() && (part.isComplete() || MonotonicMs() >= part.dueMs))
        HandlePart(*pass, pass->connections[slot], &part);
}

void DiscardMedia(Pass* pass, int fd)
{
    const ssize_t length = recv(fd, pass->buffers->request, kReadBytes, 0);
    if (WouldBlock(length))
        return;
    if (length > 0) {
        RefreshLastActive(fd);
        return;
    }
    LogTrace("%s %d: Video disconnect\n", kThreadName, __LINE__);
    RemoveFd(fd);
}

void ServeSlot(Pass* pass, int slot)
{
    const ConnectionHold& connection = pass->connections[slot];
    const int fd = connection.entry().fd;
    // A connection may have been removed since it was taken, by another thread or by a handler.
    if (!connection || !connection.IsLive())
        return;
    const bool isReadable = FD_ISSET(fd, &pass->readable);
    const int32_t type = connection.entry().fd_type;
    if (type == kFdNew || type == kFdCommand) {
        if (isReadable && !ReadCommand(pass, slot))
            return;
        ServePart(pass, slot);
    } else if (isReadable && type >= kFdMainStream && type <= kFdExtra2Stream) {
        DiscardMedia(pass, fd);
    }
    if (FD_ISSET(fd, &pass->exceptional) && connection.IsLive()) {
        LogWarn("%s %d fd exception: fd = %d\n", kThreadName, __LINE__, fd);
        RemoveFd(fd);
    }
}

// What the loop's thread waits for after a pass.
struct PassWait {
    uint32_t run;
    const ReceiveBuffers* buffers;
};

bool HoldsPart(const ReceiveBuffers& buffers)
{
    return std::any_of(std::begin(buffers.parts), std::end(buffers.parts),
                       [](const HeldPart& part) { return part.isHeld(); });
}

// Whether the next pass would find anything to do: a socket that select() would report for more than being
// writable, a part of a message, an empty table, the end of the run.
bool IsPassNeeded(void* argument)
{
    const auto& [run, buffers] = *static_cast<const PassWait*>(argument);
    if (!IsNetworkRun(run) || HoldsPart(*buffers))
        return true;
    pollfd sockets[kMaxConnections];
    nfds_t count = 0;
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (const ConnectionHold connection(slot); connection)
            sockets[count++] = {.fd = connection.entry().fd, .events = POLLIN | POLLPRI, .revents = 0};
    return count == 0 || poll(sockets, count, 0) != 0;
}

} // namespace

uint32_t ReceivePass(ReceiveBuffers* buffers)
{
    Pass pass{.buffers = buffers,
              .connections = {},
              .highest = -1,
              .readable = {},
              .writable = {},
              .exceptional = {}};
    TakeConnections(&pass);
    DropOrphanedParts(&pass);
    if (pass.highest < 1)
        return kNoSlotPauseMs;
    if (GetConnectCount() < 1)
        return kNoConnectionPauseMs; // all that were taken have gone since
    const bool isReported = WaitForSockets(&pass);
    for (int slot = 0; slot < kMaxConnections; ++slot)
        ServeSlot(&pass, slot);
    return isReported ? kServedPauseMs : 0;
}

void RemoveAllConnections()
{
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (const ConnectionHold connection(slot); connection && connection.entry().fd > 0)
            RemoveFd(connection.entry().fd);
}

void* SendRecvSocketThread(void* argument)
{
    static ReceiveBuffers buffers; // of one thread at a time: a run's is waited for before the next
    const auto run = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument));
    PassWait wait{.run = run, .buffers = &buffers};
    while (IsNetworkRun(run)) {
        const uint32_t pauseMs = ReceivePass(&buffers);
        if (pauseMs == kServedPauseMs)
            (void)LookEvery(pauseMs, 0, IsPassNeeded, &wait);
        else if (pauseMs > 0)
            SleepMs(pauseMs);
    }
    RemoveAllConnections();
    for (HeldPart& part : buffers.parts)
        DropPart(&part);
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
    return nullptr;
}
