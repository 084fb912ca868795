#include "hosts/keeper_watch.h"

#include <pthread.h>

#include <chrono>

#include "common/clock.h"
#include "common/keeper_block.h"
#include "common/little_endian.h"
#include "common/log.h"

std::optional<bool> SlotWatch::Look(uint32_t slotTime, int64_t nowMs)
{
    const bool changed = lastTime_ && *lastTime_ != slotTime;
    if (changed || !lastTime_)
        changedMs_ = nowMs;
    lastTime_ = slotTime;
    const bool alive = changed || (alive_ && nowMs - changedMs_ < kStaleAfterMs);
    if (alive == alive_)
        return std::nullopt;
    alive_ = alive;
    return alive;
}

KeeperWatch::KeeperWatch()
    : block_("keeper watch", kKeeperKey, kKeeperBlockBytes, kKeeperBlockMode, Contents::kKeep)
{
}

void KeeperWatch::Start()
{
    thread_ = std::thread([this] { Run(); });
}

void KeeperWatch::Stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    stop_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void KeeperWatch::Run()
{
    pthread_setname_np(pthread_self(), "KeeperWatch");
    const uint8_t* const slot = block_.get() + kKeeperSlotVelmora * sizeof(KeeperSlot);
    SlotWatch watch;
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (const auto alive = watch.Look(LoadLe<uint32_t>(slot), MonotonicMs()))
            LogInfo("keeper watch: Velmora_server is %s\n", *alive ? "alive" : "stale");
        stop_.wait_for(lock, std::chrono::seconds(1), [this] { return stopping_; });
    }
}

void PurgeKeeperBlock()
{
    RemoveSegment(kKeeperKey);
}
