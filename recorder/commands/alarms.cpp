#include <CLI/Option.hpp>

#include <cstdio>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"
#include "recorder/json.h"
#include "recorder/session.h"
#include "recorder/stop_signal.h"

namespace {

struct AlarmOptions {
    uint64_t count = 0; // 0: until stopped
    double durationSeconds = 0;
};

// A member as text, "-" when the camera leaves it out.
std::string TextOf(const cJSON* info, const char* key)
{
    const char* const text = GetJsonString(info, key);
    if (text == nullptr)
        return "-";
    std::string line(text);
    while (!line.empty() && (line.back() == '\n' || line.back() == ' '))
        line.pop_back();
    return line;
}

void PrintAlarm(std::string_view body, bool asJson)
{
    const JsonPtr json(cJSON_ParseWithLength(body.data(), body.size()));
    const cJSON* const info = GetJsonMember(json.get(), "AlarmInfo");
    if (asJson && json != nullptr)
        puts(PrintJson(json.get(), false).c_str());
    else
        printf("%s  %s %s  channel %d\n", TextOf(info, "StartTime").c_str(), TextOf(info, "Event").c_str(),
               TextOf(info, "Status").c_str(), GetJsonNumber(info, "Channel"));
    fflush(stdout); // a line for each event, also in a pipe
}

int RunAlarms(const AlarmOptions& options, const CommonOptions& common)
{
    Session session(common.address(), common.timeout());
    session.Login();
    session.setAlarmSink([&](std::string_view body) {
        if (options.count == 0 || session.alarms() <= options.count)
            PrintAlarm(body, common.json);
    });
    session.RequestOk(kAlarmSubscribeReq, R"({"Name":""})");
    const int stop = CatchStopSignals();
    const TimePoint end =
        options.durationSeconds > 0
            ? Clock::now() + milliseconds(static_cast<int64_t>(options.durationSeconds * 1000))
            : TimePoint::max();
    constexpr milliseconds kStep{100}; // how late the last of --count alarms may be noticed
    while (Clock::now() < end && (options.count == 0 || session.alarms() < options.count))
        if (!session.StayUntil(Clock::now() + kStep, stop))
            return kExitOk;
    if (options.count != 0 && session.alarms() < options.count)
        throw Failure(kExitTimedOut, session.command().name() +
                                         ": timed out: " + std::to_string(session.alarms()) + " of " +
                                         std::to_string(options.count) + " alarms came");
    return kExitOk;
}

} // namespace

CommandRun AddAlarms(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<AlarmOptions>();
    app.add_option("--count", options->count, "Ends after so many alarms; until stopped when left out");
    app.add_option("--duration", options->durationSeconds, "Ends after so many seconds")
        ->check(SecondsBetween(0.001, 1e8));
    return [options, &common] { return RunAlarms(*options, common); };
}
