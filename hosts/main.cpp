// velmora-bench-camera: the processes around Velmora_server on a camera, as one program for any Linux PC.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
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
#include "hosts/parameter_host.h"
#include "hosts/process_runner.h"
#include "hosts/recording_host.h"
#include "media/media_layout.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kPictureOfFile[] = "file";
constexpr char kTestPicture[] = "test";
constexpr double kMostRebootPause = 3600;
constexpr std::chrono::seconds kRebootLead{1}; // for replies to leave and for RecHost to be told

struct Options {
    std::string mainFile;
    std::string secondFile;
    std::string clips;
    std::string state;
    std::string server;
    std::vector<std::string> serverArguments;
    std::string motion;
    std::optional<MotionSchedule> motionSchedule;
    std::string picture = kPictureOfFile;
    double rebootPause = 2;
    bool recordingHost = false;
    bool purge = false;
    bool applyNetwork = false;
};

constexpr char kFooter[] =
    "Streams: H.264 and H.265 that fits the wire is played as it is, everything else is encoded anew.\n"
    "Without --main and --second the clips main.mkv and second.mkv of --clips are played.\n"
    "A stream that is set to another codec, size or rate than its file has shows a test picture instead. So "
    "do\n"
    "both streams once the head has moved, until a factory default or a reboot.\n"
    "When the streams run, one line \"velmora-bench-camera: ready\" goes to standard output; after a reboot\n"
    "another one.\n"
    "Signals: SIGUSR1 pauses both streams and lets them go on; SIGUSR2 turns motion on and off; SIGINT and\n"
    "SIGTERM end the program.\n"
    "Shared memory and queues that exist are taken over; at the end those that nobody uses are removed.";

// Beside the program, or where a build tree has them: build/clips for build/bin.
fs::path DefaultClips()
{
    const fs::path beside = fs::read_symlink("/proc/self/exe").parent_path();
    return fs::exists(beside / "main.mkv") ? beside : beside.parent_path() / "clips";
}

void AddOptions(CLI::App* app, Options* options)
{
    app->add_option("--main", options->mainFile, "Video file of the main stream")->type_name("FILE");
    app->add_option("--second", options->secondFile, "Video file of the second stream")->type_name("FILE");
    app->add_option("--clips", options->clips, "Directory of the default clips")->type_name("DIR");
    app->add_option("--state", options->state, "JSON file that keeps the settings from one run to the next")
        ->type_name("FILE");
    app->add_option("--server", options->server, "Velmora_server to run beside; what follows -- goes to it")
        ->type_name("PATH");
    app->add_option("--picture", options->picture, "What both streams show from the start: file or test")
        ->check(CLI::IsMember({kPictureOfFile, kTestPicture}))
        ->type_name("PICTURE");
    app->add_option("--motion", options->motion, "Raise a motion alarm every N seconds for M seconds")
        ->type_name("every=N,for=M");
    app->add_option("--reboot-pause", options->rebootPause,
                    "Seconds for which the camera is gone at a reboot")
        ->check(CLI::Range(0.0, kMostRebootPause))
        ->capture_default_str()
        ->type_name("S");
    app->add_flag("--rechost", options->recordingHost,
                  "Run a process RecHost beside, which closes its file on the card when it is told to stop");
    app->add_flag("--purge", options->purge,
                  "Remove the camera's shared memory and queues first, and all of them at the end");
    app->add_flag("--apply-network", options->applyNetwork,
                  "Change address, mask and gateway of eth0 as they are set (in a sandbox only)");
    app->add_option("server-arguments", options->serverArguments, "")->group("");
    app->footer(kFooter);
    app->failure_message([](const CLI::App*, const CLI::Error& error) {
        return "velmora-bench-camera: " + std::string(error.what()) + " (--help tells the options)\n";
    });
}

