#include "hosts/options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "hosts/pause_point.h"

namespace {

namespace fs = std::filesystem;

constexpr char kPictureOfFile[] = "file";
constexpr char kTestPicture[] = "test";
constexpr double kMostRebootPause = 3600;
constexpr const char* kHostNames[kHostCount] = {"parameters", "media", "alarm"};

// What becomes something else than a text.
struct Texts {
    std::string picture = kPictureOfFile;
    std::string motion;
    std::string lies;
    std::vector<std::string> hosts;
    std::vector<std::string> pauseAt;
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

void AddOptions(CLI::App* app, Options* options, Texts* texts)
{
    app->add_option("--main", options->mainFile, "Video file of the main stream")->type_name("FILE");
    app->add_option("--second", options->secondFile, "Video file of the second stream")->type_name("FILE");
    app->add_option("--clips", options->clips, "Directory of the default clips")->type_name("DIR");
    app->add_option("--state", options->state, "JSON file that keeps the settings from one run to the next")
        ->type_name("FILE");
    app->add_option("--server", options->server, "Velmora_server to run beside; what follows -- goes to it")
        ->type_name("PATH");
    app->add_option("--picture", texts->picture, "What both streams show from the start: file or test")
        ->check(CLI::IsMember({kPictureOfFile, kTestPicture}))
        ->type_name("PICTURE");
    app->add_option("--motion", texts->motion, "Raise a motion alarm every N seconds for M seconds")
        ->type_name("every=N,for=M");
    app->add_option("--lie", texts->lies,
                    "Write senseless records into both rings for so long, to torture their readers")
        ->type_name("SECONDS,SEED");
    app->add_option("--reboot-pause", options->rebootPause,
                    "Seconds for which the camera is gone at a reboot")
        ->check(CLI::Range(0.0, kMostRebootPause))
        ->capture_default_str()
        ->type_name("S");
    app->add_option("--hosts", texts->hosts, "The hosts to be: parameters, media, alarm; all unless told")
        ->delimiter(',')
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(kHostNames), std::end(kHostNames))))
        ->type_name("LIST");
    app->add_option("--pause-at", texts->pauseAt,
                    "Stop (SIGSTOP) the program at this moment, such as param-before-answer or "
                    "main-mid-frame, the N-th time it comes; several are separated by commas")
        ->delimiter(',')
        ->type_name("MOMENT[:N]");
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

void CompleteOptions(Options* options, const Texts& texts)
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
    if (!texts.hosts.empty())
        options->hosts.reset();
    for (const std::string& name : texts.hosts)
        for (size_t host = 0; host < kHostCount; ++host)
            if (name == kHostNames[host])
                options->hosts.set(host);
    for (const std::string& moment : texts.pauseAt)
        AddPauseMoment(moment);
    options->testPicture = texts.picture == kTestPicture;
    options->motionSchedule = MotionScheduleOfText(texts.motion);
    if (!texts.motion.empty() && !options->motionSchedule)
        throw std::runtime_error("--motion " + texts.motion + ": not every=N,for=M with M less than N");
    options->lies = LiePlanOfText(texts.lies);
    if (!texts.lies.empty() && !options->lies)
        throw std::runtime_error("--lie " + texts.lies + ": not SECONDS,SEED");
}

} // namespace

std::optional<int> ReadOptions(int argc, char** argv, Options* options)
{
    Texts texts;
    CLI::App app("Stands in for the processes around Velmora_server on a camera and plays real video.");
    AddOptions(&app, options, &texts);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    }
    CompleteOptions(options, texts);
    return std::nullopt;
}
