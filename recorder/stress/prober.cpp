#include "recorder/stress/prober.h"

#include <algorithm>
#include <cstdio>

#include "recorder/failure.h"

namespace {

constexpr milliseconds kPeriod{500};

int64_t Ms(Clock::duration time)
{
    return std::chrono::ceil<milliseconds>(time).count();
}

} // namespace

Prober::Prober(const HostPort& address, milliseconds timeout, bool alarms)
    : session_(address, timeout), subscribed_(alarms)
{
    session_.Login();
    session_.setAlarmSink([this](std::string_view) { NoteAlarm(); });
    if (alarms)
        session_.RequestOk(kAlarmSubscribeReq, R"({"Name":""})");
    thread_ = std::jthread([this](const std::stop_token& stop) { Probe(stop); });
}

void Prober::NoteAlarm()
{
    const TimePoint now = Clock::now();
    if (lastAlarm_ != TimePoint{})
        worstAlarmGap_ = std::max(worstAlarmGap_, now - lastAlarm_);
    lastAlarm_ = now;
}

void Prober::Probe(const std::stop_token& stop)
{
    try {
        while (!stop.stop_requested()) {
            const TimePoint asked = Clock::now();
            session_.RequestOk(kKeepaliveReq,
                               R"({"Name":"KeepAlive","SessionID":")" + session_.idText() + "\"}");
            worstAnswer_ = std::max(worstAnswer_, Clock::now() - asked);
            answers_++;
            session_.StayUntil(asked + kPeriod);
        }
    } catch (const Failure& failure) {
        isLost_ = true;
        fprintf(stderr, "velmora: the keepalives: %s\n", failure.what());
    }
}

void Prober::AddFigures(Figures* figures)
{
    thread_.request_stop();
    thread_.join();
    figures->emplace_back("answers", answers_);
    figures->emplace_back("answer_ms", Ms(worstAnswer_));
    figures->emplace_back("unanswered", isLost_ ? 1 : 0);
    if (!subscribed_)
        return;
    figures->emplace_back("alarms", static_cast<int64_t>(session_.alarms()));
    figures->emplace_back("alarm_gap_ms", Ms(worstAlarmGap_));
}
