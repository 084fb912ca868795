// A recorder that sends a keepalive twice a second while a stress scene lasts, and measures how long the
// answers take and, when asked to, how regularly alarms come. It has a thread of its own.
#pragma once

#include <string>
#include <thread>

#include "recorder/session.h"
#include "recorder/stress/figures.h"

class Prober {
  public:
    // Logs in, and subscribes to alarms if `alarms`; `timeout` is the longest wait for an answer.
    Prober(const HostPort& address, milliseconds timeout, bool alarms);
    // Ends the probes and tells what they met.
    void AddFigures(Figures* figures);

  private:
    void Probe(const std::stop_token& stop);
    void NoteAlarm();

    Session session_; // and the rest: the thread's, until it has ended
    bool subscribed_;
    bool isLost_ = false;
    int64_t answers_ = 0;
    Clock::duration worstAnswer_{};
    Clock::duration worstAlarmGap_{};
    TimePoint lastAlarm_{};
    std::jthread thread_;
};
