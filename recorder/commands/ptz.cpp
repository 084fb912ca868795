#include "recorder/ptz.h"

#include <CLI/Option.hpp>

#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"

namespace {

struct ButtonOptions {
    std::string button;
    int speed = 4;
    double seconds = 0.5;
};

struct NumberOptions {
    std::string action;
    int number = 0;
    int preset = 0;
    int speed = 4;
};

void AddSpeed(CLI::App& app, int* speed)
{
    app.add_option("--speed", *speed, "Speed, 1 to 8")->check(CLI::Range(1, 8))->capture_default_str();
}

int RunPreset(const NumberOptions& options, const CommonOptions& common)
{
    const char* const command = options.action == "set"    ? "SetPreset"
                                : options.action == "goto" ? "GotoPreset"
                                                           : "ClearPreset";
    Session session(common.address(), common.timeout());
    session.Login();
    SendPtz(session, command, {.preset = options.number});
    return kExitOk;
}

int RunTour(const NumberOptions& options, const CommonOptions& common)
{
    const bool edits = options.action == "add" || options.action == "delete";
    if (edits != (options.preset != 0))
        throw Failure(kExitUsage, edits ? "name the preset to " + options.action
                                        : "a tour is started and stopped without a preset");
    const char* const command = options.action == "start"  ? "StartTour"
                                : options.action == "stop" ? "StopTour"
                                : options.action == "add"  ? "AddTour"
                                                           : "DeleteTour";
    Session session(common.address(), common.timeout());
    session.Login();
    SendPtz(session, command,
            {.preset = edits ? options.preset : -1, .step = options.speed, .tour = options.number});
    return kExitOk;
}

} // namespace

CommandRun AddPtz(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<ButtonOptions>();
    std::string buttons = "One of";
    for (const PtzButton& button : PtzButtons())
        buttons += std::string(" ") + button.option;
    app.add_option("BUTTON", options->button, buttons)->required();
    AddSpeed(app, &options->speed);
    app.add_option("--for", options->seconds, "Seconds for which the button is pressed")
        ->check(SecondsBetween(0, 3600))
        ->capture_default_str();
    return [options, &common] {
        const PtzButton& button = FindPtzButton(options->button);
        Session session(common.address(), common.timeout());
        session.Login();
        PressPtzButton(session, button, options->speed,
                       milliseconds(static_cast<int64_t>(options->seconds * 1000)));
        return static_cast<int>(kExitOk);
    };
}

CommandRun AddPreset(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<NumberOptions>();
    app.add_option("ACTION", options->action, "set, goto or clear")
        ->required()
        ->check(CLI::IsMember({"set", "goto", "clear"}));
    app.add_option("N", options->number, "Number of the preset")->required()->check(CLI::Range(1, 255));
    return [options, &common] { return RunPreset(*options, common); };
}

CommandRun AddTour(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<NumberOptions>();
    app.add_option("ACTION", options->action, "start, stop, add or delete")
        ->required()
        ->check(CLI::IsMember({"start", "stop", "add", "delete"}));
    app.add_option("N", options->number, "Number of the tour")->required()->check(CLI::Range(1, 32));
    app.add_option("PRESET", options->preset, "Preset to add or delete")->check(CLI::Range(1, 255));
    AddSpeed(app, &options->speed);
    return [options, &common] { return RunTour(*options, common); };
}
