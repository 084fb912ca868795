// ThreadSanitizer does not know System V segments: when a thread attaches one at an address that another
// thread has used and given back, it takes their accesses for a race. In its builds this attaches each
// segment over a fresh mapping, which it does know.
#ifdef __SANITIZE_THREAD__

#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" void* shmat(int id, const void* address, int flags)
{
    shmid_ds status;
    if (address == nullptr && shmctl(id, IPC_STAT, &status) == 0 && status.shm_segsz > 0) {
        address = mmap(nullptr, status.shm_segsz, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        flags |= SHM_REMAP;
    }
    return reinterpret_cast<void*>(syscall(SYS_shmat, id, address, flags));
}

#endif
