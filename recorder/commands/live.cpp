#include <CLI/Option.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "recorder/commands/commands.h"
#include "recorder/recording.h"
#include "recorder/report.h"
#include "recorder/stop_signal.h"

namespace {

struct LiveOptions {
    std::vector<std::string> streams;
    std::vector<std::string> outputs;
    double durationSeconds = 0; // 0: until stopped
    bool reconnect = false;
};

// "both" stands for main and extra.
std::vector<RecordingStream> ChooseStreams(const LiveOptions& options)
{
    std::vector<RecordingStream> chosen;
    for (const std::string& name : options.streams) {
        if (name == "both")
            chosen.insert(chosen.end(), {{&FindStream("main"), ""}, {&FindStream("extra"), ""}});
        else
            chosen.push_back({&FindStream(name), ""});
    }
    if (chosen.empty())
        chosen.push_back({&FindStream("main"), ""});
    if (!options.outputs.empty() && options.outputs.size() != chosen.size())
        throw Failure(kExitUsage, "give one -o for each stream, or none");
    const std::set<std::string> distinct(options.outputs.begin(), options.outputs.end());
    if (distinct.size() != options.outputs.size())
        throw Failure(kExitUsage, "give each stream a file of its own");
    for (size_t i = 0; i < options.outputs.size(); i++)
        chosen[i].output = options.outputs[i];
    return chosen;
}

bool WritesToStandardOutput(const RecordingOptions& options)
{
    return std::ranges::any_of(options.streams, [](const auto& stream) { return stream.output == "-"; });
}

// A longer line would wrap, and the return to its start would miss.
std::string CutToTerminal(std::string line)
{
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 && line.size() >= size.ws_col)
        line.resize(size.ws_col - 1U);
    return line;
}

bool HasPicture(const RecordingSummary& summary)
{
    return std::ranges::any_of(summary.streams, [](const auto& stream) { return stream.stats.frames() > 0; });
}

RecordingSummary RecordWithProgress(const RecordingOptions& options)
{
    const bool onTerminal = isatty(STDERR_FILENO) == 1;
    bool shown = false;
    RecordingSummary summary = Record(options, [&](const LiveView& view) {
        if (!onTerminal)
            return;
        // Back to the line's start, and the rest of a longer line before this one is cleared.
        fprintf(stderr, "\r%s\033[K", CutToTerminal(ProgressLine(options, view, Clock::now())).c_str());
        shown = true;
    });
    if (shown)
        fputc('\n', stderr);
    return summary;
}

int RunLive(const LiveOptions& live, const CommonOptions& common)
{
    RecordingOptions options;
    options.address = common.address();
    options.timeout = common.timeout();
    options.streams = ChooseStreams(live);
    if (live.durationSeconds > 0)
        options.duration = milliseconds(static_cast<int64_t>(live.durationSeconds * 1000));
    options.reconnect = live.reconnect;
    options.openStopFd = CatchStopSignals;
    const RecordingSummary summary = RecordWithProgress(options);
    FILE* out = WritesToStandardOutput(options) ? stderr : stdout;
    if (common.json)
        fputs(SummaryJson(summary).c_str(), out);
    else if (summary.code == kExitOk || HasPicture(summary))
        fputs(SummaryText(summary).c_str(), out);
    if (summary.code != kExitOk)
        throw Failure(summary.code, summary.failure);
    return kExitOk;
}

} // namespace

CommandRun AddLive(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<LiveOptions>();
    app.add_option("--stream", options->streams,
                   "main (default), extra, extra1, extra2, or both for main and extra; may be repeated")
        ->allow_extra_args(false); // one name each: what follows may be the host
    app.add_option("-o,--output", options->outputs,
                   "File for each stream in turn: .mkv, .mp4, else bare video; - for standard output")
        ->allow_extra_args(false);
    app.add_option("--duration", options->durationSeconds,
                   "Seconds to record, from the first picture; until stopped when left out")
        ->check(SecondsBetween(0.001, 1e8));
    app.add_flag("--reconnect", options->reconnect,
                 "When the camera goes away after the first picture, wait for it and go on");
    return [options, &common] { return RunLive(*options, common); };
}
