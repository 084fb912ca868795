// The alarm source: owns the alarm block, in which every source starts without an alarm, and raises motion
// there, as source 2: by a schedule, by hand, or both.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "hosts/ipc_objects.h"

// Motion begins each time that `every` has passed and lasts `duration`.
struct MotionSchedule {
    std::chrono::milliseconds every;
    std::chrono::milliseconds duration; // shorter than `every`
};

// "every=10,for=3", in seconds; fractions are allowed. Nothing for other texts.
std::optional<MotionSchedule> MotionScheduleOfText(const std::string& text);

// The schedule's next change after so much time since its start, and what it changes to.
struct MotionChange {
    std::chrono::milliseconds at;
    bool motion;
};
MotionChange NextMotionChange(const MotionSchedule& schedule, std::chrono::milliseconds elapsed);

class AlarmSource {
  public:
    // Adopts or makes the block; throws std::runtime_error when it cannot.
    explicit AlarmSource(std::optional<MotionSchedule> schedule);
    ~AlarmSource() { Stop(); }
    AlarmSource(const AlarmSource&) = delete;
    AlarmSource& operator=(const AlarmSource&) = delete;

    void Start();
    // Leaves the block as it is.
    void Stop();
    // Turns motion on when it is off, and off when it is on; the schedule goes on and sets it again at its
    // next change. Any thread.
    void ToggleMotion();
    void Release(bool always) { block_.Release(always); }

  private:
    void Run();
    void SetMotion(bool motion);

    HostSegment block_;
    const std::optional<MotionSchedule> schedule_;
    std::mutex mutex_; // guards the block's writing and all below
    std::condition_variable changed_;
    bool stopping_ = false;
    bool motion_ = false;
    std::thread thread_; // only with a schedule
};

void PurgeAlarmBlock();
