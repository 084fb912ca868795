// A flood of search datagrams, with the machine's own address or with forged ones.
#include <arpa/inet.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "recorder/failure.h"
#include "recorder/stress/crowd.h"
#include "recorder/stress/scenes.h"

namespace {

constexpr milliseconds kStep{5};
constexpr uint32_t kForgedNetwork = 0xC6336400; // 198.51.100.0/24, where nobody is

struct ForgedDatagram {
    iphdr ip;
    udphdr udp;
};

// Headers in front of the request, from another address each time. The system fills in the IP checksum,
// and the datagram's may be left out.
std::string Forge(const sockaddr_in& to, const std::string& request, uint32_t number)
{
    ForgedDatagram head{};
    head.ip.version = 4;
    head.ip.ihl = sizeof head.ip / 4;
    head.ip.ttl = 64;
    head.ip.protocol = IPPROTO_UDP;
    head.ip.saddr = htonl(kForgedNetwork + 1 + number % 254);
    head.ip.daddr = to.sin_addr.s_addr;
    head.udp.source = htons(static_cast<uint16_t>(1024 + number % 60000));
    head.udp.dest = to.sin_port;
    head.udp.len = htons(static_cast<uint16_t>(sizeof head.udp + request.size()));
    std::string bytes(sizeof head, '\0');
    memcpy(bytes.data(), &head, sizeof head);
    return bytes + request;
}

UniqueFd OpenSocket(bool forge)
{
    UniqueFd fd(forge ? socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW)
                      : socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd.isValid())
        throw Failure(kExitLocal, std::string("no socket for datagrams: ") + strerror(errno));
    return fd;
}

} // namespace

Figures LoadSearch(const Load& load)
{
    const UniqueFd fd = OpenSocket(load.options.forge);
    sockaddr_in to = load.camera;
    to.sin_port = htons(kSearchPort);
    const std::string request = RequestBytes(kDevSearchReq, R"({"Name":"OPSearch"})");
    const TimePoint begin = Clock::now();
    uint32_t sent = 0;
    while (!load.stop.stop_requested()) {
        const auto ms = std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
        const auto due = static_cast<uint64_t>(ms) * static_cast<uint64_t>(load.options.rate) / 1000;
        for (; sent < due; sent++) {
            const std::string bytes = load.options.forge ? Forge(to, request, sent) : request;
            (void)sendto(fd.get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                         sizeof to); // one that is lost here is lost like any other
        }
        std::this_thread::sleep_for(kStep);
    }
    const auto ms = std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
    return {{"datagrams", sent}, {"datagrams_per_second", int64_t{sent} * 1000 / std::max<int64_t>(1, ms)}};
}
