// How the recorder side reports what went wrong: one exception type that carries the exit code of the
// tool and the one line that a user reads.
#pragma once

#include <stdexcept>
#include <string>

// Exit codes of `velmora`; scripts depend on the numbers, so they are never renumbered.
enum ExitCode {
    kExitOk = 0,
    kExitUsage = 1,       // wrong options, or an argument that cannot be meant
    kExitUnreachable = 2, // refused, no route, no such host
    kExitTimedOut = 3,    // a wait reached its limit
    kExitClosed = 4,      // the camera closed the connection
    kExitNotProtocol = 5, // whatever answers there speaks something else
    kExitLocal = 6,       // a file, the encoder or the decoder of this machine
    kExitNoMedia = 7,     // the session stands, but no picture came
    kExitCameraError = 8, // the camera answered with another result than 100
    kExitDiffers = 9,     // the camera's settings are not those of the file, or not what was asked for
};

class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
    [[nodiscard]] ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};
