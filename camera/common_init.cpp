#include "camera/common_init.h"

#include <sys/sem.h>

#include <atomic>

#include "camera/alarm_polling.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

constexpr int kLogLevel = 3;
constexpr int kLogFileSemaphoreMode = 0666;

// The kinds of process that use the camera layer and their numbers in the parameter exchange.
struct ProcessKind {
    uint32_t ulKind;
    int iProcessId;
    const char* name; // logged; the peer-to-peer service has none
};

constexpr ProcessKind kProcessKinds[] = {
    {1, 2, "PROCESS_WEBHOST"},     {2, 4, "PROCESS_SEEKHOST"}, {3, 3, nullptr},
    {4, 6, "PROCESS_OSTRASERVER"}, {5, 7, "PROCESS_VELMORA"},  {6, 5, "PROCESS_RECHOST"},
};
constexpr ProcessKind kOtherProcess = {0, 12, nullptr};

const ProcessKind& FindProcessKind(uint32_t kind)
{
    for (const ProcessKind& row : kProcessKinds)
        if (row.ulKind == kind)
            return row;
    return kOtherProcess;
}

// The semaphore of the firmware's log files; kept for the life of the process.
std::atomic<int> g_logFileSemaphore{-1};

void ObtainLogFileSemaphore()
{
    if (g_logFileSemaphore.load() < 0)
        g_logFileSemaphore.store(semget(kLogFileSemaphoreKey, 1, IPC_CREAT | kLogFileSemaphoreMode));
}

} // namespace

int Common_Init(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    LogInit("OnvifAccess", kLogLevel);
    ClearAlarmCallbacks();
    const uint32_t kind = *static_cast<const uint32_t*>(input);
    LogTrace("%s %d #####################value %d\n", __func__, __LINE__, kind);
    const ProcessKind& process = FindProcessKind(kind);
    if (process.name != nullptr)
        LogTrace("%s %d %s\n", __func__, __LINE__, process.name);
    if (SysDrvInit(process.iProcessId) != 0) {
        SysDrvExit();
        return kCameraFailed;
    }
    if (SysConfigInit() != 0) {
        SysConfigExit();
        return kCameraFailed;
    }
    ObtainLogFileSemaphore();
    return kCameraOk;
}
