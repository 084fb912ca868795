#include "hosts/ipc_objects.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/log.h"

namespace {

constexpr key_t kClaimKey = 0x61766C9A;
constexpr int kClaimMode = 0666;
constexpr size_t kStaleMessageBytes = 256; // longer ones are cut when they are dropped

size_t AttachCount(int id)
{
    shmid_ds status{};
    return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_nattch : 0;
}

[[noreturn]] void Fail(const char* name, const std::string& problem)
{
    throw std::runtime_error(std::string(name) + ": " + problem);
}

int OpenSegment(const char* name, key_t key, size_t bytes, int mode)
{
    int id = IpcShareMemInit(key, bytes, mode);
    if (id < 0)
        Fail(name, std::string("no shared memory: ") + strerror(errno));
    if (const size_t present = IpcShareMemBytes(id); present < bytes) {
        const std::string sizes = std::to_string(present) + " bytes instead of " + std::to_string(bytes);
        if (AttachCount(id) > 0)
            Fail(name, "the shared memory has " + sizes + " and another process is using it");
        LogWarn("%s: replacing shared memory of %s\n", name, sizes.c_str());
        shmctl(id, IPC_RMID, nullptr);
        id = IpcShareMemInit(key, bytes, mode);
        if (id < 0)
            Fail(name, std::string("no shared memory: ") + strerror(errno));
    }
    return id;
}

} // namespace

HostSegment::HostSegment(const char* name, key_t key, size_t bytes, int mode, Contents contents)
    : id_(OpenSegment(name, key, bytes, mode)), attachment_(id_)
{
    if (!attachment_)
        Fail(name, std::string("cannot attach the shared memory: ") + strerror(errno));
    if (contents == Contents::kClear)
        memset(attachment_.get(), 0, bytes);
}

bool HostSegment::isAttachedByOthers() const
{
    return AttachCount(id_) > (attachment_ ? 1 : 0);
}

void HostSegment::Release(bool always)
{
    attachment_.reset();
    if (id_ >= 0 && (always || AttachCount(id_) == 0))
        shmctl(id_, IPC_RMID, nullptr);
    id_ = -1;
}

void AdoptQueue(const char* name, key_t key, int mode, long requestType)
{
    const int id = IpcMsgInit(key, mode);
    if (id < 0)
        Fail(name, std::string("no message queue: ") + strerror(errno));
    struct {
        long type;
        char text[kStaleMessageBytes];
    } stale;
    size_t dropped = 0;
    while (msgrcv(id, &stale, sizeof stale.text, requestType, IPC_NOWAIT | MSG_NOERROR | MSG_EXCEPT) >= 0)
        ++dropped;
    if (dropped > 0)
        LogInfo("%s: dropped %zu stale messages\n", name, dropped);
}

size_t QueuedMessages(key_t key)
{
    msqid_ds status{};
    const int id = msgget(key, 0);
    return id >= 0 && msgctl(id, IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
}

void ClaimObjects(Hosts hosts)
{
    // Semaphores that are 0 while nobody has the objects. The system takes our 1 back when we end.
    std::vector<sembuf> claim;
    for (uint16_t host = 0; host < kHostCount; ++host)
        if (hosts[host]) {
            claim.push_back({.sem_num = host, .sem_op = 0, .sem_flg = IPC_NOWAIT});
            claim.push_back({.sem_num = host, .sem_op = 1, .sem_flg = SEM_UNDO});
        }
    int id = -1;
    do {
        id = semget(kClaimKey, kHostCount, IPC_CREAT | kClaimMode);
        if (id >= 0 && semop(id, claim.data(), claim.size()) == 0)
            return;
    } while (id >= 0 && (errno == EIDRM || errno == EINTR)); // the last owner has just ended
    if (errno == EAGAIN)
        throw std::runtime_error("another bench camera is running");
    throw std::runtime_error(std::string("cannot claim the camera's objects: ") + strerror(errno));
}

void ReleaseClaim(Hosts hosts)
{
    const int id = semget(kClaimKey, 0, 0);
    if (id < 0)
        return;
    int left = 0;
    for (uint16_t host = 0; host < kHostCount; ++host) {
        sembuf giveBack{.sem_num = host, .sem_op = -1, .sem_flg = SEM_UNDO | IPC_NOWAIT};
        if (hosts[host])
            (void)semop(id, &giveBack, 1); // the claim is ours
        left += semctl(id, host, GETVAL);
    }
    if (left == 0)
        semctl(id, 0, IPC_RMID);
}

void RemoveSegment(key_t key)
{
    if (const int id = shmget(key, 0, 0); id >= 0)
        shmctl(id, IPC_RMID, nullptr);
}

void RemoveQueue(key_t key)
{
    if (const int id = msgget(key, 0); id >= 0)
        msgctl(id, IPC_RMID, nullptr);
}
