#include "recorder/ptz.h"

#include <string>

#include "recorder/failure.h"

namespace {

constexpr PtzButton kButtons[] = {
    {"up", "DirectionUp"},
    {"down", "DirectionDown"},
    {"left", "DirectionLeft"},
    {"right", "DirectionRight"},
    {"left-up", "DirectionLeftUp"},
    {"left-down", "DirectionLeftDown"},
    {"right-up", "DirectionRightUp"},
    {"right-down", "DirectionRightDown"},
    {"zoom-in", "ZoomTile"},
    {"zoom-out", "ZoomWide"},
    {"focus-far", "FocusFar"},
    {"focus-near", "FocusNear"},
    {"iris-open", "IrisLarge"},
    {"iris-close", "IrisSmall"},
};

} // namespace

std::span<const PtzButton> PtzButtons()
{
    return kButtons;
}

const PtzButton& FindPtzButton(std::string_view option)
{
    std::string all;
    for (const PtzButton& button : kButtons) {
        if (option == button.option)
            return button;
        all += std::string(" ") + button.option;
    }
    throw Failure(kExitUsage, "'" + std::string(option) + "' is none of" + all);
}

void SendPtz(Session& session, const char* command, const PtzNumbers& numbers)
{
    const std::string body = std::string(R"({"Name":"OPPTZControl","OPPTZControl":{"Command":")") + command +
                             R"(","Parameter":{"Channel":0,"Preset":)" + std::to_string(numbers.preset) +
                             R"(,"Step":)" + std::to_string(numbers.step) + R"(,"Tour":)" +
                             std::to_string(numbers.tour) + "}}}";
    session.RequestOk(kPtzControlReq, body);
}

void PressPtzButton(Session& session, const PtzButton& button, int speed, milliseconds time)
{
    SendPtz(session, button.command, {.preset = 0, .step = speed});
    session.StayUntil(Clock::now() + time);
    SendPtz(session, button.command, {.preset = -1, .step = speed});
}
