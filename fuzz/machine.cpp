#include "fuzz/machine.h"

#include <cjson/cJSON.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "camera/alarm_block.h"
#include "camera/camera_commands.h"
#include "common/keeper_block.h"
#include "fuzz/machine_state.h"
#include "protocol/send_mutex.h"
#include "server/alarm_push.h"

MachineState g_machine;

namespace {

constexpr size_t kPage = 4096;

size_t g_jsonAllocations = 0;

void* CountedMalloc(size_t bytes)
{
    ++g_jsonAllocations;
    return malloc(bytes);
}

void CountedFree(void* memory)
{
    g_jsonAllocations -= memory != nullptr ? 1 : 0;
    free(memory);
}

void MakeSegment(SegmentPlace place, size_t bytes, bool isWritable)
{
    MakeRoom(&g_segments[place], (bytes / kPage + 1) * kPage, isWritable);
    g_segments[place].id = place + 1;
    g_segments[place].bytes = bytes;
}

} // namespace

void StartMachine()
{
    MakeSegment(kParameterBlock, kSysConfigBytes, false);
    MakeSegment(kParameterData, kParameterDataBytes, false);
    MakeSegment(kAlarmBlock, sizeof(AlarmRecord), true);
    MakeSegment(kKeeperBlock, kKeeperSlots * sizeof(KeeperSlot), true);
    // A process may write into its slot alone.
    mprotect(g_segments[kParameterData].base() + ParameterSlotOffset(kOwnProcess), kParameterSlotBytes,
             PROT_READ | PROT_WRITE);
    PowerOn();
    cJSON_Hooks hooks{.malloc_fn = CountedMalloc, .free_fn = CountedFree};
    cJSON_InitHooks(&hooks);
    EnterServer(true);
    CreateSendMutex();
    (void)CameraInit(1, 5);
    StartAlarmPush();
    EnterServer(false);
    PowerOff();
}

void PowerOn()
{
    g_machine.store.emplace(g_segments[kParameterBlock].hostsBase(), "");
    g_machine.faults = 0;
    g_nowUs = 1000000;
    g_machine.offer = {};
    g_machine.hasPeer = false;
    g_machine.isAnswered = g_machine.isOrdered = false;
}

void PowerOff()
{
    g_machine.store.reset();
    for (int fd = kFirstConnection; fd <= kLastConnection; ++fd)
        if (IsOpenConnection(fd))
            Violation("a socket was left open");
}

void SetFaults(uint16_t faults)
{
    g_machine.faults = faults;
}

void WriteBlock(size_t offset, std::span<const uint8_t> bytes)
{
    if (offset < kSysConfigBytes && !bytes.empty())
        memcpy(g_segments[kParameterBlock].hostsBase() + offset, bytes.data(),
               std::min(bytes.size(), kSysConfigBytes - offset));
}

void PassTime(uint32_t milliseconds)
{
    g_nowUs += int64_t{milliseconds} * 1000;
}

void OfferPeer()
{
    g_machine.hasPeer = true;
}

void OfferBytes(int fd, std::span<const uint8_t> bytes)
{
    g_machine.offer = {.fd = fd, .bytes = bytes, .isEnd = false, .isError = false};
}

void OfferEnd(int fd, bool isError)
{
    g_machine.offer = {.fd = fd, .bytes = {}, .isEnd = true, .isError = isError};
}

bool IsReadable(int fd)
{
    return (fd == kListenSocket && g_machine.hasPeer) || (fd == g_machine.offer.fd && fd != 0);
}

bool IsOpenConnection(int fd)
{
    return fd >= kFirstConnection && fd <= kLastConnection && g_machine.isOpen[fd - kFirstConnection];
}

bool IsShutConnection(int fd)
{
    return IsOpenConnection(fd) && g_machine.isShut[fd - kFirstConnection];
}

size_t JsonAllocations()
{
    return g_jsonAllocations;
}

void EnterServer(bool isServing)
{
    static const bool isShown = getenv("FUZZ_LOG") != nullptr;
    g_isServing = isServing;
    g_machine.isSilent = isServing && !isShown;
}
