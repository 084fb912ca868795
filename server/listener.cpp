#include "server/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "common/clock.h"
#include "common/log.h"
#include "common/shared_wait.h"
#include "common/unique_fd.h"
#include "protocol/connection_table.h"
#include "server/network_state.h"

namespace {

constexpr char kThreadName[] = "ListenSocketThread"; // whose lines these are, in the log
constexpr uint32_t kNothingPendingPauseMs = 20;
constexpr uint32_t kRefusedPauseMs = 1000;
constexpr int kSendBufferBytes = 1024 * 1024; // no write waits for a slow recorder

bool IsPending(int listenFd, timeval* timeout)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(listenFd, &readable);
    return select(listenFd + 1, &readable, nullptr, nullptr, timeout) > 0;
}

// Whether the next round would do more than find nothing.
bool IsRoundNeeded(void* argument)
{
    const ListenerTask& task = *static_cast<const ListenerTask*>(argument);
    pollfd listening{.fd = task.fd, .events = POLLIN, .revents = 0};
    return !IsNetworkRun(task.run) || poll(&listening, 1, 0) != 0;
}

// What cannot be set is left as it is: the connection works all the same.
void SetConnectionOptions(int fd)
{
    const int on = 1;
    (void)fcntl(fd, F_SETFL, O_NONBLOCK);
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
    (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// The accepted socket, or an empty one.
UniqueFd AcceptConnection(int listenFd, char (&ip)[INET_ADDRSTRLEN], uint16_t* port)
{
    sockaddr_in peer{};
    socklen_t peerBytes = sizeof peer;
    // Closed in what the server executes, or a command that it started would keep connections open.
    UniqueFd fd(
        accept4(listenFd, reinterpret_cast<sockaddr*>(&peer), &peerBytes, SOCK_CLOEXEC | SOCK_NONBLOCK));
    inet_ntop(AF_INET, &peer.sin_addr, ip, sizeof ip);
    *port = peer.sin_port;
    LogTrace("%s %d : A stupid connect!ip = %s, port = %d\n", kThreadName, __LINE__, ip, *port);
    return fd;
}

} // namespace

uint32_t ListenerStep(int listenFd, timeval* timeout)
{
    if (!IsPending(listenFd, timeout))
        return kNothingPendingPauseMs;
    if (GetConnectCount() >= kMaxConnections) {
        LogWarn("%s %d: Connect over MAX_CONNECT_NUM", kThreadName, __LINE__);
        return kRefusedPauseMs; // the connection waits in the backlog
    }
    char ip[INET_ADDRSTRLEN];
    uint16_t port;
    UniqueFd fd = AcceptConnection(listenFd, ip, &port);
    if (!fd.isValid()) {
        LogWarn("%s %d: Accept fd < 0\n", kThreadName, __LINE__);
        return kRefusedPauseMs;
    }
    if (fd.get() >= FD_SETSIZE) {
        LogWarn("%s %d: fd %d is beyond what select() can watch, closing it\n", kThreadName, __LINE__,
                fd.get());
        return 0;
    }
    SetConnectionOptions(fd.get());
    if (AddFd(fd.get(), ip, port, /* sessionId= */ 0) == 0)
        (void)fd.release(); // the table's from now on
    return 0;
}

void* ListenSocketThread(void* argument)
{
    ListenerTask& task = *static_cast<ListenerTask*>(argument);
    LogTrace("%s %d: fd = %d\n", __func__, __LINE__, task.fd);
    const UniqueFd listenSocket(task.fd);
    // One record for all calls: once its time is used up, each call only looks, and the pause of an
    // idle listener is its period.
    timeval timeout{.tv_sec = 1, .tv_usec = 5000};
    while (IsNetworkRun(task.run)) {
        const uint32_t pauseMs = ListenerStep(task.fd, &timeout);
        if (pauseMs == kNothingPendingPauseMs)
            (void)LookEvery(pauseMs, 0, IsRoundNeeded, &task);
        else
            SleepMs(pauseMs);
    }
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
    return nullptr;
}
