#include "camera/alarm_block.h"

#include <atomic>
#include <cstring>
#include <ctime>

#include "common/log.h"
#include "common/mutex.h"
#include "common/sysv_ipc.h"

namespace {

constexpr int kUnusable = -1;

std::atomic<bool> g_initialized{false};
std::atomic<int> gShmId{kUnusable}; // set by libAlarmProcessInit, and when the block was made anew

Mutex g_recordMutex; // guards the local copy and the order of its writes to the block
AlarmRecord g_record GUARDED_BY(g_recordMutex) = {};

// Attaches or creates the block, unless a stranger's is too small for the record.
int FindBlock()
{
    const int id = IpcShareMemInit(kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode);
    return id >= 0 && IpcShareMemBytes(id) >= sizeof(AlarmRecord) ? id : kUnusable;
}

// The attached block; empty, with a log line, when it cannot be had. An alarm source may remove the block and
// make another, so it is looked up by its key each time, and made here when it is gone.
ShmAttachment AttachBlock(const char* caller, int line)
{
    ShmAttachment block;
    int id = gShmId.load();
    if (id != kUnusable) {
        id = IpcShareMemPresent(kAlarmKey, id, sizeof(AlarmRecord));
        block = ShmAttachment(id);
        if (const int found = block ? kUnusable : FindBlock(); found != kUnusable) {
            id = found;
            block = ShmAttachment(found);
        }
        gShmId.store(id);
    }
    if (!block)
        LogTrace("%s %d: gShmId %d has something wrong!\n", caller, line, id);
    return block;
}

} // namespace

int libAlarmProcessInit()
{
    if (g_initialized.exchange(true)) {
        LogTrace("%s %d: %s has already init!\n", __func__, __LINE__, __func__);
        return 0;
    }
    gShmId.store(FindBlock());
    return gShmId.load() != kUnusable ? 0 : -1;
}

int AlarmDataWrite(uint32_t source, uint32_t status)
{
    if (source >= kAlarmSources) {
        LogTrace("%s %d: source  %d is wrong!\n", __func__, __LINE__, source);
        return -1;
    }
    if (status > 1) {
        LogTrace("%s %d: status  %d is wrong!\n", __func__, __LINE__, status);
        return -1;
    }
    const ShmAttachment block = AttachBlock(__func__, __LINE__);
    if (!block)
        return -1;
    const Locked lock(g_recordMutex);
    g_record.source[source] = {status, static_cast<uint32_t>(time(nullptr))};
    memcpy(block.get(), &g_record, sizeof g_record);
    return 0;
}

int AlarmDataRead(AlarmRecord* record)
{
    if (record == nullptr)
        return -1;
    const ShmAttachment block = AttachBlock(__func__, __LINE__);
    if (!block)
        return -1;
    memcpy(record, block.get(), sizeof *record);
    return 0;
}
