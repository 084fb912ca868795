// Counts what a delivered frame costs the server: wake-ups, system calls, copied bytes, allocations. Unlike
// times, these do not depend on the machine's speed, so they are held against bounds wherever tests run.
#include <sys/mman.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_hosts.h"
#include "bench/call_counts.h"
#include "bench/process_under_test.h"
#include "bench/watchers.h"
#include "common/clock.h"

namespace {

constexpr FramePattern kMainPattern{.bitsPerSecond = 4000000};
constexpr FramePattern kSecondPattern{.bitsPerSecond = 256000};
constexpr int64_t kLimitNs = 30000000000LL;

// The thread that answers requests; only its allocations are a matter of the requests, not of the frames.
constexpr char kRequestThread[] = "SendRecvSocketT";

constexpr int kWrongCommandLine = 2;

struct Counts {
    uint64_t calls[kCallKindCount] = {};
    uint64_t copiedBytes = 0;
    uint64_t wakeUps = 0;
    uint64_t runNs = 0; // processor time
};

struct NamedCounts {
    std::string name;
    Counts counts;
};

using Snapshot = std::map<int, NamedCounts>; // by thread id

struct Options {
    std::string server, counter, bounds;
    std::vector<uint32_t> watchers = {1, 4};
    uint32_t seconds = 6;
};

// One line of the bounds' file.
struct Bound {
    uint32_t watchers;
    std::string figure;
    double most;
};

struct Figure {
    const char* name;
    double value;
};

// What was counted in some time, and what all watchers together received in it. A machine that stalls the
// encoder host's stand-in makes the server lose its place in the ring and go on with the next key frame; what
// is counted still belongs to what arrives.
struct Measured {
    std::vector<NamedCounts> threads;
    double seconds = 0;
    double deliveredFrames = 0;
    double deliveredBytes = 0;
};

// What the call counter fills, in memory that the counted program inherits.
class CountingMemory {
  public:
    CountingMemory() : fd_(memfd_create("call counts", 0))
    {
        if (ftruncate(fd_.get(), sizeof(CallCounts)) != 0)
            throw std::runtime_error("no memory to count in");
        memory_ = mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
        if (memory_ == MAP_FAILED)
            throw std::runtime_error("no memory to count in");
    }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;
    ~CountingMemory() { munmap(memory_, sizeof(CallCounts)); }

    [[nodiscard]] const CallCounts& Read() const { return *static_cast<const CallCounts*>(memory_); }

    [[nodiscard]] ProcessUnderTest Start(const Options& options) const
    {
        setenv("LD_PRELOAD", options.counter.c_str(), 1);
        setenv(kCallCountsVariable, std::to_string(fd_.get()).c_str(), 1);
        struct Restore {
            ~Restore()
            {
                unsetenv("LD_PRELOAD");
                unsetenv(kCallCountsVariable);
            }
        } const restore;
        return ProcessUnderTest(options.server);
    }

