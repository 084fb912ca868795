#include "server/NetworkAccess.h"

#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>

#include "common/log.h"
#include "common/thread.h"
#include "common/unique_fd.h"
#include "protocol/send_mutex.h"
#include "server/device_search.h"
#include "server/idle_detector.h"
#include "server/listener.h"
#include "server/network_state.h"
#include "server/receive_thread.h"

namespace {

constexpr char kFileName[] = "NetworkAccess.c";
constexpr int kListenBacklog = 256;

// Used by the thread that starts and stops the network alone. Listener and search read their tasks,
// which are not written again before they were waited for.
struct Network {
    bool isStarted;
    bool hasListener;
    bool hasReceiver;
    bool hasSearch;
    pthread_t listener;
    pthread_t receiver;
    pthread_t search;
    ListenerTask listenerTask;
    SearchTask searchTask;
};
Network g_network;

// The socket, bound to the port on all addresses, or an empty one.
UniqueFd CreateTcpSocket(uint16_t port)
{
    UniqueFd tcpSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!tcpSocket.isValid()) {
        LogError("%s %s %d: Create socket error. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    const int on = 1;
    if (setsockopt(tcpSocket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        LogError("%s %s %d: Set SO_REUSEADDR error. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    if (bind(tcpSocket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        LogError("%s %s %d: Bind error. errno = %d\n", kFileName, __func__, __LINE__, errno);
        return {};
    }
    LogTrace("create tcp connect success %d,start listen...\n", tcpSocket.get());
    return tcpSocket;
}

// Returns 0, or -1 when the socket cannot listen.
int ListenTcpSocket(int fd)
{
    if (listen(fd, kListenBacklog) == 0)
        return 0;
    LogError("%s %s %d: Start listen error. errno = %d\n", kFileName, __func__, __LINE__, errno);
    return -1;
}

// Whether the thread was started; the log says so when it was not.
bool Start(const char* name, ThreadBody* body, void* argument, pthread_t* handle)
{
    const int error = handle != nullptr ? StartThread(name, body, argument, handle)
                                        : StartDetachedThread(name, body, argument);
    if (error != 0)
        LogError("%s %s %d: Start thread '%s' error. errno = %d\n", kFileName, __func__, __LINE__, name,
                 error);
    return error == 0;
}

void StartListener(uint32_t run, uint16_t port)
{
    UniqueFd tcpSocket = CreateTcpSocket(port);
    if (!tcpSocket.isValid() || ListenTcpSocket(tcpSocket.get()) != 0)
        return;
    g_network.listenerTask = {.run = run, .fd = tcpSocket.get()};
    g_network.hasListener =
        Start("ListenSocketThread", ListenSocketThread, &g_network.listenerTask, &g_network.listener);
    if (g_network.hasListener)
        (void)tcpSocket.release(); // the listener closes it
}

void StartSearch(uint32_t run)
{
    UniqueFd searchSocket = CreateBroadcastSocket();
    if (!searchSocket.isValid())
        return;
    g_network.searchTask = {.run = run, .fd = searchSocket.get()};
    g_network.hasSearch = Start("DevSearchThread", DevSearchThread, &g_network.searchTask, &g_network.search);
    if (g_network.hasSearch)
        (void)searchSocket.release(); // the search thread closes it
}

void WaitFor(bool* isStarted, pthread_t handle)
{
    if (*isStarted)
        pthread_join(handle, nullptr);
    *isStarted = false;
}

} // namespace

int StartNetwork(uint16_t port)
{
    if (g_network.isStarted)
        return 0;
    const uint32_t run = BeginNetworkRun();
    g_network.isStarted = true;
    CreateSendMutex();
    if (port != 0)
        StartListener(run, port);
    void* const runArgument = reinterpret_cast<void*>(static_cast<uintptr_t>(run));
    g_network.hasReceiver =
        Start("SendRecvSocketThread", SendRecvSocketThread, runArgument, &g_network.receiver);
    (void)Start("VLMFdDetecter", VLMFdDetecter, runArgument, /* handle= */ nullptr); // logged if it failed
    StartSearch(run);
    return 0;
}

int StopNetwork()
{
    if (!g_network.isStarted)
        return 0;
    EndNetworkRun();
    WaitFor(&g_network.hasSearch, g_network.search);
    WaitFor(&g_network.hasListener, g_network.listener);
    WaitFor(&g_network.hasReceiver, g_network.receiver);
    RemoveAllConnections(); // one may have been accepted after the receive thread removed them
    g_network.isStarted = false;
    // The send mutex stays: a media sender may still hold it.
    LogTrace("%s %d: StopNetwork!\n", __func__, __LINE__);
    return 0;
}
