#include <CLI/Option.hpp>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "recorder/commands/commands.h"
#include "recorder/failure.h"
#include "recorder/stop_signal.h"

namespace {

struct ConsoleOptions {
    uint16_t port = 414;
    double durationSeconds = 0; // 0: until stopped
};

// Copies what the camera prints until it closes, the time is over or somebody stops it.
int RunConsole(const ConsoleOptions& options, const CommonOptions& common)
{
    const HostPort address{common.address().host, options.port};
    const Connection console(address, Clock::now() + common.timeout());
    const int stop = CatchStopSignals();
    const TimePoint end =
        options.durationSeconds > 0
            ? Clock::now() + milliseconds(static_cast<int64_t>(options.durationSeconds * 1000))
            : TimePoint::max();
    while (Clock::now() < end) {
        pollfd polled[] = {{stop, POLLIN, 0}, {console.fd(), POLLIN, 0}};
        if (poll(polled, std::size(polled), PollTimeout(end)) <= 0)
            continue;
        if (polled[0].revents != 0)
            return kExitOk;
        char bytes[16384];
        const ssize_t got = recv(console.fd(), bytes, sizeof bytes, 0);
        if (got == 0)
            throw Failure(kExitClosed, console.name() + ": closed by the camera");
        if (got < 0 && errno != EAGAIN && errno != EINTR)
            throw Failure(kExitClosed, console.name() + ": " + strerror(errno));
        if (got > 0 && (fwrite(bytes, 1, static_cast<size_t>(got), stdout) != static_cast<size_t>(got) ||
                        fflush(stdout) != 0))
            throw Failure(kExitLocal, "cannot write standard output");
    }
    return kExitOk;
}

} // namespace

CommandRun AddConsole(CLI::App& app, const CommonOptions& common)
{
    const auto options = std::make_shared<ConsoleOptions>();
    app.add_option("--port", options->port, "Port of the debug console")->capture_default_str();
    app.add_option("--duration", options->durationSeconds, "Ends after so many seconds")
        ->check(SecondsBetween(0.001, 1e8));
    return [options, &common] { return RunConsole(*options, common); };
}
