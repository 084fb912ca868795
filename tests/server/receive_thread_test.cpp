#include "server/receive_thread.h"

#include <functional>
#include <memory>

#include "common/clock.h"
#include "server/network_state.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"
#include "tests/server/wrapped.h"

namespace {

using Messages = std::vector<std::string>;

Messages g_messages;                     // what the callback received
std::function<void(int fd)> g_onMessage; // what it does besides

int RecordMessage(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    g_messages.emplace_back(request, request + requestLen);
    EXPECT_EQ(request[requestLen], 0); // whatever lay there before
    if (g_onMessage)
        g_onMessage(fd);
    memcpy(reply, "answer", 6);
    *replyLen = 6;
    return 0;
}

// Runs passes from this thread; nobody else serves the table meanwhile.
class ReceiveThread : public testing::Test {
  protected:
    ReceiveThread() : buffers(std::make_unique<ReceiveBuffers>())
    {
        SetMessageCallback(RecordMessage);
        g_messages.clear();
    }
    ~ReceiveThread() override { g_onMessage = nullptr; }
    uint32_t Pass() { return ReceivePass(buffers.get()); }

    CapturedOutput log;
    std::unique_ptr<ReceiveBuffers> buffers;
};

std::string AsText(const std::vector<uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

// The header of a request whose body is still to come.
std::vector<uint8_t> FirstPart()
{
    auto part = MakeRequest(1006, "{}");
    part.resize(kHeaderBytes);
    return part;
}

TEST_F(ReceiveThread, HandlesAPartByWhatCameWhenItsTimeIsOver)
{
    const TestConnection connection;
    while (send(connection.fd(), "x", 1, MSG_DONTWAIT) > 0) { // select() then has nothing to report
    }
    connection.Send(FirstPart());
    const int64_t begin = MonotonicMs();
    EXPECT_EQ(Pass(), 10U);
    EXPECT_TRUE(WaitUntil([&] {
        Pass();
        EXPECT_LE(g_selectTimeoutUs, 200000);
        return !g_messages.empty();
    }));
    EXPECT_GE(MonotonicMs() - begin, 200);
    connection.Send(MakeRequest(1000)); // the next message stands for itself
    Pass();
    EXPECT_EQ(g_messages, (Messages{AsText(FirstPart()), AsText(MakeRequest(1000))}));
    EXPECT_TRUE(connection.IsInTable()); // its replies are dropped, not the connection
}

TEST_F(ReceiveThread, ReadsMessagesOfEveryLength)
{
    const TestConnection connection;
    for (size_t length = 1; length <= 10241; length++) {
        g_messages.clear();
        connection.Send(std::vector<uint8_t>(length, 'x'));
        Pass();
        ASSERT_EQ(g_messages, Messages{std::string(std::min<size_t>(length, 10240), 'x')});
    }
    Pass();
    EXPECT_EQ(g_messages.back(), "x"); // what one read cannot hold
}

// A header announces more than came: held for the rest, if a message can be so long.
TEST_F(ReceiveThread, HoldsAPartByTheLengthThatItsHeaderAnnounces)
{
    for (const uint32_t announced :
         {0U, 1U, 19U, 20U, 10219U, 10220U, 10221U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        for (const uint32_t came : {0U, 1U, 18U, 19U, 20U, 10218U, 10219U, 10220U}) {
            SCOPED_TRACE(std::to_string(came) + " of " + std::to_string(announced));
            const FakeMonotonic clock((int64_t{1} << 32) - 100); // 2^32 ms are no border
            const TestConnection connection;
            std::vector<uint8_t> message = MakeRequest(1006, std::string(came, 'b'));
            memcpy(message.data() + 16, &announced, sizeof announced);
            g_messages.clear();
            connection.Send(message);
            Pass();
            const bool isHeld = announced <= 10220 && announced > came;
            EXPECT_EQ(g_messages, isHeld ? Messages{} : Messages{AsText(message)});
            if (!isHeld)
                continue;
            g_monotonicMs += 199;
            Pass();
            EXPECT_TRUE(g_messages.empty());
            EXPECT_LE(g_selectTimeoutUs, 1000);
            connection.Send(std::vector<uint8_t>(announced - came + 1, 'r')); // one too many
            Pass();
            message.resize(kHeaderBytes + announced, 'r');
            EXPECT_EQ(g_messages, Messages{AsText(message)});
        }
}

TEST_F(ReceiveThread, HandlesAPartBeforeItsClosedConnectionIsRemoved)
{
    for (const bool isHalfClosed : {true, false}) {
        g_messages.clear();
        TestConnection connection;
        connection.Send(FirstPart());
        Pass();
        g_onMessage = [&](int) { EXPECT_TRUE(connection.IsInTable()); };
        isHalfClosed ? (void)shutdown(connection.peer(), SHUT_WR) : connection.ClosePeer();
        Pass();
        EXPECT_EQ(g_messages.size(), 1U);
        EXPECT_EQ(connection.Received(), isHalfClosed ? "answer" : "");
        EXPECT_FALSE(connection.IsInTable());
        EXPECT_TRUE(log.Has("[Trace]: SendRecvSocketThread N: Command disconnect\n"));
    }
}

TEST_F(ReceiveThread, APartOfARemovedConnectionNeverMeetsAnothersBytes)
{
    const TestConnection removed;
    removed.Send(FirstPart());
    Pass();
    RemoveFd(removed.fd());
    const TestConnection next; // in the same slot
    next.Send(MakeRequest(1000));
    Pass();
    EXPECT_EQ(g_messages, Messages{AsText(MakeRequest(1000))});
    EXPECT_EQ(fcntl(removed.fd(), F_GETFD), -1); // the part let go of the number
}

TEST_F(ReceiveThread, ALateReplyOfARemovedConnectionIsLost)
{
    const TestConnection connection;
    const TestConnection drained; // whose message somebody else reads: no error
    UniqueFd next;
    g_onMessage = [&](int fd) {
        char bytes[100];
        recv(drained.fd(), bytes, sizeof bytes, 0);
        RemoveFd(fd);
        next.reset(socket(AF_INET, SOCK_STREAM, 0));
        EXPECT_NE(next.get(), fd); // nobody can have been given the number
    };
    connection.Send(MakeRequest(1006));
    drained.Send(MakeRequest(1006));
    Pass();
    EXPECT_EQ(g_messages.size(), 1U);
    EXPECT_EQ(connection.Received(), "");
    EXPECT_TRUE(drained.IsInTable());
    EXPECT_EQ(fcntl(connection.fd(), F_GETFD), -1);
    EXPECT_FALSE(log.Has("Command disconnect"));
}

TEST_F(ReceiveThread, DiscardsWhatMediaConnectionsSend)
{
    for (const int32_t type : {1, 2, 3, 4}) {
        SCOPED_TRACE(type);
        const FakeUptime uptime(1000);
        TestConnection media(5, type);
        g_uptime = 1010;
        media.Send(MakeRequest(1006));
        Pass();
        EXPECT_EQ(ConnectionHold(0).entry().last_active, type == 4 ? 1000U : 1010U);
        media.ClosePeer();
        Pass();
        EXPECT_EQ(media.IsInTable(), type == 4); // never read
    }
    EXPECT_TRUE(g_messages.empty());
    EXPECT_TRUE(log.Has("[Trace]: SendRecvSocketThread N: Video disconnect\n"));
}

} // namespace
