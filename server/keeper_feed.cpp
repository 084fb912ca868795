#include "server/keeper_feed.h"

#include <cstddef>
#include <ctime>

#include "common/clock.h"
#include "common/keeper_block.h"
#include "common/little_endian.h"
#include "common/log.h"
#include "common/sysv_ipc.h"
#include "common/thread.h"

namespace {

constexpr uint32_t kFeedPeriodMs = 2000;

constexpr int kUnusable = -1;

int g_shmId = kUnusable;

// A segment that somebody else made too small for the slots is none of ours.
bool HoldsTheSlots(int shmId)
{
    return IpcShareMemBytes(shmId) >= kKeeperSlots * sizeof(KeeperSlot) &&
           static_cast<bool>(ShmAttachment(shmId));
}

int FindBlock()
{
    const int shmId = IpcShareMemInit(kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode);
    return shmId >= 0 && HoldsTheSlots(shmId) ? shmId : kUnusable;
}

// The block. A keeper may remove it and make another, so it is looked up by its key each time, and made here
// when it is gone.
ShmAttachment AttachBlock()
{
    if (g_shmId == kUnusable)
        return {};
    g_shmId = IpcShareMemPresent(kKeeperKey, g_shmId, kKeeperSlots * sizeof(KeeperSlot));
    ShmAttachment block(g_shmId);
    if (const int found = block ? kUnusable : FindBlock(); found != kUnusable) {
        g_shmId = found;
        block = ShmAttachment(found);
    }
    return block;
}

[[noreturn]] void* KeeperFeedThread(void*)
{
    (void)libKeeperInit(); // the writes below report a block that cannot be used
    for (;;) {
        (void)KeeperDataWrite(kKeeperSlotVelmora);
        SleepMs(kFeedPeriodMs);
    }
}

} // namespace

int libKeeperInit()
{
    if (g_shmId >= 0) {
        LogTrace("%s %d: %s has already init!\n", __func__, __LINE__, "libKeeper");
        return 0;
    }
    g_shmId = FindBlock();
    return g_shmId != kUnusable ? 0 : -1;
}

int KeeperDataWrite(uint32_t source)
{
    if (source >= kKeeperSlots) {
        LogTrace("%s %d: source  %d is wrong!\n", __func__, __LINE__, source);
        return -1;
    }
    const ShmAttachment block = AttachBlock();
    if (!block) {
        LogTrace("%s %d: gShmId %d has something wrong!\n", __func__, __LINE__, g_shmId);
        return -1;
    }
    // The time alone: the status is the keeper's, and may change at any moment.
    StoreLe(block.get() + source * sizeof(KeeperSlot) + offsetof(KeeperSlot, ulTime),
            static_cast<uint32_t>(time(nullptr)));
    return 0;
}

void StartKeeperFeed()
{
    if (const int error = StartDetachedThread("KeeperFeed", KeeperFeedThread, nullptr))
        LogError("%s %d: Start thread error. errno = %d\n", __func__, __LINE__, error);
}
