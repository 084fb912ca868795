#include "bench/soak_camera.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace {

constexpr int kStartSeconds = 30; // for a sibling, on a busy machine

// In the sandbox's memory: the parameter host answers when its settings are stored, and a disk that is busy
// for others may take seconds to do that.
std::filesystem::path StateFolder()
{
    const char* const sandbox = getenv("SANDBOX");
    return sandbox != nullptr ? sandbox : std::filesystem::temp_directory_path();
}

} // namespace

SoakCamera::SoakCamera(std::string program, const std::string& server, SoakLog& log)
    : program_(std::move(program)), stateFile_(StateFolder() / ("velmora-soak-" + std::to_string(getpid()))),
      log_(log), parameters_(Sibling("parameters")), media_(Sibling("media")), alarms_(Sibling("alarms")),
      server_({server}), logReader_([this] { ReadLog(); })
{
}

SoakCamera::~SoakCamera()
{
    server_.Signal(SIGKILL); // ends the text of its log
    logReader_.join();
    std::error_code ignored;
    std::filesystem::remove(stateFile_, ignored);
}

SoakChild SoakCamera::Sibling(const char* name) const
{
    SoakChild child({program_, "--sibling", name, "--state", stateFile_});
    child.WaitForLine(kStartSeconds);
    return child;
}

void SoakCamera::StopMediaHost() const
{
    media_.Signal(SIGSTOP);
}

void SoakCamera::ContinueMediaHost() const
{
    media_.Signal(SIGCONT);
}

void SoakCamera::ReadLog()
{
    LogSource source;
    char text[65536];
    for (ssize_t got; (got = read(server_.output(), text, sizeof text)) > 0;)
        log_.Add(source, {text, static_cast<size_t>(got)});
}
