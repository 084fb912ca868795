#include "camera/network_files.h"

#include <net/route.h>
#include <strings.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "common/bounded_text.h"

namespace {

struct FileClose {
    void operator()(FILE* file) const { (void)fclose(file); } // only read: nothing is lost
};
using File = std::unique_ptr<FILE, FileClose>;

constexpr int kDnsLineBytes = 128;
constexpr int kRouteLineBytes = 256;
constexpr char kNameServer[] = "nameserver";

struct Route {
    char interface[64];
    in_addr gateway;
    unsigned flags; // RTF_UP, RTF_GATEWAY
};

bool ParseRoute(const char* line, Route* route)
{
    unsigned destination = 0;
    unsigned gateway = 0;
    if (sscanf(line, "%63s %x %x %x", route->interface, &destination, &gateway, &route->flags) != 4)
        return false;
    route->gateway.s_addr = gateway; // printed as the kernel holds it, in network order
    return true;
}

} // namespace

void ReadNameServer(size_t line, char* server, size_t size)
{
    const File file(fopen("/etc/resolv.conf", "re"));
    char text[kDnsLineBytes] = "";
    for (size_t i = 0; i <= line; ++i)
        if (file == nullptr || fgets(text, sizeof text, file.get()) == nullptr)
            return;
    const char* const name = strstr(text, kNameServer);
    const char* const end = name != nullptr ? strchr(name, '\n') : nullptr;
    if (end == nullptr || end < name + sizeof kNameServer)
        return;
    const char* const begin = name + sizeof kNameServer; // behind the word and one blank
    CopyBounded(server, size, begin, static_cast<size_t>(end - begin));
}

int ReadGateway(const char* interface, in_addr* gateway)
{
    const File file(fopen("/proc/net/route", "re"));
    char line[kRouteLineBytes];
    if (file == nullptr || fgets(line, sizeof line, file.get()) == nullptr) // the headings
        return -1;
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        Route route{};
        if (!ParseRoute(line, &route))
            continue;
        if (strncasecmp(route.interface, interface, strlen(interface)) != 0) {
            fprintf(stderr, "iface = %s,  ifname = %s\n", route.interface, interface);
            continue;
        }
        if ((route.flags & RTF_UP) != 0 && (route.flags & RTF_GATEWAY) != 0) {
            *gateway = route.gateway;
            return 0;
        }
    }
    return -1;
}
