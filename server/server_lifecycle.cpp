#include "server/server_lifecycle.h"

#include <cstdio>

#include "common/log.h"
#include "config/server_identity.h"
#include "media/stream_fanout.h"
#include "server/NetworkAccess.h"
#include "server/ProtocolAccess.h"
#include "server/alarm_push.h"
#include "server/network_state.h"

namespace {

// Read and written by the thread that starts and stops the server.
bool g_isBannerShown = false;
bool g_isStarted = false;

constexpr char kRule[] = "-------------------------------------------------"; // 49 hyphens
static_assert(sizeof kRule == 49 + 1);

// The banner says when it was built, even in a build that otherwise frowns on time stamps.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdate-time"
constexpr char kBuildDate[] = __DATE__;
constexpr char kBuildTime[] = __TIME__;
#pragma GCC diagnostic pop

} // namespace

void ShowBanner(uint16_t port, const char* interfaceName)
{
    if (g_isBannerShown)
        return;
    g_port_server = port;
    SetInterfaceName(interfaceName != nullptr ? interfaceName : "eth0");
    char deviceName[kInterfaceNameBytes];
    GetInterfaceName(deviceName);
    printf("\n\n%s\n", kRule);
    printf("Velmora_server is running...\n");
    printf("Console: \tenable\n");
    printf("Devname: \t%s\nServer port: \t%d\n", deviceName, port);
    fprintf(stderr, "Version: \t%s Build %s %s\n", "V1.0", kBuildDate, kBuildTime);
    printf("%s\n\n\n", kRule);
    g_isBannerShown = true;
}

int VelmoraServerStart(uint16_t port)
{
    ShowBanner(port, "eth0");
    if (g_isStarted)
        return 0;
    if (port != 0)
        g_port_server = port;
    LogTrace("%s %d: port = %d\n", __func__, __LINE__, g_port_server.load());
    SetMessageCallback(ProtocolNetworkProcess);
    StartVideoProcess();
    StartAlarmPush(); // before the first connection can subscribe
    StartNetwork(g_port_server);
    g_isStarted = true;
    return 0;
}

void VelmoraServerStop()
{
    if (!g_isStarted || !g_isBannerShown)
        return;
    g_isStarted = false;
    StopNetwork();
    StopAlarmPush(); // nobody is left to receive alarms
    StopVideoProcess();
}

int VelmoraServerRestart(uint16_t port)
{
    VelmoraServerStop();
    return VelmoraServerStart(port);
}
