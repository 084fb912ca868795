// velmora-bench-camera: the processes around Velmora_server on a camera, as one program for any Linux PC.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/log.h"
#include "hosts/alarm_source.h"
#include "hosts/ipc_objects.h"
#include "hosts/keeper_watch.h"
#include "hosts/media_host.h"
#include "hosts/network_applier.h"
#include "hosts/options.h"
#include "hosts/parameter_host.h"
#include "hosts/process_runner.h"
#include "hosts/recording_host.h"
#include "media/media_layout.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kRebootLead{1}; // for replies to leave and for RecHost to be told

void Purge()
{
    PurgeParameterObjects();
    PurgeMediaObjects();
    PurgeAlarmBlock();
    PurgeKeeperBlock();
}

Players OpenPlayers(const Options& options)
{
    constexpr int32_t kMainBitRate = 4000000;
    constexpr int32_t kSecondBitRate = 1000000;
    Players players;
    if (!options.hosts[kMedia])
        return players;
    players[0] =
        std::make_unique<StreamPlayer>("main stream", options.mainFile, kMainFrameBytes, kMainBitRate);
    players[1] =
        std::make_unique<StreamPlayer>("second stream", options.secondFile, kExtraFrameBytes, kSecondBitRate);
    return players;
}

int g_eventPipe[2] = {-1, -1}; // events of the main thread: numbers of signals, and
constexpr uint8_t kRebootEvent = 0;

void TellEvent(int number)
{
    const int savedErrno = errno;
    const auto byte = static_cast<uint8_t>(number);
    (void)!write(g_eventPipe[1], &byte, 1); // a full pipe holds enough of them
    errno = savedErrno;
}

// From here on signals are events of the main thread. Before, they end the program at once, which is
// harmless while nothing is shared yet.
void CatchSignals()
{
    if (pipe2(g_eventPipe, O_CLOEXEC | O_NONBLOCK) < 0)
        throw std::runtime_error("no pipe for signals");
    struct sigaction action {};
    action.sa_handler = TellEvent;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGUSR1, SIGUSR2})
        sigaction(number, &action, nullptr);
}

// The next event; nothing at that time.
std::optional<uint8_t> NextEvent(std::optional<Clock::time_point> until)
{
    for (;;) {
        uint8_t number = 0;
        if (read(g_eventPipe[0], &number, 1) == 1)
            return number;
        int timeoutMs = -1;
        if (until) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now());
            if (left.count() <= 0)
                return std::nullopt;
            timeoutMs = static_cast<int>(left.count());
        }
        pollfd readable{.fd = g_eventPipe[0], .events = POLLIN, .revents = 0};
        poll(&readable, 1, timeoutMs);
    }
}

enum class Ending { kQuit, kReboot };

// The time for which a camera that reboots is gone. False when the program is asked to end instead; all
// else that was asked of the camera meanwhile is lost.
bool WaitForReboot(double seconds)
{
    const auto until =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (const std::optional<uint8_t> event = NextEvent(until))
        if (*event == SIGINT || *event == SIGTERM)
            return false;
    return true;
}

void TellTruth(size_t stream)
{
    printf("velmora-bench-camera: the %s tells the truth\n", stream == 0 ? "main stream" : "second stream");
    fflush(stdout);
}

// The hosts that this camera is.
struct RunningHosts {
    std::optional<ParameterHost> parameters;
    std::optional<AlarmSource> alarm;
    KeeperWatch keeper;
    std::optional<MediaHost> media;
};

// What is set has its effect.
void ConnectHosts(const Options& options, RunningHosts* hosts, std::optional<NetworkApplier>* network)
{
    const bool alwaysTest = options.testPicture;
    MediaHost* const media = hosts->media ? &*hosts->media : nullptr;
    if (media != nullptr)
        media->ShowTestPictures(alwaysTest);
    if (!hosts->parameters)
        return;
    ParameterStore& store = hosts->parameters->store();
    if (media != nullptr)
        media->Film(&store.motors());
    store.Watch({.onStream =
                     [media](size_t stream, const StreamFacts& settings) {
                         if (media != nullptr)
                             media->Configure(stream, settings);
                     },
                 .onAddress =
                     [network](uint32_t field, uint32_t ulAddress) {
                         if (*network)
                             (*network)->Set(field, ulAddress);
                     },
                 .onHead =
                     [media, alwaysTest](bool hasMoved) {
                         if (media != nullptr)
                             media->ShowTestPictures(alwaysTest || hasMoved);
                     }});
}

void StartHosts(RunningHosts* hosts)
{
    ParameterStore* const store = hosts->parameters ? &hosts->parameters->store() : nullptr;
    if (hosts->media)
        hosts->media->Start([store](size_t stream, const StreamFacts& facts) {
            if (store != nullptr)
                store->SetStream(stream, facts);
        });
    if (hosts->parameters)
        hosts->parameters->Start();
    if (hosts->alarm)
        hosts->alarm->Start();
    hosts->keeper.Start();
}

