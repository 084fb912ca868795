#include "recorder/stress/packet_watch.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "protocol/message.h"
#include "recorder/failure.h"

namespace {

constexpr int kWaitMs = 100; // how late the end may be noticed

UniqueFd OpenPacketSocket(const std::string& interface)
{
    // Without the link's header, which is none of ours.
    UniqueFd fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP)));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (!fd.isValid() || address.sll_ifindex == 0 ||
        bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw Failure(kExitLocal, "cannot watch packets on '" + interface + "': " + strerror(errno));
    return fd;
}

std::string AddressText(uint32_t address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text) != nullptr ? text : "?";
}

} // namespace

PacketWatch::PacketWatch(const std::string& interface, in_addr camera, in_addr self)
    : camera_(camera), self_(self), fd_(OpenPacketSocket(interface)),
      thread_([this](const std::stop_token& stop) { Watch(stop); })
{
}

void PacketWatch::Judge(const uint8_t* packet, size_t length)
{
    iphdr ip;
    if (length < sizeof ip)
        return;
    memcpy(&ip, packet, sizeof ip);
    if (ip.saddr != camera_.s_addr || (ip.protocol == IPPROTO_TCP && ip.daddr == self_.s_addr))
        return;
    udphdr udp{};
    const size_t headerBytes = size_t{4} * ip.ihl;
    if (ip.protocol == IPPROTO_UDP && length >= headerBytes + sizeof udp)
        memcpy(&udp, packet + headerBytes, sizeof udp);
    if (ip.daddr == INADDR_BROADCAST && ntohs(udp.dest) == kSearchPort) {
        answers_++;
        return;
    }
    if (strays_++ == 0) // the first says enough
        fprintf(stderr, "velmora: the camera sends to %s: protocol %d, port %d\n",
                AddressText(ip.daddr).c_str(), ip.protocol, ntohs(udp.dest));
}

void PacketWatch::Watch(const std::stop_token& stop)
{
    uint8_t packet[128]; // the headers
    while (!stop.stop_requested()) {
        pollfd readable{fd_.get(), POLLIN, 0};
        if (poll(&readable, 1, kWaitMs) <= 0)
            continue;
        sockaddr_ll from{};
        socklen_t fromBytes = sizeof from;
        const ssize_t length = recvfrom(fd_.get(), packet, sizeof packet, MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&from), &fromBytes);
        if (length > 0 && from.sll_pkttype != PACKET_OUTGOING)
            Judge(packet, static_cast<size_t>(length));
    }
}

void PacketWatch::AddFigures(Figures* figures) const
{
    figures->emplace_back("search_answers", answers_);
    figures->emplace_back("stray_packets", strays_);
}
