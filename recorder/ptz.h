// Steering a camera: what a recorder sends while a button is pressed and when it is let go.
#pragma once

#include <span>
#include <string_view>

#include "recorder/session.h"

// A button of the recorder's panel.
struct PtzButton {
    const char* option;  // as the user names it
    const char* command; // as the protocol names it
};
std::span<const PtzButton> PtzButtons();
// Looks the user's name up; throws kExitUsage.
const PtzButton& FindPtzButton(std::string_view option);

struct PtzNumbers {
    int preset = -1; // 1 and up; -1: the button is let go, or a tour is started or stopped
    int step = 0;    // speed, 1 to 8
    int tour = 0;    // 1 to 32
};

// Sends one command and waits until the camera has taken it.
void SendPtz(Session& session, const char* command, const PtzNumbers& numbers);
// Presses the button for a while.
void PressPtzButton(Session& session, const PtzButton& button, int speed, milliseconds time);
