#include "server/device_search.h"

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "common/clock.h"
#include "common/log.h"
#include "protocol/request.h"
#include "server/network_state.h"

namespace {

constexpr char kFileName[] = "NetworkAccess.c";
constexpr char kThreadName[] = "DevSearchThread"; // whose lines these are, in the log
constexpr uint32_t kNothingReadyPauseMs = 20;
constexpr uint32_t kRoundPauseMs = 100; // also what bounds a flood of datagrams
constexpr uint32_t kNoPause = 0;        // after a failure of the socket

struct SearchBuffers {
    uint8_t request[kDatagramBytes + 1]; // ends in zero whatever came
    uint8_t reply[kReplyBytes];          // handlers may fill as much as on a connection
};

sockaddr_in SearchAddress(in_addr_t address)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(kSearchPort);
    return result;
}

// Cuts what is longer than a datagram may be. Returns the bytes received, or -1.
int ReceiveDatagram(int fd, SearchBuffers* buffers)
{
    memset(buffers->request, 0, sizeof buffers->request);
    // Never waits, or a stop would: what select() has seen may have been dropped for a bad checksum.
    const ssize_t length = recvfrom(fd, buffers->request, kDatagramBytes, MSG_DONTWAIT, nullptr, nullptr);
    if (length < 0)
        LogTrace("%s %d:recvfrom failed\n", kThreadName, __LINE__);
    return static_cast<int>(length);
}

// Hands the datagram to the dispatcher. Returns the bytes to send, 0 for none.
int AnswerDatagram(int fd, int length, SearchBuffers* buffers)
{
    RequestHandler* const callback = GetMessageCallback();
    if (callback == nullptr)
        return 0;
    memset(buffers->reply, 0, sizeof buffers->reply);
    int replyLen = 0;
    callback(fd, buffers->request, length, buffers->reply, &replyLen);
    if (replyLen <= static_cast<int>(kDatagramBytes))
        return replyLen;
    LogTrace("%s %d: reply %d of %d bytes exceeds a datagram's %zu, not sent\n", kThreadName, __LINE__,
             ReadHeader(buffers->reply, kHeaderBytes).usMessageId, replyLen, kDatagramBytes);
    return 0;
}

bool Broadcast(int fd, const uint8_t* reply, int replyLen)
{
    const sockaddr_in everybody = SearchAddress(INADDR_BROADCAST);
    if (sendto(fd, reply, static_cast<size_t>(replyLen), MSG_DONTWAIT | MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&everybody), sizeof everybody) >= 0)
        return true;
    LogTrace("%s %d:sendto faild\n", kThreadName, __LINE__);
    return false;
}

// Waits for a datagram and answers it. The time to wait is select()'s own record, which keeps what is
// left of it. Returns the pause that follows, in milliseconds.
uint32_t SearchRound(int fd, timeval* timeout, SearchBuffers* buffers)
{
    fd_set readable;
    fd_set writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_SET(fd, &readable);
    FD_SET(fd, &writable);
    if (select(fd + 1, &readable, &writable, nullptr, timeout) <= 0)
        return kNothingReadyPauseMs;
    if (!FD_ISSET(fd, &readable))
        return kRoundPauseMs; // an idle socket is writable at once, and the pause is the period
    const int length = ReceiveDatagram(fd, buffers);
    if (length < 0)
        return kNoPause;
    const int replyLen = AnswerDatagram(fd, length, buffers);
    if (replyLen > 0 && FD_ISSET(fd, &writable) && !Broadcast(fd, buffers->reply, replyLen))
        return kNoPause;
    return kRoundPauseMs;
}

} // namespace

UniqueFd CreateBroadcastSocket()
{
    // Closed in what the server executes, or a command that it started would keep the port.
    UniqueFd searchSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!searchSocket.isValid()) {
        LogError("%s %s %d:Create socket err. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    const int on = 1;
    if (setsockopt(searchSocket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        LogError("%s %s %d: setsockopt error. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    const sockaddr_in all = SearchAddress(INADDR_ANY);
    if (bind(searchSocket.get(), reinterpret_cast<const sockaddr*>(&all), sizeof all) != 0) {
        LogError("%s %s %d: Bind error. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    LogTrace("CreateBroadcastSocket success %d\n", searchSocket.get());
    return searchSocket;
}

void* DevSearchThread(void* argument)
{
    static SearchBuffers buffers; // of one thread at a time: a run's is waited for before the next
    const SearchTask& task = *static_cast<const SearchTask*>(argument);
    const UniqueFd searchSocket(task.fd);
    // One record for all rounds, as the listener has one.
    timeval timeout{.tv_sec = 1, .tv_usec = 5000};
    bool hasFailed = false;
    while (IsNetworkRun(task.run)) {
        const uint32_t pauseMs = SearchRound(task.fd, &timeout, &buffers);
        // The next datagram is tried at once after a failure, but a socket that goes on failing must not
        // eat the processor: a flood that cannot be answered for want of a route, for one.
        const bool failsAgain = pauseMs == kNoPause && hasFailed;
        hasFailed = pauseMs == kNoPause;
        SleepMs(failsAgain ? kNothingReadyPauseMs : pauseMs);
    }
    LogTrace("%s %d: Thread end!\n", __func__, __LINE__);
    return nullptr;
}
