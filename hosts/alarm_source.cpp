#include "hosts/alarm_source.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "camera/alarm_block.h"
#include "common/log.h"

namespace {

using std::chrono::milliseconds;

constexpr size_t kMotionSource = 2;
constexpr double kMostSeconds = 86400;

HostSegment MakeAlarmBlock()
{
    HostSegment segment("alarm source", kAlarmKey, kAlarmBlockBytes, kAlarmBlockMode, Contents::kClear);
    AlarmRecord record{};
    for (AlarmEntry& entry : record.source)
        entry.ulTime = static_cast<uint32_t>(time(nullptr));
    memcpy(segment.get(), &record, sizeof record);
    return segment;
}

} // namespace

std::optional<MotionSchedule> MotionScheduleOfText(const std::string& text)
{
    double every = 0;
    double duration = 0;
    int end = -1;
    (void)sscanf(text.c_str(), "every=%lf,for=%lf%n", &every, &duration, &end);
    const auto toMs = [](double seconds) { return milliseconds(static_cast<int64_t>(seconds * 1000)); };
    const bool usable = every > 0 && every <= kMostSeconds && duration > 0 && duration < every;
    if (end < 0 || static_cast<size_t>(end) != text.size() || !usable)
        return std::nullopt;
    const MotionSchedule schedule{toMs(every), toMs(duration)};
    if (schedule.duration == milliseconds::zero() || schedule.duration == schedule.every)
        return std::nullopt;
    return schedule;
}

MotionChange NextMotionChange(const MotionSchedule& schedule, milliseconds elapsed)
{
    const milliseconds began = elapsed / schedule.every * schedule.every;
    const milliseconds ends = began + schedule.duration;
    if (began > milliseconds::zero() && elapsed < ends)
        return {ends, false};
    return {began + schedule.every, true};
}

AlarmSource::AlarmSource(std::optional<MotionSchedule> schedule)
    : block_(MakeAlarmBlock()), schedule_(schedule)
{
}

void AlarmSource::Start()
{
    if (schedule_)
        thread_ = std::thread([this] { Run(); });
}

void AlarmSource::Stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable())
        thread_.join();
}

void AlarmSource::Run()
{
    pthread_setname_np(pthread_self(), "AlarmSource");
    const auto start = std::chrono::steady_clock::now();
    milliseconds elapsed{0};
    std::unique_lock lock(mutex_);
    for (;;) {
        const MotionChange next = NextMotionChange(*schedule_, elapsed);
        if (changed_.wait_until(lock, start + next.at, [this] { return stopping_; }))
            return;
        elapsed = next.at;
        SetMotion(next.motion);
    }
}

void AlarmSource::ToggleMotion()
{
    const std::lock_guard lock(mutex_);
    SetMotion(!motion_);
}

// Readers that poll see the state with its time, or the old state with it.
void AlarmSource::SetMotion(bool motion)
{
    motion_ = motion;
    auto* const entry = reinterpret_cast<AlarmEntry*>(block_.get()) + kMotionSource;
    __atomic_store_n(&entry->ulTime, static_cast<uint32_t>(time(nullptr)), __ATOMIC_RELAXED);
    __atomic_store_n(&entry->ulStatus, motion ? 1U : 0U, __ATOMIC_RELEASE);
    LogInfo("alarm source: motion %s\n", motion ? "begins" : "ends");
}

void PurgeAlarmBlock()
{
    RemoveSegment(kAlarmKey);
}
