#include "common/sysv_ipc.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <utility>

int IpcShareMemInit(key_t key, size_t bytes, int mode)
{
    const int id = shmget(key, bytes, IPC_CREAT | mode);
    return id >= 0 ? id : shmget(key, 0, 0);
}

size_t IpcShareMemBytes(int id)
{
    shmid_ds status{};
    return shmctl(id, IPC_STAT, &status) == 0 ? status.shm_segsz : 0;
}

int IpcShareMemPresent(key_t key, int id, size_t leastBytes)
{
    const int present = shmget(key, 0, 0);
    return present >= 0 && present != id && IpcShareMemBytes(present) >= leastBytes ? present : id;
}

int IpcMsgInit(key_t key, int mode)
{
    const int id = msgget(key, 0);
    return id >= 0 ? id : msgget(key, IPC_CREAT | mode);
}

ShmAttachment::ShmAttachment(int id)
{
    void* const address = shmat(id, nullptr, 0);
    if (address != reinterpret_cast<void*>(-1))
        address_ = static_cast<uint8_t*>(address);
}

ShmAttachment::ShmAttachment(ShmAttachment&& other) noexcept
    : address_(std::exchange(other.address_, nullptr))
{
}

ShmAttachment& ShmAttachment::operator=(ShmAttachment&& other) noexcept
{
    if (this != &other) {
        reset();
        address_ = std::exchange(other.address_, nullptr);
    }
    return *this;
}

void ShmAttachment::reset()
{
    if (address_ != nullptr)
        shmdt(address_);
    address_ = nullptr;
}
