// Measures live view: the server and the floor program in turn, on the same synthetic streams, with
// the same watchers. README.md says what is measured and how.
#include <getopt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_hosts.h"
#include "bench/media_figures.h"
#include "bench/process_under_test.h"
#include "bench/watchers.h"
#include "common/clock.h"

namespace {

constexpr uint64_t kWarmUpFrames = 25;
constexpr int64_t kQuietNs = 10000000;              // before a frame is due, nothing moves
constexpr int64_t kLastFrameLimitNs = 3000000000LL; // for frames that are late
constexpr FramePattern kSecondStreamPattern{.bitsPerSecond = 256 * 1000};

struct Options {
    std::string server, floor, json;
    bool floorOnly = false;
    uint32_t repeats = 5;
    uint32_t seconds = 8;
    std::vector<uint32_t> watchers = {1, 4, 15};
    std::vector<uint32_t> mbit = {4, 20};
    NextRecord nextRecord = NextRecord::Blank;
};

// Waits until the condition holds; false when it does not before the limit.
template <typename Condition> bool WaitFor(int64_t limitNs, const Condition& condition)
{
    for (const int64_t end = MonotonicNs() + limitNs; !condition(); SleepMs(5))
        if (MonotonicNs() > end)
            return false;
    return true;
}

// The first frame number of a group of pictures that is due at least the warm-up from now.
uint64_t FirstMeasuredFrame(const BenchHosts& hosts, const FramePattern& pattern)
{
    uint64_t number = 0;
    const int64_t earliest = MonotonicNs() + hosts.DueNs(kWarmUpFrames) - hosts.DueNs(0);
    while (hosts.DueNs(number) < earliest)
        number += pattern.gopFrames;
    return number;
}

// Fills in what the watchers saw of the frames from `first` up to, not including, `end`.
void EvaluateFrames(const std::vector<MediaParser>& parsers, uint64_t first, uint64_t end,
                    MediaFigures& figures)
{
    std::vector<double> delaysMs;
    uint64_t damaged = 0;
    for (const MediaParser& parser : parsers) {
        damaged += parser.damaged;
        std::vector<bool> seen(end - first);
        for (const ReceivedFrame& frame : parser.frames) {
            if (frame.number < first || frame.number >= end || seen[frame.number - first])
                continue;
            seen[frame.number - first] = true;
            delaysMs.push_back(static_cast<double>(frame.delayNs) / 1e6);
        }
    }
    figures.damagedFrames = static_cast<double>(damaged);
    figures.lostFrames = static_cast<double>(parsers.size() * (end - first) - delaysMs.size());
    figures.delayP50Ms = Percentile(delaysMs, 0.50);
    figures.delayP99Ms = Percentile(delaysMs, 0.99);
}

// Measures a program that serves the watchers already.
MediaFigures MeasureRunning(const ProcessUnderTest& process, const BenchHosts& hosts, Watchers& watchers,
                            const FramePattern& pattern, uint32_t seconds)
{
    if (!WaitFor(kLastFrameLimitNs, [&] { return watchers.AllReached(0); }))
        throw std::runtime_error("no frame reaches every watcher");
    const uint64_t first = FirstMeasuredFrame(hosts, pattern);
    const uint64_t end = first + uint64_t{seconds} * pattern.framesPerSecond;

    SleepUntilNs(hosts.DueNs(first) - kQuietNs);
    const ProcessCounters before = ReadCounters(process.Pid());
    const uint64_t bytesBefore = watchers.DeliveredBytes();
    SleepUntilNs(hosts.DueNs(end) - kQuietNs);
    const ProcessCounters after = ReadCounters(process.Pid());
    const uint64_t bytesAfter = watchers.DeliveredBytes();
    const ProcessMemory memory = ReadMemory(process.Pid());
    (void)WaitFor(kLastFrameLimitNs, [&] { return watchers.AllReached(end - 1); }); // else counted as lost

    MediaFigures figures;
    EvaluateFrames(watchers.Stop(), first, end, figures);
    figures.deliveredMb = static_cast<double>(bytesAfter - bytesBefore) / 1e6;
    if (figures.deliveredMb > 0)
        figures.cpuSecondsPerGb = static_cast<double>(after.runNs - before.runNs) / 1e6 / figures.deliveredMb;
    figures.wakeUpsPerSecond = static_cast<double>(after.wakeUps - before.wakeUps) / seconds;
    figures.pssMb = static_cast<double>(memory.pssBytes) / 1e6;
    figures.rssMb = static_cast<double>(memory.rssBytes) / 1e6;
    return figures;
}

MediaFigures Measure(const std::string& program, uint32_t mbit, uint32_t watcherCount, const Options& options)
{
    const FramePattern pattern{.bitsPerSecond = mbit * 1000000};
    const BenchHosts hosts(pattern, kSecondStreamPattern, options.nextRecord);
    const ProcessUnderTest process(program);
    try {
        Watchers watchers(pattern, kServerPort, watcherCount);
        return MeasureRunning(process, hosts, watchers, pattern, options.seconds);
    } catch (const std::exception&) {
        process.CheckAlive(); // the better reason, when it has ended
        throw;
    }
}

// All repeats of one case, the programs in turn, each repeat beginning with the other one.
MediaCase MeasureCase(uint32_t mbit, uint32_t watchers, const Options& options)
{
    MediaCase measured{.mbitPerSecond = mbit, .watchers = watchers, .server = {}, .floor = {}};
    for (uint32_t repeat = 0; repeat < options.repeats; ++repeat) {
        fprintf(stderr, "%u Mbit/s, watchers: %u, repeat %u of %u\n", mbit, watchers, repeat + 1,
                options.repeats);
        for (uint32_t turn = 0; turn < 2; ++turn) {
            if ((turn + repeat) % 2 == 1)
                measured.floor.push_back(Measure(options.floor, mbit, watchers, options));
            else if (!options.floorOnly)
                measured.server.push_back(Measure(options.server, mbit, watchers, options));
        }
    }
    return measured;
}

[[noreturn]] void Usage(int status)
{
    fprintf(status == 0 ? stdout : stderr,
            "Usage: velmora-media-bench [OPTIONS]     (through tests/isolated.sh)\n"
            "  --server PATH      program under test (Velmora_server beside this program)\n"
            "  --floor PATH       floor program (velmora-media-floor beside this program)\n"
            "  --floor-only       measure the floor alone\n"
            "  --repeats N        repeats of each case (5)\n"
            "  --seconds N        measured seconds of each repeat (8)\n"
            "  --watchers N       only this number of watchers, 1 to 15 (1, 4 and 15)\n"
            "  --mbit N           only this rate of the main stream, 1 to 25 Mbit/s (4 and 20)\n"
            "  --next blank|announced   what lies where the next record will be (blank)\n"
            "  --json FILE        also write every figure to FILE\n");
    exit(status);
}

uint32_t Number(const char* text, uint32_t limit)
{
    char* end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value < 1 || value > limit) {
        fprintf(stderr, "velmora-media-bench: '%s' is not a number from 1 to %u\n", text, limit);
        exit(2);
    }
    return static_cast<uint32_t>(value);
}

