// Keeps the server busy for as long as it is asked to: two recorders, operations and faults that follow from
// a seed, every byte and every answer checked. README.md says what is checked and how.
#include <fcntl.h>
#include <sched.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <thread>

#include "bench/soak_faults.h"
#include "bench/soak_hosts.h"
#include "common/clock.h"
#include "recorder/failure.h"

namespace {

constexpr uint16_t kPort = 9000;
constexpr double kSanitizerSlowness = 5;
constexpr milliseconds kQuietTime{15'000}; // for the server to close what was closed and to send again
constexpr uint32_t kPollMs = 20;
constexpr double kMostWarmUpSeconds = 600;
constexpr double kWarmUpShare = 1.0 / 3; // of a short run
// Shorter, the pages that are touched for the first time weigh more than a slope of interest.
constexpr double kLongSpanSeconds = 1800;
constexpr double kMostSlope = 64 * 1024; // bytes an hour
constexpr double kMostGrowth = 128 * 1024;

struct Options {
    uint32_t seconds = 60;
    uint64_t seed = 1;
    std::string server;
    uint64_t plan = 0;
    std::string sibling, state, vanishing;
};

// A server that a sanitizer watches is slower, and its memory is not its own.
bool IsSanitized(const std::string& program)
{
    std::ifstream file(program, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    return bytes.find("__asan_init") != std::string::npos || bytes.find("__tsan_init") != std::string::npos;
}

std::string Environment(const char* name)
{
    const char* value = getenv(name);
    if (value == nullptr)
        throw std::runtime_error(std::string(name) + " is not set: run it in tests/sandbox.sh");
    return value;
}

// From here on this thread, and all that it starts, is at the recorders' end of the camera's network.
void GoToRecorders()
{
    const UniqueFd network(open((Environment("SANDBOX") + "/recorder.ns").c_str(), O_RDONLY | O_CLOEXEC));
    if (setns(network.get(), CLONE_NEWNET) != 0)
        throw std::runtime_error("cannot enter the recorders' network");
}

class Soak {
  public:
    explicit Soak(const Options& options)
        : options_(options), sanitized_(IsSanitized(options.server)),
          program_(std::filesystem::read_symlink("/proc/self/exe")), camera_(program_, options.server, log_)
    {
        scene_.camera = {Environment("CAMERA"), kPort};
        scene_.interface = "recorder0";
        scene_.slowness = sanitized_ ? kSanitizerSlowness : 1;
        GoToRecorders();
        for (size_t i = 0; i < kSoakRecorders; ++i)
            recorders_.push_back(std::make_unique<SoakRecorder>(verdict_, scene_, i));
    }

    bool Run()
    {
        AwaitServer();
        const TimePoint begin = Clock::now();
        while (!camera_.ServerHasEnded() && Clock::now() < begin + std::chrono::seconds(options_.seconds)) {
            verdict_.round = rounds_;
            RunRound(PlanRound(options_.seed, rounds_++));
            if (camera_.ServerHasEnded())
                break;
            CheckQuiet();
            memory_.push_back({std::chrono::duration<double>(Clock::now() - begin).count(),
                               static_cast<double>(ReadAnonymousBytes(camera_.server()))});
        }
        if (camera_.ServerHasEnded())
            verdict_.Fail("the server has ended");
        for (const std::string& line : log_.Complaints())
            verdict_.Fail("the server's log says: %s", line.c_str());
        CheckMemory();
        Report(std::chrono::duration<double>(Clock::now() - begin).count());
        return verdict_.Failures() == 0;
    }

  private:
    void AwaitServer()
    {
        const TimePoint deadline = Clock::now() + kQuietTime * 4;
        for (;; SleepMs(100)) {
            try {
                recorders_[0]->EnsureSession();
                break;
            } catch (const Failure&) {
                if (camera_.ServerHasEnded() || Clock::now() > deadline)
                    throw;
            }
        }
        recorders_[0]->LogOut();
        // The last threads are started half a second apart: complete when nothing has come for two.
        Holdings last{};
        for (TimePoint since = Clock::now(); Clock::now() < since + std::chrono::seconds(2);
             SleepMs(kPollMs)) {
            const Holdings now = ReadHoldings(camera_.server());
            if (now == last)
                continue;
            last = now;
            since = Clock::now();
        }
        base_ = last;
    }

    void RunRound(const Round& round)
    {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < kSoakRecorders; ++i)
            threads.emplace_back([this, i, &round] { recorders_[i]->Run(round.steps[i]); });
        SoakWorld world{verdict_, scene_, log_, camera_, program_};
        RunFault(world, round);
        for (std::thread& thread : threads)
            thread.join();
        scene_.settingsUnsure = false;
    }

    // All faults are mended and nobody asks for anything: media flows, and the server holds what the sessions
    // need and no more.
    void CheckQuiet()
    {
        const TimePoint deadline =
            Clock::now() + milliseconds(static_cast<int64_t>(kQuietTime.count() * scene_.slowness));
        size_t connections = 0;
        for (const auto& recorder : recorders_) {
            recorder->watch().Settle(deadline);
            connections += recorder->Connections();
        }
        Holdings expected = base_;
        expected.descriptors += connections;
        Holdings now = ReadHoldings(camera_.server());
        for (; now != expected && Clock::now() < deadline; SleepMs(kPollMs))
            now = ReadHoldings(camera_.server());
        if (now != expected)
            verdict_.Fail("the server holds %zu descriptors, %zu threads; %zu IPC objects "
                          "exist (expected: %zu, %zu, %zu)",
                          now.descriptors, now.threads, now.ipcObjects, expected.descriptors,
                          expected.threads, expected.ipcObjects);
    }

    void CheckMemory()
    {
        const double last = memory_.empty() ? 0 : memory_.back().seconds;
        const double first = memory_.size() > kFirstRounds ? memory_[kFirstRounds].seconds : last;
        trend_ = FitMemory(memory_, std::max(first, std::min(kMostWarmUpSeconds, last * kWarmUpShare)));
        if (sanitized_)
            return;
        if (trend_.growthBytes > kMostGrowth)
            verdict_.Fail("the server grows by %.0f KiB", trend_.growthBytes / 1024);
        if (trend_.spanSeconds >= kLongSpanSeconds && trend_.slopeBytesPerHour > kMostSlope)
            verdict_.Fail("the server grows by %.0f KiB an hour", trend_.slopeBytesPerHour / 1024);
    }

    void Report(double seconds) const
    {
        printf("seed %" PRIu64 ", %" PRIu64 " rounds in %.0f s\n", options_.seed, rounds_, seconds);
        for (const auto& [what, count] : verdict_.Counts())
            printf("  %-28s %8" PRIu64 "\n", what.c_str(), count);
        printf("media: %" PRIu64 " pictures and %" PRIu64 " sounds of %.1f MB, every byte right; %" PRIu64
               " gaps where a fault or a pause allows one\n",
               verdict_.pictures.load(), verdict_.sounds.load(),
               static_cast<double>(verdict_.mediaBytes.load()) / 1e6, verdict_.gaps.load());
        printf("answers: %" PRIu64 ", the slowest %.0f ms, beside a fault that holds the camera up %.0f ms; "
               "alarms: %" PRIu64 "\n",
               verdict_.answers.load(), verdict_.slowestCalmMs.load(), verdict_.slowestDisturbedMs.load(),
               verdict_.alarms.load());
        printf("at every quiet point: %zu descriptors beside the connections, %zu threads, %zu IPC objects\n",
               base_.descriptors, base_.threads, base_.ipcObjects);
        ReportMemory();
        printf("log lines:\n");
        for (const auto& [kind, count] : log_.Kinds())
            printf("  %-48s %9" PRIu64 "\n", kind.c_str(), count);
        printf("wrong: %" PRIu64 "\n", verdict_.Failures());
        if (verdict_.Failures() > 0) {
            fprintf(stderr, "the end of the server's log:\n");
            for (const std::string& line : log_.LastLines())
                fprintf(stderr, "  %s\n", line.c_str());
        }
    }

    void ReportMemory() const
    {
        if (sanitized_ || memory_.empty()) {
            printf("memory: not judged, a sanitizer keeps what is freed\n");
            return;
        }
        printf("memory: %.0f KiB of its own at the end; over the last %.0f s, %zu points: %+.1f KiB, "
               "%+.1f KiB an hour%s\n",
               memory_.back().bytes / 1024, trend_.spanSeconds, trend_.points, trend_.growthBytes / 1024,
               trend_.slopeBytesPerHour / 1024,
               trend_.spanSeconds < kLongSpanSeconds ? " (too short for a slope, the growth is judged)" : "");
    }

    const Options& options_;
    const bool sanitized_;
    const std::string program_;
    SoakVerdict verdict_;
    SoakScene scene_;
    SoakLog log_;
    SoakCamera camera_;
    std::vector<std::unique_ptr<SoakRecorder>> recorders_;
    Holdings base_{};
    std::vector<MemoryPoint> memory_;
    MemoryTrend trend_{};
    uint64_t rounds_ = 0;
};

int RunProgram(const Options& options)
{
    if (!options.sibling.empty())
        return RunSoakHost(options.sibling, options.state);
    if (!options.vanishing.empty())
        return RunVanishingRecorder(ParseHostPort(options.vanishing));
    for (uint64_t number = 0; number < options.plan; ++number)
        PrintRound(stdout, number, PlanRound(options.seed, number));
    return options.plan > 0 || Soak(options).Run() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    options.server = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "Velmora_server";
    CLI::App app("Keeps a camera's server busy and checks all that it does (in tests/sandbox.sh)",
                 "velmora-soak");
    app.add_option("SECONDS", options.seconds, "How long; the last round is finished")
        ->check(CLI::Range(1, 1'000'000))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "What the operations and faults follow from")
        ->capture_default_str();
    app.add_option("--server", options.server, "The server")->check(CLI::ExistingFile)->capture_default_str();
    app.add_option("--plan", options.plan, "Print the first so many rounds instead of running them");
    app.add_option("--sibling", options.sibling)->group(""); // how it starts the processes beside the server
    app.add_option("--state", options.state)->group("");
    app.add_option("--vanishing", options.vanishing)->group("");
    CLI11_PARSE(app, argc, argv);
    try {
        return RunProgram(options);
    } catch (const std::exception& failure) {
        fprintf(stderr, "velmora-soak: %s\n", failure.what());
        return 1;
    }
}
