#include "fuzz/machine.h"

#include <cjson/cJSON.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "camera/camera_commands.h"
#include "fuzz/machine_state.h"
#include "protocol/send_mutex.h"
#include "server/alarm_push.h"

MachineState g_machine;

namespace {

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

// Two views of so many whole pages, the server's between pages that nobody may touch.
struct GuardedPages {
    uint8_t* hosts;
    uint8_t* servers;
};

GuardedPages MakePages(size_t bytes)
{
    constexpr size_t kPage = 4096;
    const int file = memfd_create("block", MFD_CLOEXEC);
    void* const guard = mmap(nullptr, bytes + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (file < 0 || ftruncate(file, static_cast<off_t>(bytes)) != 0 || guard == MAP_FAILED)
        Violation("the machine has no memory");
    void* const hosts = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    void* const servers =
        mmap(static_cast<uint8_t*>(guard) + kPage, bytes, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
    if (hosts == MAP_FAILED || servers == MAP_FAILED)
        Violation("the machine has no memory");
    close(file);
    return {static_cast<uint8_t*>(hosts), static_cast<uint8_t*>(servers)};
}

} // namespace

void Violation(const char* what)
{
    dprintf(STDERR_FILENO, "VIOLATION: %s\n", what);
    abort();
}

void StartMachine()
{
    const GuardedPages block = MakePages(kSysConfigBytes);
    g_machine.block = block.servers;
    g_machine.hostsBlock = block.hosts;
    const GuardedPages data = MakePages(kParameterDataBytes);
    g_machine.data = data.servers;
    // A process may write into its slot alone.
    mprotect(data.servers + ParameterSlotOffset(kOwnProcess), kParameterSlotBytes, PROT_READ | PROT_WRITE);
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
    g_machine.store.emplace(g_machine.hostsBlock, "");
    g_machine.faults = 0;
    g_machine.nowUs = 1000000;
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
        memcpy(g_machine.hostsBlock + offset, bytes.data(), std::min(bytes.size(), kSysConfigBytes - offset));
}

void PassTime(uint32_t milliseconds)
{
    g_machine.nowUs += int64_t{milliseconds} * 1000;
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
    g_machine.isServing = isServing;
    g_machine.isSilent = isServing && !isShown;
}
