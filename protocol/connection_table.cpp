#include "protocol/connection_table.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "common/bounded_text.h"
#include "common/clock.h"
#include "common/log.h"
#include "common/mutex.h"

namespace {

// Those who hold connections: the receive pass and its half-received messages, both media senders, and
// the alarm sender and the idle detector, of each of which there may be two after a restart. Each holds a
// slot at most once.
constexpr int kHolders = 8;
constexpr int kMaxHolds = kHolders * kMaxConnections;

constexpr ConnectionEntry kFreeSlot{.in_use = 0,
                                    .fd = 0,
                                    .ip = {},
                                    .port = 0,
                                    .sessionid = 0,
                                    .seqnum = 0,
                                    .fd_type = kFdNew,
                                    .send_video = 0,
                                    .alarm_on = 0,
                                    .last_active = 0};

// A socket that was removed while somebody held it. There are never more of them than holds.
struct RemovedSocket {
    int fd;
    int holds; // 0: the record is free
};

struct Slot {
    ConnectionEntry entry = kFreeSlot;
    int holds = 0; // how many hold the connection
};

Mutex g_tableLock;
Slot g_table[kMaxConnections] GUARDED_BY(g_tableLock);
RemovedSocket g_removed[kMaxHolds] GUARDED_BY(g_tableLock);
int g_allHolds GUARDED_BY(g_tableLock) = 0;

// The slot of the socket, or -1.
int FindSlotLocked(int fd) REQUIRES(g_tableLock)
{
    for (int slot = 0; slot < kMaxConnections; ++slot)
        if (g_table[slot].entry.in_use != 0 && g_table[slot].entry.fd == fd)
            return slot;
    return -1;
}

// The entry of the socket, or null.
ConnectionEntry* FindLocked(int fd) REQUIRES(g_tableLock)
{
    const int slot = FindSlotLocked(fd);
    return slot >= 0 ? &g_table[slot].entry : nullptr;
}

// Records a socket that holders still use; the last of them closes it.
void KeepRemovedLocked(int fd, int holds) REQUIRES(g_tableLock)
{
    const auto free = std::find_if(std::begin(g_removed), std::end(g_removed),
                                   [](const RemovedSocket& removed) { return removed.holds == 0; });
    *free = {.fd = fd, .holds = holds}; // always found: every other record stands for a hold
}

// Takes one hold off the socket. True when it was the last on a removed socket, which is to be closed.
bool LetGoLocked(int fd) REQUIRES(g_tableLock)
{
    --g_allHolds;
    if (const int slot = FindSlotLocked(fd); slot >= 0) {
        --g_table[slot].holds;
        return false;
    }
    const auto removed = std::find_if(std::begin(g_removed), std::end(g_removed),
                                      [fd](const RemovedSocket& r) { return r.holds > 0 && r.fd == fd; });
    return --removed->holds == 0;
}

} // namespace

int AddFd(int fd, const char* ip, uint16_t port, uint32_t sessionId)
{
    const Locked lock(g_tableLock);
    Slot* const slot = std::find_if(std::begin(g_table), std::end(g_table),
                                    [](const Slot& candidate) { return candidate.entry.in_use == 0; });
    if (slot == std::end(g_table))
        return kTableFull;
    ConnectionEntry& entry = slot->entry;
    entry.in_use = 1;
    entry.fd = fd;
    CopyBounded(entry.ip, sizeof entry.ip, ip, strlen(ip));
    entry.port = port;
    entry.sessionid = sessionId;
    entry.last_active = GetUptime();
    return 0;
}

int RemoveFd(int fd)
{
    int slot;
    bool isHeld;
    {
        const Locked lock(g_tableLock);
        slot = FindSlotLocked(fd);
        if (slot < 0)
            return 0;
        g_table[slot].entry = kFreeSlot;
        isHeld = g_table[slot].holds > 0;
        if (isHeld) {
            // Under the lock, or the last holder could close the number and the next connection get it
            // before it is shut down.
            if (fd > 0)
                shutdown(fd, SHUT_RDWR);
            KeepRemovedLocked(fd, g_table[slot].holds);
            g_table[slot].holds = 0;
        }
    }
    if (!isHeld && fd > 0)
        close(fd);
    LogTrace("%s %d: Remove %d fd %d\n", __func__, __LINE__, slot, fd);
    return 0;
}