void StopHosts(RunningHosts* hosts, std::optional<NetworkApplier>* network)
{
    hosts->keeper.Stop();
    if (hosts->alarm)
        hosts->alarm->Stop();
    if (hosts->parameters)
        hosts->parameters->Stop();
    if (*network)
        (*network)->Stop();
    if (hosts->media)
        hosts->media->Stop();
}

void ReleaseHosts(RunningHosts* hosts, bool always)
{
    if (hosts->media)
        hosts->media->Release(always);
    if (hosts->parameters)
        hosts->parameters->Release(always);
    hosts->keeper.Release(always);
    if (hosts->alarm)
        hosts->alarm->Release(always);
}

// Processes beside, RecHost first; the server is there when all that it meets is.
struct Companions {
    std::optional<ProcessRunner> recordingHost;
    std::optional<ProcessRunner> server;
};

void StartCompanions(const Options& options, Companions* companions)
{
    if (options.recordingHost) {
        const std::vector<std::string> name{kRecordingHostName};
        companions->recordingHost.emplace("/proc/self/exe", name, AtEnd::kLeave);
        companions->recordingHost->Start();
    }
    if (!options.server.empty()) {
        std::vector<std::string> command{options.server};
        command.insert(command.end(), options.serverArguments.begin(), options.serverArguments.end());
        companions->server.emplace(options.server, std::move(command), AtEnd::kStartAgain);
        companions->server->Start();
    }
}

// Until the program is asked to end, or the camera to reboot.
Ending ServeEvents(RunningHosts* hosts)
{
    bool paused = false;
    std::optional<Clock::time_point> rebootAt;
    while (const std::optional<uint8_t> event = NextEvent(rebootAt)) {
        switch (*event) {
        case SIGUSR1:
            paused = !paused;
            if (hosts->media)
                hosts->media->SetPaused(paused);
            break;
        case SIGUSR2:
            if (hosts->alarm)
                hosts->alarm->ToggleMotion();
            break;
        case kRebootEvent:
            rebootAt = rebootAt.value_or(Clock::now() + kRebootLead);
            break;
        default:
            return Ending::kQuit;
        }
    }
    return Ending::kReboot;
}

// The camera from one start to its end or its reboot. The settings are those that the life before kept, and
// then those that this one keeps.
Ending RunLife(const Options& options, Players players, ParameterChanges* settings)
{
    std::optional<NetworkApplier> network;
    if (options.applyNetwork)
        network.emplace("eth0");
    RunningHosts hosts;
    if (options.hosts[kParameters])
        hosts.parameters.emplace(
            options.state, [] { TellEvent(kRebootEvent); }, *settings);
    if (options.hosts[kAlarm])
        hosts.alarm.emplace(options.motionSchedule);
    if (options.hosts[kMedia])
        hosts.media.emplace(std::move(players));
    Companions companions;

    if (options.lies && hosts.media)
        hosts.media->Lie(*options.lies, TellTruth);
    ConnectHosts(options, &hosts, &network);
    if (network)
        network->Start();
    StartHosts(&hosts);
    printf("velmora-bench-camera: ready\n");
    fflush(stdout);
    StartCompanions(options, &companions);

    const Ending ending = ServeEvents(&hosts);
    if (ending == Ending::kReboot)
        LogInfo("the camera goes down for %g seconds\n", options.rebootPause);
    companions.server.reset();
    companions.recordingHost.reset();
    StopHosts(&hosts, &network);
    if (hosts.parameters)
        *settings = hosts.parameters->store().Changes();
    ReleaseHosts(&hosts, options.purge);
    return ending;
}

void RunCamera(const Options& options)
{
    ClaimObjects(options.hosts);
    Players players = OpenPlayers(options);
    CatchSignals();
    if (options.purge)
        Purge();
    ParameterChanges settings;
    while (RunLife(options, std::move(players), &settings) == Ending::kReboot &&
           WaitForReboot(options.rebootPause))
        players = OpenPlayers(options);
    ReleaseClaim(options.hosts);
}

int RunProgram(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = ReadOptions(argc, argv, &options))
        return *status;
    RunCamera(options);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 0 && strcmp(argv[0], kRecordingHostName) == 0) {
        LogInit(kRecordingHostName, 3);
        return RunRecordingHost();
    }
    LogInit("velmora-bench-camera", 3);
    av_log_set_level(AV_LOG_FATAL); // what concerns the user comes as an error of ours
    signal(SIGPIPE, SIG_IGN);
    try {
        return RunProgram(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "velmora-bench-camera: %s\n", error.what());
        return 1;
    }
}
