// The keeper's watch over Velmora_server: looks at its slot of the keeper block once a second and logs
// when the server comes alive and when it stops writing.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>

#include "hosts/ipc_objects.h"

// The judgement alone: fed with what the slot holds and a clock that nobody sets.
class SlotWatch {
  public:
    // The server writes every two seconds; after this long without a change it counts as gone.
    static constexpr int64_t kStaleAfterMs = 7000;

    // Returns true or false when the server turned alive or stale, nothing while all is as before. What
    // the first look finds may be an earlier life's and proves nothing.
    std::optional<bool> Look(uint32_t slotTime, int64_t nowMs);

  private:
    std::optional<uint32_t> lastTime_;
    int64_t changedMs_ = 0;
    bool alive_ = false;
};

class KeeperWatch {
  public:
    // Adopts or makes the block (its slots belong to their processes and are left alone); throws
    // std::runtime_error when it cannot.
    KeeperWatch();
    ~KeeperWatch() { Stop(); }
    void Start();
    void Stop();
    void Release(bool always) { block_.Release(always); }

  private:
    void Run();

    HostSegment block_;
    std::mutex mutex_;
    std::condition_variable stop_;
    bool stopping_ = false;
    std::thread thread_;
};

void PurgeKeeperBlock();
