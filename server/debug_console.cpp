#include "server/debug_console.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "common/clock.h"
#include "common/thread.h"
#include "common/unique_fd.h"

// Diagnostics are printed on standard output, not logged: they are to be seen before logging is on, too.

namespace {

constexpr uint16_t kConsolePort = 414;
constexpr char kFileName[] = "libDebugOutput.c";
constexpr int kListenBacklog = 5;
constexpr int kSendBufferBytes = 4 * 1024 * 1024;
constexpr unsigned int kStuckMs = 30 * 1000; // after which a client that takes nothing is cut off
constexpr size_t kReceiveBytes = 10240;

constexpr int kListenWaitMs = 1005;
constexpr int kClientWaitMs = 500;
constexpr uint32_t kPauseMs = 500;
constexpr uint32_t kBusyPauseMs = 200;
constexpr uint32_t kNoClientPauseMs = 200;
constexpr uint32_t kAcceptFailedPauseMs = 1000;

// The client's socket, or -1. It passes the redirection from thread to thread: while there is no client the
// redirection is the listener's, who redirects before it stores one here, then it is the receive thread's.
std::atomic<int> g_client{-1};

struct Redirection {
    int fd; // to which output goes; -1 when it is not redirected
    UniqueFd savedOutput;
    UniqueFd savedError;
};
Redirection g_redirection{.fd = -1, .savedOutput = {}, .savedError = {}};

// A copy that is not inherited by what the server executes.
UniqueFd SaveDescriptor(int fd)
{
    return UniqueFd(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// Ends the connection, also for a command that the server started meanwhile and that writes to it.
void CloseClient(int fd)
{
    shutdown(fd, SHUT_RDWR);
    close(fd);
}

// Lets a standard stream go where another descriptor goes. Another thread that is just opening a file, or a
// signal, may be in the way for a moment.
bool Duplicate(int from, int to)
{
    int result;
    do
        result = dup2(from, to);
    while (result < 0 && (errno == EBUSY || errno == EINTR));
    return result >= 0;
}

// Puts the saved copies back and closes them. Returns false when one could not be put back.
bool PutBack()
{
    const bool isOutputBack = Duplicate(g_redirection.savedOutput.get(), STDOUT_FILENO);
    const bool isErrorBack = Duplicate(g_redirection.savedError.get(), STDERR_FILENO);
    g_redirection.savedOutput.reset();
    g_redirection.savedError.reset();
    return isOutputBack && isErrorBack;
}

// Sends standard output and standard error to the socket, which it takes over. Returns 0; -1 when they are
// redirected already; -4 when that failed and the socket is closed.
int Redirect(int fd)
{
    if (g_redirection.fd >= 0)
        return -1;
    g_redirection.savedOutput = SaveDescriptor(STDOUT_FILENO);
    g_redirection.savedError = SaveDescriptor(STDERR_FILENO);
    if (g_redirection.savedOutput.isValid() && g_redirection.savedError.isValid() &&
        Duplicate(fd, STDOUT_FILENO) && Duplicate(fd, STDERR_FILENO)) {
        g_redirection.fd = fd;
        return 0;
    }
    const int error = errno;
    (void)PutBack(); // what was not redirected is where it was
    errno = error;
    perror("err in dup STDOUT.\n");
    CloseClient(fd);
    return -4;
}

// Returns 0, or -1 when nothing is redirected.
int Restore()
{
    if (g_redirection.fd < 0)
        return -1;
    if (!PutBack())
        printf("err in cacle redirection stdout.");
    CloseClient(g_redirection.fd);
    g_redirection.fd = -1;
    return 0;
}

// What cannot be set is left as it is: the console works all the same.
void SetClientOptions(int fd)
{
    const int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBufferBytes, sizeof kSendBufferBytes);
    (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    (void)setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &kStuckMs, sizeof kStuckMs);
}

// Whether the socket has something to report among these events. Any descriptor number will do.
bool WaitFor(int fd, short events, int timeoutMs, short* reported)
{
    pollfd socket{.fd = fd, .events = events, .revents = 0};
    const bool isReported = poll(&socket, 1, timeoutMs) > 0;
    *reported = socket.revents;
    return isReported;
}

// The same with a time that all calls share: once it is used up, each call only looks, and the pause of an
// idle listener is its period.
bool IsPending(int fd, int* leftMs)
{
    short reported;
    const int64_t fromMs = MonotonicMs();
    const bool isPending = WaitFor(fd, POLLIN, *leftMs, &reported);
    *leftMs = static_cast<int>(std::max<int64_t>(0, *leftMs - (MonotonicMs() - fromMs)));
    return isPending;
}

// Names of the threads in what they print.
constexpr char kListenerName[] = "ListenSocketThread";
constexpr char kReceiverName[] = "SendRecvSocketThread";

// Serves the listening socket once. Returns the pause until the next time.
uint32_t ListenerStep(int listenFd, int* leftMs)
{
    if (!IsPending(listenFd, leftMs))
        return kPauseMs;
    if (g_client.load() > 0)
        return kBusyPauseMs; // the next client waits in the backlog
    printf("%s %d\n", kListenerName, __LINE__);
    sockaddr_in peer{};
    socklen_t peerBytes = sizeof peer;
    const int fd =
        accept4(listenFd, reinterpret_cast<sockaddr*>(&peer), &peerBytes, SOCK_CLOEXEC | SOCK_NONBLOCK);
    char ip[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &peer.sin_addr, ip, sizeof ip);
    printf("%s %d : A stupid connect!ip = %s, port = %d\n", kListenerName, __LINE__, ip, peer.sin_port);
    printf("///////%s %d : ..........fd = %d\n", kListenerName, __LINE__, fd);
    if (fd < 0) {
        printf("%s %d: Accept fd < 0\n", kListenerName, __LINE__);
        return kAcceptFailedPauseMs;
    }
    SetClientOptions(fd);
    if (Redirect(fd) == 0)
        g_client = fd;
    return kPauseMs;
}

void* ListenSocketThread(void* argument)
{
    const auto listenFd = static_cast<int>(reinterpret_cast<intptr_t>(argument));
    printf("%s %d: fd = %d\n", __func__, __LINE__, listenFd);
    for (int leftMs = kListenWaitMs;;)
        SleepMs(ListenerStep(listenFd, &leftMs));
}

// Whether the client is still there. What it sends is discarded.
bool ReadClient(int fd)
{
    char discarded[kReceiveBytes];
    const ssize_t length = recv(fd, discarded, sizeof discarded, 0);
    return length > 0 || (length < 0 && (errno == EAGAIN || errno == EINTR));
}

// Looks after the client once. Returns the pause until the next time.
uint32_t ReceiverStep()
{
    const int fd = g_client.load();
    if (fd < 1)
        return kNoClientPauseMs;
    short reported;
    if (!WaitFor(fd, POLLIN | POLLOUT | POLLPRI, kClientWaitMs, &reported) ||
        (reported & (POLLIN | POLLHUP | POLLERR)) == 0 || ReadClient(fd))
        return kPauseMs;
    (void)Restore(); // always redirected here
    printf("%s %d: Command disconnect\n", kReceiverName, __LINE__);
    g_client = -1;
    return kPauseMs;
}

void* SendRecvSocketThread(void*)
{
    for (;;)
        SleepMs(ReceiverStep());
}

} // namespace

int StartDebugConsole()
{
    (void)signal(SIGPIPE, SIG_IGN);
    return SetupNetwork(kConsolePort);
}

int SetupNetwork(uint16_t port)
{
    const auto fail = [](const char* step, int line, int error) {
        printf("%s %s %d: %s error. errno = %d\n", kFileName, "SetupNetwork", line, step, error);
        return -1;
    };
    UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.isValid())
        return fail("Create socket", __LINE__, errno);
    const int on = 1;
    if (setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        return fail("Set SO_REUSEADDR", __LINE__, errno);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return fail("Bind", __LINE__, errno);
    printf("create tcp connect success %d,start listen...\n", listener.get());
    if (listen(listener.get(), kListenBacklog) != 0)
        return fail("Start listen", __LINE__, errno);
    // The receive thread first: without it a client would never be let go.
    if (const int error = StartDetachedThread("ConsoleReceive", SendRecvSocketThread, nullptr))
        return fail("Start thread", __LINE__, error);
    void* const argument = reinterpret_cast<void*>(static_cast<intptr_t>(listener.get()));
    if (const int error = StartDetachedThread("ConsoleListen", ListenSocketThread, argument))
        return fail("Start thread", __LINE__, error);
    (void)listener.release(); // the listener's from now on
    return 0;
}
