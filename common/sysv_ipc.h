// Small helpers for System V shared memory and message queues, the meeting places with the sibling
// processes.
//
// Thread-safe: no state of its own. Nothing here logs; callers know what was attempted.
#pragma once

#include <sys/ipc.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

// Segment under the key: created with this size and mode, or the existing one. Returns its id, or -1.
[[nodiscard]] int IpcShareMemInit(key_t key, size_t bytes, int mode);

// Bytes of the segment, 0 when the id names none (any more).
[[nodiscard]] size_t IpcShareMemBytes(int id);

// The segment that lies under the key now, when it is another one than `id` and has at least that many bytes;
// else `id`. A segment that was removed and made anew lives on as long as anybody holds it.
[[nodiscard]] int IpcShareMemPresent(key_t key, int id, size_t leastBytes);

// Queue under the key: the existing one, or created with this mode. Returns its id, or -1.
[[nodiscard]] int IpcMsgInit(key_t key, int mode);

// An attached segment, detached at the end of its scope.
class ShmAttachment {
  public:
    ShmAttachment() = default;
    // Attaches read-write at an address the system chooses; empty on failure (errno says why).
    explicit ShmAttachment(int id);
    ShmAttachment(ShmAttachment&& other) noexcept;
    ShmAttachment& operator=(ShmAttachment&& other) noexcept;
    ShmAttachment(const ShmAttachment&) = delete;
    ShmAttachment& operator=(const ShmAttachment&) = delete;
    ~ShmAttachment() { reset(); }

    explicit operator bool() const { return address_ != nullptr; }
    [[nodiscard]] uint8_t* get() const { return address_; }
    void reset();

  private:
    uint8_t* address_ = nullptr;
};

// A queue message of `Words` 32-bit words. Word n of a message's description is word[n - 1]: the
// words follow the native type, which is as wide as a long of the machine.
template <size_t Words> struct QueueMessage {
    long type;
    uint32_t word[Words];

    static constexpr size_t kTextBytes = Words * sizeof(uint32_t);
};