  private:
    UniqueFd fd_;
    void* memory_;
};

std::string ReadText(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

Snapshot Take(pid_t pid, const CallCounts& counted)
{
    Snapshot snapshot;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        NamedCounts& thread = snapshot[static_cast<int>(strtol(task.path().filename().c_str(), nullptr, 10))];
        thread.name = ReadText(task.path() / "comm");
        thread.name.pop_back(); // the line's end
        thread.counts.runNs = strtoull(ReadText(task.path() / "schedstat").c_str(), nullptr, 10);
        thread.counts.wakeUps = FieldOf(ReadText(task.path() / "status"), "voluntary_ctxt_switches");
    }
    for (const ThreadCalls& row : counted.thread) {
        const auto thread = snapshot.find(row.tid);
        if (thread == snapshot.end())
            continue;
        Counts& counts = thread->second.counts;
        for (size_t kind = 0; kind < kCallKindCount; ++kind)
            counts.calls[kind] += row.calls[kind];
        counts.copiedBytes += row.copiedBytes;
    }
    return snapshot;
}

// What each thread did between two snapshots.
std::vector<NamedCounts> Between(const Snapshot& before, const Snapshot& after)
{
    std::vector<NamedCounts> threads;
    for (const auto& [tid, thread] : after) {
        const auto earlier = before.find(tid);
        if (earlier == before.end())
            continue;
        const Counts& old = earlier->second.counts;
        NamedCounts grown = thread;
        for (size_t kind = 0; kind < kCallKindCount; ++kind)
            grown.counts.calls[kind] -= old.calls[kind];
        grown.counts.copiedBytes -= old.copiedBytes;
        grown.counts.wakeUps -= old.wakeUps;
        grown.counts.runNs -= old.runNs;
        threads.push_back(grown);
    }
    return threads;
}

uint64_t CallsOf(const Counts& counts, Call call)
{
    return counts.calls[static_cast<size_t>(call)];
}

template <typename Wanted> uint64_t SumOf(const Counts& counts, const Wanted& isWanted)
{
    uint64_t sum = 0;
    for (size_t kind = 0; kind < kCallKindCount; ++kind)
        sum += isWanted(kCallKinds[kind]) ? counts.calls[kind] : 0;
    return sum;
}

std::vector<Figure> FiguresOf(const Measured& measured, uint32_t watchers)
{
    uint64_t wakeUps = 0, waits = 0, systemCalls = 0, sends = 0, copiedBytes = 0, allocations = 0;
    for (const auto& [name, counts] : measured.threads) {
        wakeUps += counts.wakeUps;
        waits += SumOf(counts, [](const CallKind& kind) { return kind.isWait; });
        systemCalls += SumOf(counts, [](const CallKind& kind) { return kind.isSystemCall; });
        copiedBytes += counts.copiedBytes;
        if (name == kRequestThread)
            continue;
        sends += CallsOf(counts, Call::Send);
        allocations += CallsOf(counts, Call::Allocate);
    }
    const double frames = measured.seconds * kMainPattern.framesPerSecond; // that were due
    const auto each = [](uint64_t count, double of) { return static_cast<double>(count) / of; };
    return {
        {"wake_ups_per_frame", each(wakeUps, frames)},
        {"waits_per_frame", each(waits, frames)},
        {"wake_ups_per_wait", each(wakeUps, static_cast<double>(waits))},
        {"system_calls_per_frame", each(systemCalls, frames)},
        {"sends_per_delivery", each(sends, measured.deliveredFrames)},
        {"copies_per_byte", each(copiedBytes, measured.deliveredBytes / watchers)},
        {"allocations_per_frame", each(allocations, frames)},
    };
}

void PrintThreads(const Measured& measured, uint32_t watchers)
{
    const double seconds = measured.seconds;
    printf("\n%u watcher%s; CPU ms, wake-ups, calls and copied kB a second\n  %-16s %8s %8s", watchers,
           watchers == 1 ? "" : "s", "", "CPU ms", "wake-ups");
    for (const CallKind& kind : kCallKinds)
        printf(" %8s", kind.name);
    printf(" %8s\n", "kB");
    for (const auto& [name, counts] : measured.threads) {
        printf("  %-16s %8.2f %8.1f", name.c_str(), static_cast<double>(counts.runNs) / 1e6 / seconds,
               static_cast<double>(counts.wakeUps) / seconds);
        for (const uint64_t calls : counts.calls)
            printf(" %8.1f", static_cast<double>(calls) / seconds);
        printf(" %8.1f\n", static_cast<double>(counts.copiedBytes) / 1000 / seconds);
    }
}

void WaitUntilReached(const FrameReceiver& receiver, const ProcessUnderTest& process, uint64_t number)
{
    for (const int64_t limit = MonotonicNs() + kLimitNs; !receiver.AllReached(number); SleepMs(5)) {
        process.CheckAlive();
        if (MonotonicNs() > limit)
            throw std::runtime_error("a frame does not reach every watcher");
    }
}

// Counts over whole groups of pictures. A key frame is delivered before, because the first one reads the time
// zone.
Measured Measure(const Options& options, uint32_t watcherCount)
{
    const CountingMemory memory;
    const BenchHosts hosts(kMainPattern, kSecondPattern, NextRecord::Blank);
    const FrameClock clock = hosts.Clock();
    const ProcessUnderTest process = memory.Start(options);
    Watchers watchers(kMainPattern, kServerPort, watcherCount);
    FrameReceiver& receiver = watchers.Receiver();
    WaitUntilReached(receiver, process, 0);
    uint64_t first = kMainPattern.gopFrames;
    while (clock.DueNs(first - kMainPattern.gopFrames) < MonotonicNs())
        first += kMainPattern.gopFrames;
    const uint64_t end = first + uint64_t{options.seconds} * kMainPattern.framesPerSecond;

    // What is on its way at either end is counted as received, so that it makes no figure too large.
    WaitUntilReached(receiver, process, first - 1);
    Measured measured;
    const uint64_t framesBefore = receiver.DeliveredFrames(), bytesBefore = receiver.DeliveredBytes();
    const int64_t begunNs = MonotonicNs();
    const Snapshot before = Take(process.Pid(), memory.Read());
    WaitUntilReached(receiver, process, end - 1);
    const Snapshot after = Take(process.Pid(), memory.Read());
    measured.seconds = static_cast<double>(MonotonicNs() - begunNs) / 1e9;
    measured.deliveredFrames = static_cast<double>(receiver.DeliveredFrames() - framesBefore);
    measured.deliveredBytes = static_cast<double>(receiver.DeliveredBytes() - bytesBefore);
    measured.threads = Between(before, after);
    receiver.Stop();
    for (const MediaParser& parser : watchers.Parsers())
        if (parser.damaged > 0)
            throw std::runtime_error("a frame is damaged");
    return measured;
}

std::vector<Bound> ReadBounds(const std::string& path)
{
    std::vector<Bound> bounds;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        Bound bound;
        if (line.empty() || line[0] == '#')
            continue;
        if (!(words >> bound.watchers >> bound.figure >> bound.most))
            throw std::runtime_error(path + " holds no bound in the line: " + line);
        bounds.push_back(bound);
    }
    if (bounds.empty())
        throw std::runtime_error(path + " holds no bounds");
    return bounds;
}

