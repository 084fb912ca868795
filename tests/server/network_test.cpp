#include "server/NetworkAccess.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/resource.h>

#include "server/ProtocolAccess.h"
#include "server/listener.h"
#include "server/network_state.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

constexpr uint16_t kPort = 9100;

sockaddr_in LoopbackAddress(uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

// A recorder's connection, or an empty one when nobody listens.
UniqueFd Connect(uint16_t port)
{
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = LoopbackAddress(port);
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fd.reset();
    return fd;
}

UniqueFd ListenOn(uint16_t port)
{
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address = LoopbackAddress(port);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd.get(), 8), 0);
    return fd;
}

// The first bytes that arrive; empty when the connection ends, or nothing comes in ten seconds.
std::string Receive(int fd)
{
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    char bytes[1000];
    if (poll(&waiting, 1, 10000) != 1)
        return "";
    const ssize_t length = recv(fd, bytes, sizeof bytes, 0);
    return length > 0 ? std::string(bytes, static_cast<size_t>(length)) : std::string();
}

bool HasEnded(int fd)
{
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    char byte;
    return poll(&waiting, 1, 10000) == 1 && recv(fd, &byte, 1, 0) <= 0;
}

std::string KeepaliveReply(int fd)
{
    const auto request = MakeRequest(1006);
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);
    const std::string reply = Receive(fd);
    return reply.size() > kHeaderBytes ? reply.substr(kHeaderBytes) : reply;
}

constexpr char kKeepalive[] = R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x00000000"})";
constexpr char kDetectorEnd[] = "[Trace]: VLMFdDetecter N: Thread end!\n";

size_t Count(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// Leaves no thread of the network behind: the detectors end by themselves within two seconds.
class Network : public testing::Test {
  protected:
    Network() { SetMessageCallback(ProtocolNetworkProcess); }
    ~Network() override
    {
        StopNetwork();
        EXPECT_TRUE(WaitUntil([&] { return Count(log.Lines(), kDetectorEnd) == starts_; }));
        SetMessageCallback(nullptr);
    }
    void Start(uint16_t port)
    {
        ++starts_;
        EXPECT_EQ(StartNetwork(port), 0);
    }
    CapturedOutput log;

  private:
    size_t starts_ = 0;
};

TEST_F(Network, ServesStopsAndStartsAgain)
{
    Start(kPort);
    EXPECT_TRUE(log.Has("[Trace]: create tcp connect success "));
    const UniqueFd recorder = Connect(kPort);
    EXPECT_EQ(KeepaliveReply(recorder.get()), kKeepalive);
    EXPECT_TRUE(log.Has("[Trace]: ListenSocketThread N : A stupid connect!ip = 127.0.0.1, port = "));
    {
        const ConnectionHold accepted(0);
        const int fd = accepted.entry().fd;
        int value = 0;
        socklen_t length = sizeof value;
        getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &value, &length);
        EXPECT_NE(value, 0);
        EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        sockaddr_in own{};
        length = sizeof own;
        getsockname(recorder.get(), reinterpret_cast<sockaddr*>(&own), &length);
        EXPECT_EQ(accepted.entry().port, own.sin_port); // as it stands in the address
        EXPECT_STREQ(accepted.entry().ip, "127.0.0.1");
        EXPECT_EQ(accepted.entry().fd_type, -1);
    }

    StopNetwork();
    EXPECT_EQ(GetConnectCount(), 0);
    EXPECT_TRUE(HasEnded(recorder.get()));
    EXPECT_FALSE(Connect(kPort).isValid());
    for (const char* line : {"ListenSocketThread N: Thread end!", "SendRecvSocketThread N: Thread end!",
                             "StopNetwork N: StopNetwork!"})
        EXPECT_TRUE(log.Has(line)) << line;

    // Started again before the first idle detector has looked: it must end all the same.
    Start(kPort);
    EXPECT_EQ(KeepaliveReply(Connect(kPort).get()), kKeepalive);
    EXPECT_TRUE(WaitUntil([&] { return log.Has(kDetectorEnd); }));
    EXPECT_EQ(KeepaliveReply(Connect(kPort).get()), kKeepalive);
}

