// `velmora`: the recorder's side of the protocol on the command line.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
extern "C" {
#include <libavutil/log.h>
}

#include <csignal>
#include <cstdio>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"

namespace {

constexpr char kHost[] = "HOST[:PORT] of the camera, port 9000 when left out";
constexpr char kHostOrMac[] = "HOST[:PORT] of the camera, or its MAC as discover shows it";

constexpr struct {
    const char* name;
    const char* host; // what the argument HOST is; null for a command without one
    const char* about;
    AddCommand* add;
} kCommands[] = {
    {"discover", nullptr, "List the cameras on the local network", AddDiscover},
    {"info", kHost, "Show what the camera says about itself", AddInfo},
    {"live", kHost, "Receive live video and audio", AddLive},
    {"snapshot", kHost, "Save one picture as PNG", AddSnapshot},
    {"get", kHost, "Show configuration objects", AddGet},
    {"set", kHost, "Change a configuration object", AddSet},
    {"set-address", kHostOrMac, "Give a camera on the local network another address", AddSetAddress},
    {"diff", kHost, "Show what has changed since a get --all", AddDiff},
    {"restore", kHost, "Set back what has changed since a get --all", AddRestore},
    {"ptz", kHost, "Move the camera or its lens", AddPtz},
    {"preset", kHost, "Store, visit or forget a position", AddPreset},
    {"tour", kHost, "Start, stop or edit a tour of presets", AddTour},
    {"alarms", kHost, "Subscribe to alarms and print them", AddAlarms},
    {"keyframe", kHost, "Ask for a key frame on both streams", AddKeyFrame},
    {"time", kHost, "Show the camera's clock, or set it", AddTime},
    {"reboot", kHost, "Let the camera start again", AddReboot},
    {"factory-default", kHost, "Restore the factory settings", AddFactoryDefault},
    {"users", kHost, "List the camera's accounts", AddUsers},
    {"console", kHost, "Print the camera's debug console", AddConsole},
    {"stress", kHost, "Load the camera while others watch, and measure what they notice", AddStress},
    {"raw", kHost, "Send any request and show the answer", AddRaw},
};

constexpr char kFooter[] =
    "Exit codes: 0 done, 1 usage, 2 unreachable, 3 timed out, 4 closed by the camera,\n"
    "5 not this protocol, 6 file or codec error here, 7 no media, 8 refused by the camera,\n"
    "9 the camera's settings differ, or a bound of stress does not hold";

void AddCommonOptions(CLI::App& app, const char* host, CommonOptions& common)
{
    if (host != nullptr) {
        app.add_option("HOST", common.host, host)->required();
        app.add_option("--timeout", common.timeoutSeconds, "Longest wait for the camera, in seconds")
            ->check(SecondsBetween(0.1, 3600))
            ->capture_default_str();
    }
    app.add_flag("--json", common.json, "Answer in JSON, for machines");
}

// CLI11 has exit codes of its own; here every mistake of the user is one code and one line.
int ReportUsage(const CLI::App& app, const CLI::ParseError& error)
{
    if (error.get_exit_code() == 0)
        return app.exit(error); // --help
    fprintf(stderr, "velmora: %s; see velmora --help\n", error.what());
    return kExitUsage;
}

int Run(int argc, char** argv)
{
    CLI::App app("Recorder's tool for cameras that speak the Velmora protocol", "velmora");
    app.require_subcommand(1);
    app.footer(kFooter);
    CommonOptions common;
    CommandRun run;
    for (const auto& command : kCommands) {
        CLI::App* sub = app.add_subcommand(command.name, command.about);
        AddCommonOptions(*sub, command.host, common);
        sub->callback([&run, chosen = command.add(*sub, common)] { run = chosen; });
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return ReportUsage(app, error);
    }
    return run();
}

} // namespace

int main(int argc, char** argv)
{
    signal(SIGPIPE, SIG_IGN);
    av_log_set_level(AV_LOG_QUIET); // what fails is said here, in one line
    int code = kExitOk;
    try {
        code = Run(argc, argv);
    } catch (const Failure& failure) {
        fprintf(stderr, "velmora: %s\n", failure.what());
        code = failure.code();
    } catch (const std::exception& failure) {
        fprintf(stderr, "velmora: %s\n", failure.what());
        code = kExitLocal;
    }
    if (fflush(stdout) != 0 && code == kExitOk) {
        fprintf(stderr, "velmora: cannot write standard output\n");
        code = kExitLocal;
    }
    return code;
}