// Prints each figure with its bound. Returns how many bounds are not kept, or have nothing to hold.
size_t Compare(const std::vector<Figure>& figures, const std::vector<Bound>& bounds, uint32_t watchers)
{
    size_t over = 0, used = 0, wanted = 0;
    for (const Bound& bound : bounds)
        wanted += bound.watchers == watchers ? 1 : 0;
    for (const Figure& figure : figures) {
        printf("  %-26s %9.4f", figure.name, figure.value);
        for (const Bound& bound : bounds) {
            if (bound.watchers != watchers || bound.figure != figure.name)
                continue;
            ++used;
            over += figure.value <= bound.most ? 0 : 1;
            printf("  %s, at most %g", figure.value <= bound.most ? "met" : "OVER", bound.most);
        }
        printf("\n");
    }
    return over + (wanted - used);
}

} // namespace

int main(int argc, char** argv)
{
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    Options options;
    options.server = here / "Velmora_server";
    options.counter = here / "velmora-call-counter.so";
    CLI::App app("Counts what each thread of the server does for a frame (through tests/isolated.sh)",
                 "velmora-frame-cost");
    app.option_defaults()->always_capture_default();
    app.add_option("--server", options.server, "Program to count")->check(CLI::ExistingFile);
    app.add_option("--counter", options.counter, "The library that counts")->check(CLI::ExistingFile);
    app.add_option("--bounds", options.bounds,
                   "Hold the figures against these bounds; 1 when one is exceeded")
        ->check(CLI::ExistingFile);
    app.add_option("--watchers", options.watchers, "Audiences")->check(CLI::Range(1, 15));
    app.add_option("--seconds", options.seconds, "Counted seconds, an even number")
        ->check(CLI::Range(2, 3600))
        ->check([](const std::string& text) { return (text.back() - '0') % 2 == 0 ? "" : "odd"; }, "EVEN");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongCommandLine;
    }
    size_t over = 0;
    try {
        const std::vector<Bound> bounds =
            options.bounds.empty() ? std::vector<Bound>{} : ReadBounds(options.bounds);
        for (const uint32_t watchers : options.watchers) {
            const Measured measured = Measure(options, watchers);
            PrintThreads(measured, watchers);
            over += Compare(FiguresOf(measured, watchers), bounds, watchers);
        }
    } catch (const std::exception& failure) {
        fprintf(stderr, "velmora-frame-cost: %s\n", failure.what());
        return 1;
    }
    return over == 0 ? 0 : 1;
}
