// The whole way of a request in one process: what peers do, read from the input as a list of events, goes
// through listener, receive pass, dispatcher and handlers, the search thread, the idle detector and the alarm
// push of the server, which run unchanged against the machine of fuzz/machine.h.
//
// After each event it must hold that every open connection stands in the table once and nowhere else, that
// what handlers may not change has not changed, and that no JSON is left allocated.

#include <cstdio>

#include "common/clock.h"
#include "fuzz/events.h"
#include "fuzz/machine.h"
#include "fuzz/reply_check.h"
#include "protocol/connection_table.h"
#include "server/ProtocolAccess.h"
#include "server/alarm_push.h"
#include "server/device_search.h"
#include "server/idle_detector.h"
#include "server/listener.h"
#include "server/network_state.h"
#include "server/receive_thread.h"

namespace {

uint32_t g_sessions = 0; // that logins have been given
ReceiveBuffers g_buffers;

void CheckSession(const MessageHeader& asked, uint32_t before, uint32_t after, const MessageHeader& answered)
{
    if (asked.usMessageId == kLoginReq) {
        ++g_sessions;
        if (answered.ulSessionId != g_sessions)
            Violation("a login without a session of its own");
    } else if (asked.usMessageId == kMonitorClaim) {
        if (after != 0 && after != asked.ulSessionId)
            Violation("a claim of another session than its header's");
    } else if (after != before) {
        Violation("a request that may not change its session has");
    }
}

// The dispatcher, with what must hold for every request.
int Dispatch(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    const auto length = static_cast<size_t>(requestLen);
    const uint32_t sessionBefore = GetSessionIdByFd(fd);
    const int32_t typeBefore = GetFdType(fd);
    ProtocolNetworkProcess(fd, request, requestLen, reply, replyLen);
    if (*replyLen > 0)
        CheckReply({request, length}, {reply, static_cast<size_t>(*replyLen)});
    const MessageHeader asked = ReadHeader(request, length);
    CheckSession(asked, sessionBefore, GetSessionIdByFd(fd), ReadHeader(reply, kHeaderBytes));
    if (GetFdType(fd) != typeBefore && asked.usMessageId != kLoginReq && asked.usMessageId != kMonitorClaim)
        Violation("a request that may not change the connection's type has");
    if (g_machine.jsonAllocations != 0)
        Violation("a request left JSON allocated");
    return 0;
}

void CheckTable()
{
    bool isListed[kLastConnection + 1] = {};
    for (int slot = 0; slot < kMaxConnections; ++slot) {
        const ConnectionHold connection(slot);
        if (!connection)
            continue;
        const ConnectionEntry& entry = connection.entry();
        if (!IsOpenConnection(entry.fd) || isListed[entry.fd])
            Violation("the table lists a socket that is closed, or twice");
        isListed[entry.fd] = true;
        if (entry.fd_type < kFdNew || entry.fd_type > kFdExtra2Stream || entry.send_video > 1 ||
            entry.alarm_on > 1 || entry.last_active > GetUptime())
            Violation("the table holds an impossible value");
    }
    // One that was removed while a part of a message is held stays open, shut down, until the part goes.
    for (int fd = kFirstConnection; fd <= kLastConnection; ++fd)
        if (IsOpenConnection(fd) && isListed[fd] == IsShutConnection(fd))
            Violation("a connection is in no slot, or in one though it was removed");
}

// The socket in the slot, or the one of the next slot that has one; 0 for none.
int SocketNear(uint8_t place)
{
    for (int i = 0; i < kMaxConnections; ++i)
        if (const ConnectionHold connection((place + i) % kMaxConnections); connection)
            return connection.entry().fd;
    return 0;
}

void Connect()
{
    g_machine.hasPeer = true;
    timeval timeout{.tv_sec = 0, .tv_usec = 0};
    (void)ListenerStep(kListenSocket, &timeout);
}

// A stream's bytes may take several reads.
void Receive(const Offer& offer)
{
    g_machine.offer = offer;
    do
        (void)ReceivePass(&g_buffers);
    while (IsReadable(offer.fd) && IsOpenConnection(offer.fd));
    g_machine.offer = {};
}

void Search(std::span<const uint8_t> datagram)
{
    g_machine.offer = {.fd = kSearchSocket, .bytes = datagram};
    SearchTask task{.run = BeginNetworkRun(), .fd = kSearchSocket};
    (void)DevSearchThread(&task);
    g_machine.offer = {};
}

size_t WordOf(std::span<const uint8_t> bytes)
{
    return bytes.size() >= 2 ? bytes[0] + bytes[1] * 256U : 0;
}

// Places above 0 are the block's first pages, where nearly all settings lie.
void Store(const Event& event)
{
    const size_t word = WordOf(event.bytes);
    const size_t place = event.place == 0 ? word * 4 : word % 8192;
    for (size_t i = 2; i < event.bytes.size() && place + i - 2 < kSysConfigBytes; ++i)
        g_segments[kParameterBlock].hostsBase()[place + i - 2] = event.bytes[i];
}

void Wait(const Event& event)
{
    g_nowUs += int64_t{1000} * (event.bytes.empty() ? (event.place + 1) * 1000 : event.bytes[0]);
    IdleDetectorStep(GetUptime());
    (void)ReceivePass(&g_buffers);
}

void Happen(const Event& event)
{
    const int fd = SocketNear(event.place);
    switch (event.kind) {
    case kBytes:
        if (fd == 0)
            Connect();
        if (event.bytes.empty())
            return;
        return Receive({.fd = SocketNear(event.place), .bytes = event.bytes});
    case kDatagram:
        return Search(event.bytes);
    case kConnect:
        return Connect();
    case kEnd:
        return Receive({.fd = fd, .isError = !event.bytes.empty()});
    case kSettings:
        return Store(event);
    case kTime:
        return Wait(event);
    case kWeather:
        g_machine.faults = static_cast<uint16_t>(WordOf(event.bytes));
        return;
    case kAlarm:
        return AlarmCallbackFunc(event.place >> 4 & 7, event.place & 3, event.place & 3);
    case kEventKinds:
        return;
    }
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    // What the server prints costs time and is nobody's.
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    StartMachine();
    SetMessageCallback(Dispatch);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    EnterServer(true);
    PowerOn();
    std::span<const uint8_t> input(bytes, length);
    while (!input.empty()) {
        Happen(TakeEvent(&input));
        CheckTable();
    }
    RemoveAllConnections();
    for (HeldPart& part : g_buffers.parts)
        DropPart(&part);
    if (GetConnectCount() != 0 || GetMaxFd() != -1)
        Violation("connections are left");
    PowerOff();
    EnterServer(false);
    return 0;
}
