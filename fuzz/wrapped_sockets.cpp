// Sockets and network interfaces of the machine, in place of the C library's.

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "fuzz/machine.h"
#include "fuzz/reply_check.h"
#include "protocol/message.h"

namespace {

constexpr int kQuerySocket = 99;

bool g_isQuerying = false; // the query socket is open

void CheckOpen(int fd)
{
    if (!IsOpenConnection(fd) && fd != kSearchSocket)
        Violation("a closed socket is used");
}

// Leaves those in the set that are ready; returns how many.
template <typename IsReady> int Keep(int count, fd_set* set, IsReady isReady)
{
    int kept = 0;
    for (int fd = kListenSocket; set != nullptr && fd < count; ++fd) {
        if (!FD_ISSET(fd, set))
            continue;
        if (isReady(fd))
            ++kept;
        else
            FD_CLR(fd, set);
    }
    return kept;
}

ssize_t Take(int fd, void* buffer, size_t bytes)
{
    CheckOpen(fd);
    Offer& offer = g_machine.offer;
    if (offer.fd != fd)
        return Fail<ssize_t>(-1, EAGAIN);
    const std::span<const uint8_t> taken = offer.bytes.first(std::min(bytes, offer.bytes.size()));
    std::copy(taken.begin(), taken.end(), static_cast<uint8_t*>(buffer));
    // What a datagram holds beyond the buffer is lost; a stream keeps it.
    const bool isMore = taken.size() < offer.bytes.size() && fd != kSearchSocket;
    const bool isError = offer.isError;
    if (isMore)
        offer.bytes = offer.bytes.subspan(taken.size());
    else
        offer = {};
    return isError ? Fail<ssize_t>(-1, ECONNRESET) : static_cast<ssize_t>(taken.size());
}

void Answer(unsigned long request, ifreq* query)
{
    constexpr uint8_t kMac[] = {0x02, 0x1A, 0xFF, 0x00, 0x9C, 0x77};
    if (request == SIOCGIFHWADDR) {
        memcpy(query->ifr_hwaddr.sa_data, kMac, sizeof kMac);
        return;
    }
    const uint32_t value = request == SIOCGIFNETMASK ? 0xFFFFFF00 : 0xC0A8010A;
    const sockaddr_in address{AF_INET, 0, {htonl(value)}, {}};
    memcpy(&query->ifr_addr, &address, sizeof address);
}

} // namespace

WRAPPED(int, select, int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout)
{
    const int ready = Keep(count, readable, IsReadable) +
                      Keep(count, writable, [](int) { return !Has(kPeersFull); }) +
                      Keep(count, exceptional, [](int) { return Has(kSocketsUrgent); });
    if (ready == 0)
        g_nowUs += timeout->tv_sec * 1000000 + timeout->tv_usec;
    return ready;
}

WRAPPED(int, poll, pollfd* sockets, nfds_t count, int)
{
    int ready = 0;
    for (pollfd& socket : std::span(sockets, count)) {
        CheckOpen(socket.fd);
        const int events = (IsReadable(socket.fd) ? POLLIN : 0) | (Has(kPeersFull) ? 0 : POLLOUT);
        socket.revents = static_cast<short>(events & socket.events);
        ready += socket.revents != 0 ? 1 : 0;
    }
    return ready;
}

WRAPPED(int, accept4, int, sockaddr* peer, socklen_t* bytes, int)
{
    g_machine.hasPeer = false;
    bool* const open = std::find(std::begin(g_machine.isOpen), std::end(g_machine.isOpen), false);
    if (Has(kPeersReset) || open == std::end(g_machine.isOpen))
        return Fail(-1, ECONNABORTED);
    const sockaddr_in address{AF_INET, htons(40000), {htonl(0xC0A80164)}, {}};
    memcpy(peer, &address, std::min<size_t>(*bytes, sizeof address));
    *open = true;
    g_machine.isShut[open - g_machine.isOpen] = false;
    return kFirstConnection + static_cast<int>(open - g_machine.isOpen);
}

WRAPPED(ssize_t, recv, int fd, void* buffer, size_t bytes, int)
{
    return Take(fd, buffer, bytes);
}

WRAPPED(ssize_t, recvfrom, int fd, void* buffer, size_t bytes, int, sockaddr*, socklen_t*)
{
    return Take(fd, buffer, bytes);
}

WRAPPED(ssize_t, send, int fd, const void* bytes, size_t length, int flags)
{
    CheckOpen(fd);
    if ((flags & (MSG_DONTWAIT | MSG_NOSIGNAL)) != (MSG_DONTWAIT | MSG_NOSIGNAL))
        Violation("a send that may wait or raise a signal");
    CheckMessage({static_cast<const uint8_t*>(bytes), length});
    return Has(kPeersReset) ? Fail<ssize_t>(-1, EPIPE) : static_cast<ssize_t>(length);
}

WRAPPED(ssize_t, sendto, int fd, const void* bytes, size_t length, int, const sockaddr* to, socklen_t)
{
    CheckOpen(fd);
    CheckMessage({static_cast<const uint8_t*>(bytes), length});
    sockaddr_in address;
    memcpy(&address, to, sizeof address);
    if (length > kDatagramBytes || address.sin_addr.s_addr != INADDR_BROADCAST ||
        address.sin_port != htons(kSearchPort))
        Violation("a datagram that nobody may send");
    return Has(kPeersReset) ? Fail<ssize_t>(-1, ENETUNREACH) : static_cast<ssize_t>(length);
}

WRAPPED(int, shutdown, int fd, int)
{
    if (!IsOpenConnection(fd) || IsShutConnection(fd))
        Violation("a socket is shut down that is no connection, or twice");
    g_machine.isShut[fd - kFirstConnection] = true;
    return 0;
}

WRAPPED(int, close, int fd)
{
    if (fd == kQuerySocket && g_isQuerying) {
        g_isQuerying = false;
        return 0;
    }
    if (fd < kQuerySocket || fd > kLastConnection)
        return __real_close(fd);
    CheckOpen(fd);
    if (fd != kSearchSocket)
        g_machine.isOpen[fd - kFirstConnection] = false;
    return 0;
}

WRAPPED(int, socket, int, int, int)
{
    if (g_isQuerying)
        Violation("a query socket was left open");
    g_isQuerying = !Has(kNoFiles);
    return g_isQuerying ? kQuerySocket : Fail(-1, EMFILE);
}

WRAPPED(int, ioctl, int, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    auto* const query = va_arg(arguments, ifreq*);
    va_end(arguments);
    if (Has(kNoInterface))
        return Fail(-1, ENODEV);
    if (request == SIOCETHTOOL)
        reinterpret_cast<ethtool_value*>(query->ifr_data)->data = Has(kLinkDown) ? 0 : 1;
    else
        Answer(request, query);
    return 0;
}
