// Velmora_server: serves the camera's live streams and settings to recorders until it is killed.

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "app/options.h"
#include "camera/camera_commands.h"
#include "common/clock.h"
#include "common/log.h"
#include "config/server_identity.h"
#include "media/encoder_control.h"
#include "media/frame_source.h"
#include "server/debug_console.h"
#include "server/keeper_feed.h"
#include "server/server_lifecycle.h"

namespace {

constexpr uint32_t kCameraType = 1;
constexpr uint32_t kProcessKind = 5;
constexpr uint32_t kSleepMs = 100 * 1000;

// A standard stream that was closed at the start is opened on nothing: a socket given its number would
// receive the log.
void OpenStandardStreams()
{
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd >= 0)
        close(fd);
}

} // namespace

int main(int argc, char** argv)
{
    OpenStandardStreams();
    // Unbuffered: what is printed appears at once in a pipe or a journal.
    setvbuf(stdout, nullptr, _IONBF, 0);
    Options options{.port = 0, .clientType = 10, .interfaceName = "eth0"};
    (void)CameraInit(kCameraType, kProcessKind); // switches logging on; commands that fail say so themselves
    options.port = VelmoraGetServerPort();
    if (!ParseOptions(argc, argv, &options)) {
        LogUsage(argc > 0 ? argv[0] : "Velmora_server");
        return EXIT_SUCCESS;
    }
    (void)signal(SIGPIPE, SIG_IGN);
    (void)StartDebugConsole(); // first, so that it can watch the rest begin; without it we go on
    StartKeeperFeed();
    (void)MediaHostCtrlInit(); // who needs the queue tries again
    LogTrace("Velmora protocol starting...\n");
    ShowBanner(options.port, options.interfaceName);
    LogTrace("Now, starting the webservice thread...\n");
    VelmoraServerStart(options.port);
    StartAVStream(options.clientType);
    for (;;)
        SleepMs(kSleepMs);
}
