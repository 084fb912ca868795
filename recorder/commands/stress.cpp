#include <CLI/Option.hpp>
#include <sys/socket.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <thread>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"
#include "recorder/stress/machine_noise.h"
#include "recorder/stress/packet_watch.h"
#include "recorder/stress/prober.h"
#include "recorder/stress/scenes.h"
#include "recorder/stress/watchers.h"

namespace {

constexpr milliseconds kStep{20}; // how late the end of a load may be noticed

struct StressOptions {
    std::string scene;
    size_t watchers = 2;
    std::vector<std::string> streams;
    double calmSeconds = 2;
    double loadSeconds = 5;
    int64_t loadPictures = 0;
    double afterSeconds = 2;
    bool noProbe = false;
    std::string alarms;
    std::string watchInterface;
    std::vector<std::string> most, least;
    int connections = -1; // -1: as the scene has it
    int rate = -1;
    LoadOptions load;
};

std::vector<Bound> ReadBounds(const StressOptions& options)
{
    std::vector<Bound> bounds;
    for (const std::string& text : options.most)
        bounds.push_back(ParseBound(text, /* isLeast= */ false));
    for (const std::string& text : options.least)
        bounds.push_back(ParseBound(text, /* isLeast= */ true));
    return bounds;
}

std::vector<const Stream*> ChooseStreams(const StressOptions& options)
{
    std::vector<const Stream*> streams;
    for (const std::string& name : options.streams)
        streams.push_back(&FindStream(name));
    if (streams.empty())
        streams = {&FindStream("main"), &FindStream("extra")};
    return streams;
}

// The addresses at the two ends of a connection.
sockaddr_in AddressOf(int (*end)(int, sockaddr*, socklen_t*), int fd)
{
    sockaddr_in address{};
    socklen_t bytes = sizeof address;
    if (end(fd, reinterpret_cast<sockaddr*>(&address), &bytes) != 0)
        throw Failure(kExitLocal, "the connection has no address");
    return address;
}

TimePoint After(double seconds)
{
    return Clock::now() + microseconds(static_cast<int64_t>(seconds * 1e6));
}

void WaitForPictures(Watchers* watchers, milliseconds timeout)
{
    const TimePoint deadline = Clock::now() + timeout;
    while (watchers->Pictures(kCalm) == 0) {
        if (Clock::now() >= deadline)
            throw Failure(kExitNoMedia, "a watcher gets no picture");
        watchers->Receive(kCalm, Clock::now() + kStep);
    }
}

// Runs the load on a thread of its own while the watchers are served.
class RunningLoad {
  public:
    RunningLoad(const Scene& scene, const Load& load)
        : thread_([this, &scene, load](const std::stop_token& stop) {
              try {
                  figures_ = scene.run({load.options, load.camera, load.pulse, stop});
              } catch (...) {
                  failure_ = std::current_exception();
              }
              isOver_ = true;
          })
    {
    }
    void AskToEnd() { thread_.request_stop(); }
    [[nodiscard]] bool isOver() const { return isOver_; }
    // Once it is over.
    Figures Take()
    {
        thread_.join();
        if (failure_)
            std::rethrow_exception(failure_);
        return figures_;
    }

