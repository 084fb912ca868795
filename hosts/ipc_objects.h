// The System V objects that the bench camera owns: made when missing, adopted when they exist.
//
// A camera process may have come first and made them, or an earlier bench camera may have left them.
// Failures throw std::runtime_error whose text is one line for the user. Not thread-safe: main thread.
#pragma once

#include <sys/types.h>

#include <bitset>
#include <cstddef>
#include <cstdint>

#include "common/sysv_ipc.h"

enum class Contents { kClear, kKeep };

class HostSegment {
  public:
    // Segment of at least `bytes` under the key. One that is too small is replaced when nobody is
    // attached to it; throws when somebody is.
    HostSegment(const char* name, key_t key, size_t bytes, int mode, Contents contents);

    [[nodiscard]] uint8_t* get() const { return attachment_.get(); }
    [[nodiscard]] bool isAttachedByOthers() const;
    // Detaches, and removes the segment when nobody else is attached or `always`.
    void Release(bool always);

  private:
    int id_ = -1;
    ShmAttachment attachment_;
};

// Queue under the key, made when missing. Messages of other types than `requestType` are answers that
// nobody fetched: they are dropped. Requests stay: their senders wait, and get their answer now.
void AdoptQueue(const char* name, key_t key, int mode, long requestType);

// Requests that wait in the queue; 0 when there is no queue.
size_t QueuedMessages(key_t key);

// The hosts that a bench camera can be. The keeper only watches, so there may be several.
enum Host : uint8_t { kParameters, kMedia, kAlarm, kHostCount };
using Hosts = std::bitset<kHostCount>;

// Only one bench camera can own a host's objects: two would write into the same rings. Claims them for as
// long as this process lives, however it ends; throws when another one has one of them.
void ClaimObjects(Hosts hosts);
// Gives them back and removes the claims when nobody else has one.
void ReleaseClaim(Hosts hosts);

// Removes the segment or queue under the key, whoever uses it.
void RemoveSegment(key_t key);
void RemoveQueue(key_t key);
