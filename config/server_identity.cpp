#include "config/server_identity.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstring>

#include "camera/camera_commands.h"
#include "common/bounded_text.h"
#include "common/log.h"
#include "common/mutex.h"
#include "common/unique_fd.h"

std::atomic<uint16_t> g_port_server{0};

namespace {

constexpr char kWired[] = "eth0";
constexpr char kWireless[] = "wlan0";

Mutex g_nameMutex; // the banner's thread sets the name, request handlers set and read it
char g_interfaceName[kInterfaceNameBytes] GUARDED_BY(g_nameMutex) = "eth0";

bool HasLink(const char* interface)
{
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ethtool_value link{.cmd = ETHTOOL_GLINK, .data = 0};
    ifreq request{};
    CopyBounded(request.ifr_name, sizeof request.ifr_name, interface, strlen(interface));
    request.ifr_data = reinterpret_cast<char*>(&link);
    return fd.isValid() && ioctl(fd.get(), SIOCETHTOOL, &request) == 0 && link.data == 1;
}

} // namespace

uint16_t VelmoraGetServerPort()
{
    AgreementEntry selector{};
    selector.ucArgType = ARG_AGREEMENT_VLM;
    AgreementEntry record{};
    (void)CameraGetArgeementProperty(&selector, &record); // without a camera layer the port stays 0
    uint16_t unset = 0;
    if (g_port_server.compare_exchange_strong(unset, record.usPort))
        LogTrace("%s %d g_port_server = %d\n", __func__, __LINE__, record.usPort);
    return record.usPort;
}

void SetInterfaceName(const char* name)
{
    const Locked lock(g_nameMutex);
    CopyBounded(g_interfaceName, sizeof g_interfaceName, name, strlen(name));
}

const char* ChooseActiveInterface()
{
    const bool isUp = HasLink(kWired);
    LogTrace("%s LINK %s\n", kWired, isUp ? "up" : "down");
    const char* const choice = isUp ? kWired : kWireless;
    SetInterfaceName(choice);
    return choice;
}

void GetInterfaceName(char* name)
{
    const Locked lock(g_nameMutex);
    memcpy(name, g_interfaceName, sizeof g_interfaceName);
}
