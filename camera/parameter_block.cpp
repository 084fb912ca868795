#include "camera/parameter_block.h"

#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "common/log.h"
#include "common/sysv_ipc.h"

namespace {

// Stored at start-up, loaded by every getter. It stays attached to the end: threads read it until then.
std::atomic<const SysInfo*> pSysConfig{nullptr};

} // namespace

int SysConfigInit()
{
    if (pSysConfig.load() != nullptr)
        return 0;
    fprintf(stderr, "shared memory size %d\n", static_cast<int>(kSysConfigBytes));
    const int id = IpcShareMemInit(kSysConfigKey, kSysConfigBytes, kSysConfigMode);
    fprintf(stderr, "shared memory id:%d\n", id);
    if (id < 0)
        return -1;
    if (IpcShareMemBytes(id) < kSysConfigBytes) {
        LogTrace("%s %d: parameter block of %zu bytes is too small, refusing it\n", __func__, __LINE__,
                 IpcShareMemBytes(id));
        return -1;
    }
    void* const address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        LogTrace("%s %d: parameter block cannot be attached, errno = %d\n", __func__, __LINE__, errno);
        return -1;
    }
    pSysConfig.store(static_cast<const SysInfo*>(address));
    fprintf(stderr, "pSysConfig:%p\n", address);
    return 0;
}

void SysConfigExit()
{
    if (const SysInfo* const config = pSysConfig.exchange(nullptr))
        shmdt(config);
}

const SysInfo* GetSysConfig()
{
    return pSysConfig.load(std::memory_order_acquire);
}