void CompleteOptions(Options* options)
{
    const fs::path clips = options->clips.empty() ? DefaultClips() : fs::path(options->clips);
    if (options->mainFile.empty())
        options->mainFile = clips / "main.mkv";
    if (options->secondFile.empty())
        options->secondFile = clips / "second.mkv";
    if (!options->server.empty() && access(options->server.c_str(), X_OK) != 0)
        throw std::runtime_error(options->server + ": not a program that can be started");
    if (options->server.empty() && !options->serverArguments.empty())
        throw std::runtime_error("arguments for a server, but no --server");
    options->motionSchedule = MotionScheduleOfText(options->motion);
    if (!options->motion.empty() && !options->motionSchedule)
        throw std::runtime_error("--motion " + options->motion + ": not every=N,for=M with M less than N");
}

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

// Until the program is asked to end, or the camera to reboot.
Ending ServeEvents(MediaHost* media, AlarmSource* alarm)
{
    bool paused = false;
    std::optional<Clock::time_point> rebootAt;
    while (const std::optional<uint8_t> event = NextEvent(rebootAt)) {
        switch (*event) {
        case SIGUSR1:
            paused = !paused;
            media->SetPaused(paused);
            break;
        case SIGUSR2:
            alarm->ToggleMotion();
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

// What is set has its effect.
void ConnectHosts(const Options& options, ParameterStore* store, MediaHost* media,
                  std::optional<NetworkApplier>* network)
{
    const bool alwaysTest = options.picture == kTestPicture;
    media->Film(&store->motors());
    media->ShowTestPictures(alwaysTest);
    store->Watch(
        {.onStream = [media](size_t stream,
                             const StreamFacts& settings) { media->Configure(stream, settings); },
         .onAddress =
             [network](uint32_t field, uint32_t ulAddress) {
                 if (*network)
                     (*network)->Set(field, ulAddress);
             },
         .onHead = [media, alwaysTest](bool hasMoved) { media->ShowTestPictures(alwaysTest || hasMoved); }});
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

// The camera from one start to its end or its reboot. The settings are those that the life before kept, and
// then those that this one keeps.
Ending RunLife(const Options& options, Players players, ParameterChanges* settings)
{
    std::optional<NetworkApplier> network;
    if (options.applyNetwork)
        network.emplace("eth0");
    ParameterHost parameters(
        options.state, [] { TellEvent(kRebootEvent); }, *settings);
    AlarmSource alarm(options.motionSchedule);
    KeeperWatch keeper;
    MediaHost media(std::move(players));
    Companions companions;

    ConnectHosts(options, &parameters.store(), &media, &network);
    if (network)
        network->Start();
    media.Start([store = &parameters.store()](size_t stream, const StreamFacts& facts) {
        store->SetStream(stream, facts);
    });
    parameters.Start();
    alarm.Start();
    keeper.Start();
    printf("velmora-bench-camera: ready\n");
    fflush(stdout);
    StartCompanions(options, &companions);

    const Ending ending = ServeEvents(&media, &alarm);
    if (ending == Ending::kReboot)
        LogInfo("the camera goes down for %g seconds\n", options.rebootPause);
    companions.server.reset();
    companions.recordingHost.reset();
    keeper.Stop();
    alarm.Stop();
    parameters.Stop();
    if (network)
        network->Stop();
    media.Stop();
    *settings = parameters.store().Changes();
    media.Release(options.purge);
    parameters.Release(options.purge);
    keeper.Release(options.purge);
    alarm.Release(options.purge);
    return ending;
}

void RunCamera(const Options& options)
{
    ClaimObjects();
    Players players = OpenPlayers(options);
    CatchSignals();
    if (options.purge)
        Purge();
    ParameterChanges settings;
    while (RunLife(options, std::move(players), &settings) == Ending::kReboot &&
           WaitForReboot(options.rebootPause))
        players = OpenPlayers(options);
    ReleaseClaim();
}

int RunProgram(int argc, char** argv)
{
    Options options;
    CLI::App app("Stands in for the processes around Velmora_server on a camera and plays real video.");
    AddOptions(&app, &options);
    CLI11_PARSE(app, argc, argv);
    CompleteOptions(&options);
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
