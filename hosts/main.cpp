// velmora-bench-camera: the processes around Velmora_server on a camera, as one program for any Linux PC.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

extern "C" {
#include <libavutil/log.h>
}

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
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
#include "hosts/server_runner.h"
#include "media/media_layout.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string mainFile;
    std::string secondFile;
    std::string clips;
    std::string state;
    std::string server;
    std::vector<std::string> serverArguments;
    bool purge = false;
    bool applyNetwork = false;
};

constexpr char kFooter[] =
    "Streams: H.264 and H.265 that fits the wire is played as it is, everything else is encoded anew.\n"
    "Without --main and --second the clips main.mkv and second.mkv of --clips are played.\n"
    "A stream that is set to another codec, size or rate than its file has shows a test picture instead.\n"
    "When the streams run, one line \"velmora-bench-camera: ready\" goes to standard output.\n"
    "Signals: SIGUSR1 pauses both streams and lets them go on; SIGINT and SIGTERM end the program.\n"
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

int g_signalPipe[2] = {-1, -1}; // the handler's bytes to ServeSignals

void TellSignal(int number)
{
    const int savedErrno = errno;
    const auto byte = static_cast<uint8_t>(number);
    (void)!write(g_signalPipe[1], &byte, 1); // a full pipe holds enough of them
    errno = savedErrno;
}

// From here on signals are events of the main thread. Before, they end the program at once, which is
// harmless while nothing is shared yet.
void CatchSignals()
{
    if (pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) < 0)
        throw std::runtime_error("no pipe for signals");
    struct sigaction action {};
    action.sa_handler = TellSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGUSR1})
        sigaction(number, &action, nullptr);
}

// Until the program is asked to end.
void ServeSignals(MediaHost* media)
{
    bool paused = false;
    for (;;) {
        pollfd readable{.fd = g_signalPipe[0], .events = POLLIN, .revents = 0};
        poll(&readable, 1, -1);
        uint8_t number = 0;
        if (read(g_signalPipe[0], &number, 1) != 1)
            continue;
        if (number != SIGUSR1)
            return;
        paused = !paused;
        media->SetPaused(paused);
    }
}

// What is set has its effect.
void ConnectHosts(ParameterStore* store, MediaHost* media, std::optional<NetworkApplier>* network)
{
    store->Watch({.onStream = [media](size_t stream,
                                      const StreamFacts& settings) { media->Configure(stream, settings); },
                  .onAddress =
                      [network](uint32_t field, uint32_t ulAddress) {
                          if (*network)
                              (*network)->Set(field, ulAddress);
                      }});
}

void RunCamera(const Options& options)
{
    ClaimObjects();
    Players players = OpenPlayers(options);
    CatchSignals();
    if (options.purge)
        Purge();
    std::optional<ServerRunner> server;
    if (!options.server.empty()) {
        std::vector<std::string> command{options.server};
        command.insert(command.end(), options.serverArguments.begin(), options.serverArguments.end());
        server.emplace(std::move(command));
    }
    std::optional<NetworkApplier> network;
    if (options.applyNetwork)
        network.emplace("eth0");
    ParameterHost parameters(options.state, [&server] {
        if (server)
            server->Restart();
    });
    HostSegment alarm = MakeAlarmBlock();
    KeeperWatch keeper;
    MediaHost media(std::move(players));

    ConnectHosts(&parameters.store(), &media, &network);
    if (network)
        network->Start();
    media.Start([store = &parameters.store()](size_t stream, const StreamFacts& facts) {
        store->SetStream(stream, facts);
    });
    parameters.Start();
    keeper.Start();
    printf("velmora-bench-camera: ready\n");
    fflush(stdout);
    if (server)
        server->Start();

    ServeSignals(&media);
    if (server)
        server->Stop();
    keeper.Stop();
    parameters.Stop();
    if (network)
        network->Stop();
    media.Stop();
    media.Release(options.purge);
    parameters.Release(options.purge);
    keeper.Release(options.purge);
    alarm.Release(options.purge);
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
