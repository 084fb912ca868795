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

constexpr struct {
    const char* name;
    const char* about;
    AddCommand* add;
} kCommands[] = {
    {"live", "Receive live video and audio", AddLive},
    {"snapshot", "Save one picture as PNG", AddSnapshot},
    {"raw", "Send any request and show the answer", AddRaw},
    {"info", "Log in and show what the camera says about itself", AddInfo},
    {"ptz", "Move the camera or its lens", AddPtz},
    {"preset", "Store, visit or forget a position", AddPreset},
    {"tour", "Start, stop or edit a tour of presets", AddTour},
    {"alarms", "Subscribe to alarms and print them", AddAlarms},
    {"keyframe", "Ask for a key frame on both streams", AddKeyFrame},
    {"time", "Show the camera's clock, or set it", AddTime},
    {"reboot", "Let the camera start again", AddReboot},
    {"factory-default", "Restore the factory settings", AddFactoryDefault},
    {"users", "List the camera's accounts", AddUsers},
    {"console", "Print the camera's debug console", AddConsole},
};

constexpr char kFooter[] =
    "Exit codes: 0 done, 1 usage, 2 unreachable, 3 timed out, 4 closed by the camera,\n"
    "5 not this protocol, 6 file or codec error here, 7 no media, 8 refused by the camera";

void AddCommonOptions(CLI::App& app, CommonOptions& common)
{
    app.add_option("HOST", common.host, "HOST[:PORT] of the camera, port 9000 when left out")->required();
    app.add_option("--timeout", common.timeoutSeconds, "Longest wait for the camera, in seconds")
        ->check(SecondsBetween(0.1, 3600))
        ->capture_default_str();
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
        AddCommonOptions(*sub, common);
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