NextRecord ParseNextRecord(const std::string& text)
{
    if (text != "blank" && text != "announced")
        Usage(2);
    return text == "blank" ? NextRecord::Blank : NextRecord::Announced;
}

Options ParseOptions(int argc, char** argv)
{
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    Options options;
    options.server = here / "Velmora_server";
    options.floor = here / "velmora-media-floor";
    constexpr option kLong[] = {{"server", required_argument, nullptr, 's'},
                                {"floor", required_argument, nullptr, 'f'},
                                {"floor-only", no_argument, nullptr, 'o'},
                                {"repeats", required_argument, nullptr, 'r'},
                                {"seconds", required_argument, nullptr, 't'},
                                {"watchers", required_argument, nullptr, 'w'},
                                {"mbit", required_argument, nullptr, 'm'},
                                {"next", required_argument, nullptr, 'n'},
                                {"json", required_argument, nullptr, 'j'},
                                {"help", no_argument, nullptr, 'h'},
                                {nullptr, 0, nullptr, 0}};
    for (int name; (name = getopt_long(argc, argv, "h", kLong, nullptr)) != -1;) {
        switch (name) {
        case 's':
            options.server = optarg;
            break;
        case 'f':
            options.floor = optarg;
            break;
        case 'o':
            options.floorOnly = true;
            break;
        case 'r':
            options.repeats = Number(optarg, 1000);
            break;
        case 't':
            options.seconds = Number(optarg, 3600);
            break;
        case 'w':
            options.watchers = {Number(optarg, 15)};
            break;
        case 'm':
            options.mbit = {Number(optarg, 25)};
            break;
        case 'n':
            options.nextRecord = ParseNextRecord(optarg);
            break;
        case 'j':
            options.json = optarg;
            break;
        case 'h':
            Usage(0);
        default:
            Usage(2);
        }
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = ParseOptions(argc, argv);
    std::vector<MediaCase> cases;
    try {
        for (const uint32_t mbit : options.mbit)
            for (const uint32_t watchers : options.watchers)
                cases.push_back(MeasureCase(mbit, watchers, options));
    } catch (const std::exception& failure) {
        fprintf(stderr, "velmora-media-bench: %s\n", failure.what());
        return 1;
    }
    PrintCases(cases);
    if (!options.json.empty() && !WriteJson(options.json, cases)) {
        perror("velmora-media-bench: writing the figures");
        return 1;
    }
    return 0;
}