  private:
    Figures figures_;
    std::exception_ptr failure_;
    std::atomic<bool> isOver_{false};
    std::jthread thread_;
};

// The scene's acts: nothing happens, the load, and its end, which belongs to the time after.
Figures Play(const Scene& scene, const StressOptions& options, Watchers* watchers)
{
    watchers->Receive(kCalm, After(options.calmSeconds));
    const sockaddr_in camera = AddressOf(getpeername, watchers->commandFd());
    RunningLoad load(scene, {options.load, camera, watchers->pulse(), {}});
    const TimePoint end = After(options.loadSeconds);
    while (!load.isOver() && (Clock::now() < end || watchers->Pictures(kLoad) < options.loadPictures))
        watchers->Receive(kLoad, Clock::now() + kStep);
    load.AskToEnd();
    while (!load.isOver())
        watchers->Receive(kAfter, Clock::now() + kStep);
    watchers->Receive(kAfter, After(options.afterSeconds));
    watchers->End();
    return load.Take();
}

int Report(const Figures& figures, const std::vector<Bound>& bounds, int64_t noiseMs, bool asJson)
{
    fputs((asJson ? FiguresJson(figures) : FiguresText(figures)).c_str(), stdout);
    const std::vector<std::string> broken = BrokenBounds(figures, bounds, noiseMs);
    for (const std::string& line : broken)
        fprintf(stderr, "velmora: %s\n", line.c_str());
    return broken.empty() ? kExitOk : kExitDiffers;
}

int RunStress(StressOptions& options, const CommonOptions& common)
{
    const Scene& scene = FindScene(options.scene);
    const std::vector<Bound> bounds = ReadBounds(options);
    options.load.address = common.address();
    options.load.timeout = common.timeout();
    options.load.connections = options.connections >= 0 ? options.connections : scene.connections;
    options.load.rate = options.rate >= 0 ? options.rate : scene.rate;
    const MachineNoise noise;
    Watchers watchers(common.address(), common.timeout(), options.watchers, ChooseStreams(options),
                      options.alarms == "media");
    std::optional<PacketWatch> packets;
    if (!options.watchInterface.empty())
        packets.emplace(options.watchInterface, AddressOf(getpeername, watchers.commandFd()).sin_addr,
                        AddressOf(getsockname, watchers.commandFd()).sin_addr);
    WaitForPictures(&watchers, common.timeout());
    std::optional<Prober> prober;
    if (!options.noProbe)
        prober.emplace(common.address(), common.timeout(), !options.alarms.empty());
    const Figures done = Play(scene, options, &watchers);
    Figures figures{{"machine_ms", noise.worstMs()}};
    watchers.AddFigures(&figures);
    if (prober)
        prober->AddFigures(&figures);
    if (packets)
        packets->AddFigures(&figures);
    figures.insert(figures.end(), done.begin(), done.end());
    return Report(figures, bounds, noise.worstMs(), common.json);
}

std::string SceneList()
{
    std::string text = "What is done to the camera:";
    for (const Scene& scene : Scenes())
        text += std::string("\n") + scene.name + ": " + scene.about;
    return text;
}

void AddActOptions(CLI::App& app, StressOptions& options)
{
    app.add_option("SCENE", options.scene, SceneList())->required();
    app.add_option("--watchers", options.watchers, "Recorders that watch meanwhile, each with a session")
        ->check(CLI::Range(1, 8))
        ->capture_default_str();
    app.add_option("--stream", options.streams,
                   "Streams that they watch in turn; main and extra when left out")
        ->allow_extra_args(false);
    app.add_option("--calm", options.calmSeconds, "Seconds before the load")->check(SecondsBetween(0, 1e6));
    app.add_option("--seconds", options.loadSeconds, "Seconds of the load")->check(SecondsBetween(0, 1e6));
    app.add_option("--pictures", options.loadPictures,
                   "The load lasts longer, until each watcher has had so many pictures")
        ->check(CLI::Range(0, 1000000));
    app.add_option("--after", options.afterSeconds, "Seconds after the load")->check(SecondsBetween(0, 1e6));
    app.add_flag("--no-probe", options.noProbe,
                 "Leave out the recorder that sends keepalives and takes alarms, and its connection");
    app.add_option("--alarms", options.alarms,
                   "Subscribe to alarms: command, or media for the watchers' media connections too")
        ->check(CLI::IsMember({"command", "media"}));
    app.add_option(
        "--watch-interface", options.watchInterface,
        "Count what the camera sends to others, on this interface (needs the right to see packets)");
    app.add_option("--most", options.most, "FIGURE=NUMBER that it may be at most; may be repeated")
        ->allow_extra_args(false);
    app.add_option("--least", options.least, "FIGURE=NUMBER that it must be at least; may be repeated")
        ->allow_extra_args(false);
}

void AddLoadOptions(CLI::App& app, StressOptions& options)
{
    app.add_option("--connections", options.connections, "Connections, or readers, of the load")
        ->check(CLI::Range(1, 60000));
    app.add_option("--rate", options.rate, "Messages or datagrams a second")->check(CLI::Range(1, 1000000));
    app.add_option("--request", options.load.requestId, "Id of the requests whose answers nobody reads")
        ->capture_default_str();
    app.add_option("--reader", options.load.reader, "Kind of reader: nothing, slow, resume or reconnect")
        ->default_val("nothing");
    app.add_option("--take", options.load.takeBytes, "Bytes that a reader takes at once")
        ->check(CLI::Range(1, 1 << 24))
        ->default_val(1024);
    app.add_option("--every", options.load.everyMs, "Milliseconds between two takes, or bytes of a trickle")
        ->check(CLI::Range(1, 1000000))
        ->default_val(10);
    app.add_option("--resume-after", options.load.resumeMs,
                   "Milliseconds without a picture for the others after which a reader takes something")
        ->check(CLI::Range(1, 100000))
        ->default_val(330);
    app.add_option("--buffer", options.load.bufferBytes,
                   "Receive buffer of the readers in bytes; 1: the least")
        ->check(CLI::Range(1, 1 << 30));
    app.add_flag("--forge", options.load.forge,
                 "Datagrams come from addresses of nobody (needs raw sockets)");
    app.add_option("--console-port", options.load.consolePort, "Port of the debug console")->default_val(414);
}

} // namespace

CommandRun AddStress(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<StressOptions>();
    AddActOptions(app, *options);
    AddLoadOptions(app, *options);
    return [options, &common] { return RunStress(*options, common); };
}