uint32_t GetSessionIdByFd(int fd)
{
    const Locked lock(g_tableLock);
    const ConnectionEntry* const entry = FindLocked(fd);
    return entry != nullptr ? entry->sessionid : 0;
}

void SetSessionIdByFd(int fd, uint32_t sessionId)
{
    const Locked lock(g_tableLock);
    if (ConnectionEntry* const entry = FindLocked(fd))
        entry->sessionid = sessionId;
}

int32_t GetFdType(int fd)
{
    const Locked lock(g_tableLock);
    const ConnectionEntry* const entry = FindLocked(fd);
    return entry != nullptr ? entry->fd_type : kFdNew;
}

void SetFdType(int fd, int32_t type)
{
    const Locked lock(g_tableLock);
    if (ConnectionEntry* const entry = FindLocked(fd))
        entry->fd_type = type;
}

int GetAlarmFlag(int fd)
{
    const Locked lock(g_tableLock);
    const ConnectionEntry* const entry = FindLocked(fd);
    return entry != nullptr ? static_cast<int>(entry->alarm_on) : -1;
}

void SetAlarmFlag(int fd, uint32_t flag)
{
    const Locked lock(g_tableLock);
    if (ConnectionEntry* const entry = FindLocked(fd))
        entry->alarm_on = flag;
}

uint32_t GetSendVideoFlag(int fd)
{
    const Locked lock(g_tableLock);
    const ConnectionEntry* const entry = FindLocked(fd);
    return entry != nullptr ? entry->send_video : 0;
}

void SetSendVideoFlag(int fd, uint32_t flag)
{
    uint32_t sessionId;
    {
        const Locked lock(g_tableLock);
        const ConnectionEntry* const asking = FindLocked(fd);
        sessionId = asking != nullptr ? asking->sessionid : 0;
        if (sessionId != 0)
            for (auto& [entry, holds] : g_table)
                if (entry.sessionid == sessionId &&
                    (entry.fd_type == kFdMainStream || entry.fd_type == kFdExtraStream))
                    entry.send_video = flag;
    }
    if (sessionId == 0)
        LogTrace("%s %d: Can't find sessionid\n", __func__, __LINE__);
}

uint32_t GetNextSeqnum(int fd)
{
    const Locked lock(g_tableLock);
    ConnectionEntry* const entry = FindLocked(fd);
    return entry != nullptr ? entry->seqnum++ : 0;
}

void RefreshLastActive(int fd)
{
    const Locked lock(g_tableLock);
    if (ConnectionEntry* const entry = FindLocked(fd))
        entry->last_active = GetUptime();
}

int GetConnectCount()
{
    const Locked lock(g_tableLock);
    int count = 0;
    for (const auto& [entry, holds] : g_table)
        count += entry.in_use != 0 && entry.fd >= 1 ? 1 : 0;
    return count;
}

int GetMaxFd()
{
    const Locked lock(g_tableLock);
    int highest = -1;
    for (const auto& [entry, holds] : g_table)
        if (entry.in_use != 0)
            highest = std::max(highest, entry.fd);
    return highest;
}

int IsStreamWanted(uint32_t streamIndex)
{
    if (streamIndex > 3)
        return -1;
    const Locked lock(g_tableLock);
    for (const auto& [entry, holds] : g_table)
        if (entry.send_video == 1 && entry.fd_type == static_cast<int32_t>(streamIndex) + 1)
            return 1;
    return 0;
}

bool ConnectionHold::Take(int slot)
{
    Release();
    const Locked lock(g_tableLock);
    if (g_table[slot].entry.in_use == 0 || g_allHolds == kMaxHolds)
        return false;
    ++g_allHolds;
    ++g_table[slot].holds;
    entry_ = g_table[slot].entry;
    return true;
}

void ConnectionHold::Release()
{
    if (entry_.in_use == 0)
        return;
    bool isLast;
    {
        const Locked lock(g_tableLock);
        isLast = LetGoLocked(entry_.fd);
    }
    if (isLast && entry_.fd > 0)
        close(entry_.fd); // nobody can find the number any more, so nobody can close it twice
    entry_ = {};
}

bool ConnectionHold::IsLive() const
{
    const Locked lock(g_tableLock);
    return entry_.in_use != 0 && FindSlotLocked(entry_.fd) >= 0;
}
