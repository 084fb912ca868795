#include "server/NetworkAccess.h"

#include <arpa/inet.h>
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

// A socket that is bound to the port on loopback and listens, or one that is connected to it; empty when
// that fails.
UniqueFd OpenSocket(uint16_t port, decltype(connect)* join)
{
    UniqueFd fd(socket(AF_INET, SOCK_STREAM, 0));
    const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    if (join(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fd.reset();
    else if (join == bind)
        listen(fd.get(), 8);
    return fd;
}

// What arrives first; "end" when the connection ends, "" when nothing comes in ten seconds.
std::string Receive(int fd)
{
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, 10000) != 1)
        return "";
    char bytes[1000];
    const ssize_t length = recv(fd, bytes, sizeof bytes, 0);
    return length > 0 ? std::string(bytes, static_cast<size_t>(length)) : "end";
}

void ExpectKeepaliveReply(int fd)
{
    send(fd, MakeRequest(1006).data(), kHeaderBytes, MSG_NOSIGNAL);
    EXPECT_TRUE(Receive(fd).ends_with(R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x00000000"})"));
}

// Leaves no thread of the network behind: the detectors end by themselves within two seconds.
class Network : public testing::Test {
  protected:
    Network() { SetMessageCallback(ProtocolNetworkProcess); }
    ~Network() override
    {
        StopNetwork();
        EXPECT_TRUE(WaitUntil([&] { return EndedDetectors() == starts_; }));
        SetMessageCallback(nullptr);
    }
    void Start(uint16_t port)
    {
        ++starts_;
        EXPECT_EQ(StartNetwork(port), 0);
    }
    [[nodiscard]] int EndedDetectors() const { return log.Count("VLMFdDetecter N: Thread end!\n"); }
    CapturedOutput log;

  private:
    int starts_ = 0;
};

TEST_F(Network, ServesStopsAndStartsAgain)
{
    Start(kPort);
    const UniqueFd recorder = OpenSocket(kPort, connect);
    ExpectKeepaliveReply(recorder.get());
    {
        const ConnectionHold accepted(0);
        const int fd = accepted.entry().fd;
        int isSentAtOnce = 0;
        socklen_t length = sizeof isSentAtOnce;
        getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &isSentAtOnce, &length);
        EXPECT_NE(isSentAtOnce, 0);
        EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    }
    StopNetwork();
    EXPECT_EQ(GetConnectCount(), 0);
    EXPECT_EQ(Receive(recorder.get()), "end");
    EXPECT_FALSE(OpenSocket(kPort, connect).isValid());
    for (const char* line : {"create tcp connect success ", "ListenSocketThread N: Thread end!",
                             "SendRecvSocketThread N: Thread end!", "StopNetwork N: StopNetwork!"})
        EXPECT_TRUE(log.Has(line)) << line;
    // Started again before the first idle detector has looked: it must end all the same.
    Start(kPort);
    EXPECT_TRUE(WaitUntil([&] { return EndedDetectors() == 1; }));
    const UniqueFd next = OpenSocket(kPort, connect);
    ExpectKeepaliveReply(next.get());
    send(next.get(), "!", 1, MSG_OOB); // urgent data is the exception that TCP has
    EXPECT_EQ(Receive(next.get()), "end");
    EXPECT_TRUE(log.Has("[Warn]: SendRecvSocketThread N fd exception: fd = "));
}

// Answers with as many bytes as the header announces for the body.
int AnswerAtLength(int, const uint8_t* request, int requestLen, uint8_t*, int* replyLen)
{
    LogTrace("got %d, then %d\n", requestLen, request[requestLen]);
    *replyLen = static_cast<int>(ReadHeader(request, kHeaderBytes).ulBodyLength);
    return 0;
}

TEST_F(Network, SearchGoesOnWhateverComesAndStartsAgain)
{
    const sockaddr_in address{AF_INET, htons(kSearchPort), {}, {}};
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    SetMessageCallback(AnswerAtLength);
    for (const int round : {1, 2}) {
        Start(0);
        for (const auto& [bytes, answered] :
             {std::pair{0U, 0U}, {5U, 0U}, {1024U, 1024U}, {65000U, 1025U}, {20U, 1U}}) {
            uint8_t datagram[65000]{};
            StoreLe(datagram + offsetof(MessageHeader, ulBodyLength), answered);
            sendto(fd.get(), datagram, bytes, 0, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
        // A broadcast finds no route here.
        EXPECT_TRUE(WaitUntil([&] { return log.Count("DevSearchThread N:sendto faild\n") == 2 * round; }));
        EXPECT_EQ(log.Count("got 1024, then 0\n"), 2 * round); // one of them was longer
        EXPECT_EQ(log.Count(" of 1025 bytes exceeds a datagram's 1024, not sent\n"), round);
        StopNetwork();
        EXPECT_EQ(log.Count("DevSearchThread N: Thread end!\n"), round);
    }
}

TEST(Listener, PausesWhenNothingIsPendingAndClosesWhatSelectCannotWatch)
{
    const UniqueFd listener = OpenSocket(kPort + 2, bind);
    timeval timeout{};
    EXPECT_EQ(ListenerStep(listener.get(), &timeout), 20U);
    const UniqueFd recorder = OpenSocket(kPort + 2, connect);
    const rlimit limit{.rlim_cur = 2 * FD_SETSIZE, .rlim_max = 2 * FD_SETSIZE};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<UniqueFd> fillers;
    do
        fillers.emplace_back(dup(listener.get()));
    while (fillers.back().get() < FD_SETSIZE - 1);
    timeout.tv_sec = 10;
    EXPECT_EQ(ListenerStep(listener.get(), &timeout), 0U);
    EXPECT_EQ(Receive(recorder.get()), "end");
    EXPECT_EQ(GetConnectCount(), 0);
}

} // namespace
