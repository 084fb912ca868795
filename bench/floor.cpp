// The floor program: network threads and the threads that only keep time. See floor.h.
#include "bench/floor.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "camera/alarm_block.h"
#include "camera/parameter_block_layout.h"
#include "common/clock.h"
#include "common/keeper_block.h"
#include "common/little_endian.h"
#include "common/sysv_ipc.h"
#include "common/thread.h"
#include "protocol/message.h"

FloorSlot g_floorSlots[kFloorSlots];

namespace {

int g_listenFd = -1;

[[noreturn]] void Fail(const char* what)
{
    perror(what);
    exit(1);
}

void AddConnection(int fd)
{
    fcntl(fd, F_SETFL, O_NONBLOCK);
    const int sendBytes = 1048576, on = 1;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBytes, sizeof sendBytes);
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    for (FloorSlot& slot : g_floorSlots) {
        if (slot.fd != 0)
            continue;
        slot.type = -1;
        slot.session = 0;
        slot.sequence = 0;
        slot.sendVideo = false;
        slot.fd = fd;
        return;
    }
}

// One timeout record for all calls: select counts it down, so from the first second on this thread
// looks at the socket every 20 ms.
void* Listener(void*)
{
    timeval timeout{.tv_sec = 1, .tv_usec = 5000};
    for (;;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(g_listenFd, &readable);
        if (select(g_listenFd + 1, &readable, nullptr, nullptr, &timeout) <= 0) {
            SleepMs(20);
            continue;
        }
        const int fd = accept(g_listenFd, nullptr, nullptr);
        if (fd > 0)
            AddConnection(fd);
    }
}

void Remove(FloorSlot& slot)
{
    shutdown(slot.fd, SHUT_RDWR);
    slot.sendVideo = false;
    slot.type = -1;
    slot.fd = 0;
}

void StartVideo(uint32_t session)
{
    for (FloorSlot& slot : g_floorSlots)
        if (slot.fd != 0 && slot.session == session && slot.type == 1)
            slot.sendVideo = true;
}

// Obeys a request by its id alone and returns the bytes of the reply.
size_t Answer(FloorSlot& slot, const uint8_t* request, size_t length, uint8_t* reply)
{
    static uint32_t lastSession = 0;
    const MessageHeader header = ReadHeader(request, length);
    if (header.usMessageId == kLoginReq) {
        slot.session = ++lastSession;
        slot.type = 0;
    } else if (header.usMessageId == kMonitorClaim) {
        slot.session = header.ulSessionId;
        slot.type = 1;
    } else if (header.usMessageId == kMonitorReq) {
        StartVideo(slot.session);
    }
    char* const body = reinterpret_cast<char*>(reply) + kHeaderBytes;
    const int bodyBytes = snprintf(body, kReplyBytes - kHeaderBytes, R"({"Ret":100,"SessionID":"0x%08x"})",
                                   slot.session.load());
    WriteHeader(reply, {.ucHeadFlag = kHeadFlag,
                        .ucVersion = kVersion,
                        .ucReserved2 = {},
                        .ulSessionId = slot.session,
                        .ulSeqNum = header.ulSeqNum,
                        .ucReserved12 = {},
                        .usMessageId = static_cast<uint16_t>(header.usMessageId + 1),
                        .ulBodyLength = static_cast<uint32_t>(bodyBytes)});
    return kHeaderBytes + static_cast<size_t>(bodyBytes);
}

void Serve(FloorSlot& slot, bool writable)
{
    static uint8_t request[kReadBytes], reply[kReplyBytes];
    memset(request, 0, sizeof request);
    const ssize_t got = recv(slot.fd, request, sizeof request, 0);
    if (got <= 0) {
        Remove(slot);
        return;
    }
    if (slot.type > 0)
        return; // what comes on a media connection is discarded
    memset(reply, 0, sizeof reply);
    const size_t length = Answer(slot, request, static_cast<size_t>(got), reply);
    if (writable && send(slot.fd, reply, length, MSG_DONTWAIT | MSG_NOSIGNAL) <= 0)
        Remove(slot);
}

int FillSets(fd_set* readable, fd_set* writable, fd_set* exceptions)
{
    FD_ZERO(readable);
    FD_ZERO(writable);
    FD_ZERO(exceptions);
    int maxFd = -1;
    for (const FloorSlot& slot : g_floorSlots) {
        const int fd = slot.fd;
        if (fd == 0)
            continue;
        FD_SET(fd, readable);
        FD_SET(fd, writable);
        FD_SET(fd, exceptions);
        maxFd = fd > maxFd ? fd : maxFd;
    }
    return maxFd;
}

// While any socket can be written to, select returns at once: a pass every 10 ms.
void* ReceiveThread(void*)
{
    for (;;) {
        fd_set readable, writable, exceptions;
        const int maxFd = FillSets(&readable, &writable, &exceptions);
        if (maxFd < 1) {
            SleepMs(100);
            continue;
        }
        timeval timeout{.tv_sec = 1, .tv_usec = 5000};
        if (select(maxFd + 1, &readable, &writable, &exceptions, &timeout) <= 0)
            continue;
        for (FloorSlot& slot : g_floorSlots) {
            const int fd = slot.fd;
            if (fd != 0 && FD_ISSET(fd, &readable))
                Serve(slot, FD_ISSET(fd, &writable));
        }
        SleepMs(10);
    }
}

void* IdleDetector(void*)
{
    for (;;)
        SleepMs(2000);
}

void* KeeperFeed(void*)
{
    const int id = IpcShareMemInit(kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode);
    for (;;) {
        const KeeperSlot slot{.ulTime = static_cast<uint32_t>(time(nullptr)), .ulStatus = 0};
        const ShmAttachment block(id);
        if (block)
            memcpy(block.get() + kKeeperSlotVelmora * sizeof slot, &slot, sizeof slot);
        SleepMs(2000);
    }
}

void* AlarmPolling(void* block)
{
    for (;;) {
        AlarmRecord record;
        memcpy(&record, block, sizeof record);
        SleepMs(1000);
    }
}

void Listen(uint16_t port)
{
    g_listenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(g_listenFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(g_listenFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(g_listenFd, 256) != 0)
        Fail("velmora-media-floor: listening");
}

} // namespace

void StartFloorThread(const char* name, void* (*body)(void*), void* argument)
{
    if (StartDetachedThread(name, body, argument) != 0)
        Fail("velmora-media-floor: starting a thread");
}

int main()
{
    signal(SIGPIPE, SIG_IGN);
    const ShmAttachment parameters(IpcShareMemInit(kSysConfigKey, kSysConfigBytes, kSysConfigMode));
    const ShmAttachment alarms(IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode));
    if (!parameters || !alarms)
        Fail("velmora-media-floor: attaching the parameter and alarm blocks");
    StartFloorThread("KeeperFeed", KeeperFeed, nullptr);
    for (int poller = 0; poller < 3; ++poller) // alarm slots 0, 1 and 4
        StartFloorThread("AlarmPolling", AlarmPolling, alarms.get());
    Listen(LoadLe<uint16_t>(parameters.get() + block::kVelmoraPort));
    StartFloorThread("Listener", Listener, nullptr);
    StartFloorThread("ReceiveThread", ReceiveThread, nullptr);
    StartFloorThread("IdleDetector", IdleDetector, nullptr);
    StartFloorMedia(10, parameters.get());
    for (;;)
        SleepMs(100 * 1000);
}