TEST_F(Network, TheSeventeenthConnectionWaitsUntilASlotIsFree)
{
    Start(kPort);
    std::vector<UniqueFd> recorders;
    for (int i = 0; i < kMaxConnections; ++i) {
        recorders.push_back(Connect(kPort));
        EXPECT_EQ(KeepaliveReply(recorders.back().get()), kKeepalive);
    }
    const UniqueFd waiting = Connect(kPort);
    EXPECT_TRUE(WaitUntil([&] { return Count(log.Lines(), ": Connect over MAX_CONNECT_NUM") >= 2; }));
    EXPECT_EQ(GetConnectCount(), 16);
    recorders[5].reset();
    EXPECT_EQ(KeepaliveReply(waiting.get()), kKeepalive);
    EXPECT_EQ(GetConnectCount(), 16);
}

TEST_F(Network, GoesOnWithoutAListener)
{
    constexpr uint16_t kTakenPort = kPort + 3;
    const UniqueFd occupant = ListenOn(kTakenPort);
    for (const uint16_t port : {kTakenPort, uint16_t{0}}) {
        SCOPED_TRACE(port);
        const TestConnection connection; // the receive thread serves whatever stands in the table
        Start(port);
        EXPECT_EQ(StartNetwork(port), 0); // already started: nothing happens
        connection.Send(MakeRequest(1006));
        EXPECT_EQ(Receive(connection.peer()).substr(kHeaderBytes), kKeepalive);
        StopNetwork();
        EXPECT_TRUE(HasEnded(connection.peer()));
    }
    EXPECT_EQ(Count(log.Lines(), "[Error]: NetworkAccess.c CreateTcpSocket N: Bind error. errno = 98\n"), 1U);
    EXPECT_FALSE(log.Has("ListenSocketThread"));
}

TEST(Listener, ClosesWhatSelectCannotWatch)
{
    const UniqueFd listener = ListenOn(kPort + 1);
    std::vector<UniqueFd> fillers;
    const rlimit limit{.rlim_cur = 2 * FD_SETSIZE, .rlim_max = 2 * FD_SETSIZE};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const UniqueFd recorder = Connect(kPort + 1);
    do
        fillers.emplace_back(dup(listener.get()));
    while (fillers.back().get() < FD_SETSIZE - 1);
    const CapturedOutput log; // its own descriptors take the next numbers
    timeval timeout{.tv_sec = 10, .tv_usec = 0};
    EXPECT_EQ(ListenerStep(listener.get(), &timeout), 0U);
    EXPECT_TRUE(HasEnded(recorder.get()));
    EXPECT_EQ(GetConnectCount(), 0);
    EXPECT_TRUE(log.Has("is beyond what select() can watch"));
}

TEST(Listener, PausesWhenNothingIsPendingAndWhenAcceptFails)
{
    UniqueFd listener = ListenOn(kPort + 2);
    timeval timeout{.tv_sec = 0, .tv_usec = 0};
    EXPECT_EQ(ListenerStep(listener.get(), &timeout), 20U);
    const UniqueFd connected = Connect(kPort + 2); // readable below, but no socket to accept from
    const UniqueFd accepted(accept(listener.get(), nullptr, nullptr));
    send(connected.get(), "x", 1, 0);
    const CapturedOutput log;
    timeout = {.tv_sec = 10, .tv_usec = 0};
    EXPECT_EQ(ListenerStep(accepted.get(), &timeout), 1000U);
    EXPECT_EQ(log.Lines(), "[Trace]: ListenSocketThread N : A stupid connect!ip = 0.0.0.0, port = 0\n"
                           "[Warn]: ListenSocketThread N: Accept fd < 0\n");
}

} // namespace
