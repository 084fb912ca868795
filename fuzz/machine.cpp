#include "fuzz/machine.h"

#include <cjson/cJSON.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

#include "camera/alarm_block.h"
#include "camera/camera_commands.h"
#include "common/keeper_block.h"
#include "protocol/send_mutex.h"
#include "server/alarm_push.h"

MachineState g_machine;
std::optional<ParameterStore> g_store;

namespace {

constexpr size_t kPage = 4096;

void* CountedMalloc(size_t bytes)
{
    ++g_machine.jsonAllocations;
    return malloc(bytes);
}

void CountedFree(void* memory)
{
    g_machine.jsonAllocations -= memory != nullptr ? 1 : 0;
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
    g_machine = {};
    g_store.emplace(g_segments[kParameterBlock].hostsBase(), "");
    g_nowUs = 1000000;
}

void PowerOff()
{
    g_store.reset();
    for (int fd = kFirstConnection; fd <= kLastConnection; ++fd)
        if (IsOpenConnection(fd))
            Violation("a socket was left open");
    if (g_machine.jsonAllocations != 0)
        Violation("JSON was left allocated");
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

void EnterServer(bool isServing)
{
    static FILE* const real = stderr;
    static FILE* const nowhere = fopen("/dev/null", "w");
    g_isServing = isServing;
    stderr = IsSilent() ? nowhere : real;
}

bool IsSilent()
{
    static const bool isShown = getenv("FUZZ_LOG") != nullptr;
    return g_isServing && !isShown;
}
