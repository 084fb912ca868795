#include "server/receive_thread.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <functional>
#include <memory>

#include "common/clock.h"
#include "server/ProtocolAccess.h"
#include "server/network_state.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"
#include "tests/server/fakes.h"

namespace {

std::vector<std::string> g_messages;     // what the callback received
std::function<void(int fd)> g_onMessage; // what it does besides

int RecordMessage(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    EXPECT_TRUE(std::all_of(reply, reply + kReplyBytes, [](uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(request[requestLen], 0);
    for (int i = requestLen; i < static_cast<int>(kHeaderBytes); ++i)
        EXPECT_EQ(request[i], 0);
    g_messages.emplace_back(request, request + requestLen);
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
    ~ReceiveThread() override
    {
        g_onMessage = nullptr;
        SetMessageCallback(nullptr);
    }
    uint32_t Pass() { return ReceivePass(buffers.get()); }

    CapturedOutput log;
    std::unique_ptr<ReceiveBuffers> buffers;
};

std::string AsText(const std::vector<uint8_t>& bytes)
{
    return {bytes.begin(), bytes.end()};
}

std::vector<uint8_t> Joined(std::vector<uint8_t> first, const std::vector<uint8_t>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::vector<uint8_t> Slice(const std::vector<uint8_t>& bytes, size_t from, size_t to)
{
    return {bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to)};
}

// Fills what the connection can send, so that it is not writable.
void FillSendBuffer(int fd)
{
    const std::string block(4096, 'x');
    while (send(fd, block.data(), block.size(), MSG_DONTWAIT) > 0) {
    }
}

TEST_F(ReceiveThread, PausesByWhatThereIsToDo)
{
    EXPECT_EQ(Pass(), 100U); // no slot in use
    const TestConnection connection;
    EXPECT_EQ(Pass(), 10U);
    EXPECT_EQ(g_selectTimeoutUs, 1005000);
    EXPECT_TRUE(g_messages.empty());
}

TEST_F(ReceiveThread, TakesOneReadAsOneMessage)
{
    const auto request = MakeRequest(1006, "{}");
    const auto other = MakeRequest(1000, "{}");
    auto longer = MakeRequest(1006, "{}");
    longer[16] = 1; // announces less than came
    auto huge = MakeRequest(1006, "{}");
    huge[18] = 1; // announces more than any message has
    auto beyond = MakeRequest(1006, std::string(10, '{'));
    beyond[16] = 10221 & 0xFF;
    beyond[17] = 10221 >> 8;
    auto foreign = MakeRequest(1006, "{}");
    foreign[0] = 0xFE;
    foreign[16] = 100;
    auto version = MakeRequest(1006, "{}");
    version[1] = 2;
    version[16] = 100;
    const std::vector<uint8_t> cases[] = {request,
                                          Joined(request, other), // the second is ignored
                                          longer,
                                          huge,
                                          beyond,
                                          foreign,
                                          version,
                                          Slice(request, 0, 1),
                                          Slice(request, 0, 19),
                                          MakeRequest(1006, std::string(kMaxBodyBytes, '{'))};
    for (const auto& bytes : cases) {
        SCOPED_TRACE(testing::Message() << bytes.size() << " bytes");
        g_messages.clear();
        FakeUptime uptime(1000);
        const TestConnection connection(0, kFdCommand);
        uptime.Set(1010);
        connection.Send(bytes);
        EXPECT_EQ(Pass(), 10U);
        EXPECT_EQ(g_messages, std::vector<std::string>{AsText(bytes)});
        EXPECT_EQ(connection.Received(), "answer");
        EXPECT_EQ(ConnectionHold(0).entry().last_active, 1010U);
        Pass();
        EXPECT_EQ(g_messages.size(), 1U);
    }
}

TEST_F(ReceiveThread, JoinsARequestThatComesInParts)
{
    const auto request = MakeRequest(1042, R"({"Name":"SystemInfo"})");
    const auto largest = MakeRequest(1040, std::string(kMaxBodyBytes, '{'));
    const struct {
        const char* name;
        std::vector<std::vector<uint8_t>> parts;
        const std::vector<uint8_t>& whole;
    } cases[] = {
        {"AfterTheHeader", {Slice(request, 0, 20), Slice(request, 20, request.size())}, request},
        {"InThree",
         {Slice(request, 0, 21), Slice(request, 21, 22), Slice(request, 22, request.size())},
         request},
        {"SurplusIsIgnored",
         {Slice(request, 0, 25), Joined(Slice(request, 25, request.size()), request)},
         request},
        {"Largest", {Slice(largest, 0, 5000), Slice(largest, 5000, largest.size())}, largest},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        g_messages.clear();
        const TestConnection connection;
        const TestConnection other;
        for (const auto& part : c.parts) {
            EXPECT_TRUE(g_messages.empty());
            connection.Send(part);
            Pass();
        }
        EXPECT_EQ(g_messages, std::vector<std::string>{AsText(c.whole)});
        EXPECT_EQ(connection.Received(), "answer");
        EXPECT_EQ(other.Received(), "");
    }
}

TEST_F(ReceiveThread, HandlesAPartByWhatCameWhenItsTimeIsOver)
{
    const TestConnection connection;
    FillSendBuffer(connection.fd()); // select() then has nothing to report
    const auto part = Slice(MakeRequest(1006, "{}"), 0, 21);
    connection.Send(part);
    const int64_t begin = MonotonicMs();
    EXPECT_EQ(Pass(), 10U);
    EXPECT_TRUE(g_messages.empty());
    ASSERT_TRUE(WaitUntil([&] {
        Pass();
        EXPECT_LE(g_selectTimeoutUs, 200000);
        return !g_messages.empty();
    }));
    EXPECT_GE(MonotonicMs() - begin, 200);
    EXPECT_EQ(g_messages, std::vector<std::string>{AsText(part)});
    EXPECT_TRUE(connection.IsInTable()); // its reply is dropped, not the connection
    g_messages.clear();
    connection.Send(MakeRequest(1000)); // the next message stands for itself
    Pass();
    EXPECT_EQ(g_messages, std::vector<std::string>{AsText(MakeRequest(1000))});
}

TEST_F(ReceiveThread, HandlesAPartBeforeItsClosedConnectionIsRemoved)
{
    TestConnection connection;
    const auto part = Slice(MakeRequest(1006, "{}"), 0, 20);
    connection.Send(part);
    Pass();
    g_onMessage = [&](int) { EXPECT_TRUE(connection.IsInTable()); };
    connection.ClosePeer();
    Pass();
    EXPECT_EQ(g_messages, std::vector<std::string>{AsText(part)});
    EXPECT_FALSE(connection.IsInTable());
    EXPECT_TRUE(log.Has("[Trace]: SendRecvSocketThread N: Command disconnect\n"));
}

TEST_F(ReceiveThread, APartOfARemovedConnectionNeverMeetsAnothersBytes)
{
    const TestConnection removed;
    removed.Send(Slice(MakeRequest(1006, "{}"), 0, 20));
    Pass();
    RemoveFd(removed.fd());
    const TestConnection next; // in the same slot
    EXPECT_NE(next.fd(), removed.fd());
    next.Send(MakeRequest(1000));
    Pass();
    EXPECT_EQ(g_messages, std::vector<std::string>{AsText(MakeRequest(1000))});
    EXPECT_EQ(fcntl(removed.fd(), F_GETFD), -1); // the part let go of the number
}

TEST_F(ReceiveThread, ALateReplyOfARemovedConnectionIsLost)
{
    const TestConnection connection;
    UniqueFd next;
    g_onMessage = [&](int fd) {
        RemoveFd(fd);
        next.reset(socket(AF_INET, SOCK_STREAM, 0));
        EXPECT_NE(next.get(), fd); // nobody can have been given the number
    };
    connection.Send(MakeRequest(1006));
    Pass();
    EXPECT_EQ(g_messages.size(), 1U);
    EXPECT_EQ(connection.Received(), "");
    EXPECT_EQ(fcntl(connection.fd(), F_GETFD), -1);
    EXPECT_FALSE(log.Has("Command disconnect"));
}

TEST_F(ReceiveThread, AReplyThatCannotBeSentRemovesTheConnection)
{
    const TestConnection connection;
    g_onMessage = [](int fd) { shutdown(fd, SHUT_WR); };
    connection.Send(MakeRequest(1006));
    Pass();
    EXPECT_FALSE(connection.IsInTable());
    EXPECT_TRUE(log.Has("[Trace]: SendRecvSocketThread N: Command disconnect\n"));
}

TEST_F(ReceiveThread, AReadThatWouldBlockIsNoError)
{
    const TestConnection first;
    const TestConnection second;
    g_onMessage = [&](int) { // takes away what select() reported on the other connection
        char bytes[100];
        EXPECT_GT(recv(second.fd(), bytes, sizeof bytes, 0), 0);
    };
    first.Send(MakeRequest(1006));
    second.Send(MakeRequest(1006));
    Pass();
    EXPECT_EQ(g_messages.size(), 1U);
    EXPECT_TRUE(second.IsInTable());
}

TEST_F(ReceiveThread, DiscardsWhatMediaConnectionsSend)
{
    for (const int32_t type : {1, 2, 3}) {
        SCOPED_TRACE(type);
        FakeUptime uptime(1000);
        TestConnection media(5, type);
        uptime.Set(1010);
        media.Send(MakeRequest(1006));
        Pass();
        EXPECT_TRUE(g_messages.empty());
        EXPECT_EQ(media.Received(), "");
        EXPECT_EQ(ConnectionHold(0).entry().last_active, 1010U);
        media.ClosePeer();
        Pass();
        EXPECT_FALSE(media.IsInTable());
        EXPECT_TRUE(log.Has("[Trace]: SendRecvSocketThread N: Video disconnect\n"));
    }
    TestConnection unknownType(5, 4);
    unknownType.ClosePeer();
    Pass();
    EXPECT_TRUE(unknownType.IsInTable()); // never read
}

TEST_F(ReceiveThread, AnExceptionalConditionRemovesTheConnection)
{
    const UniqueFd listener(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(bind(listener.get(), generic, length) + listen(listener.get(), 1), 0);
    getsockname(listener.get(), generic, &length);
    const UniqueFd peer(socket(AF_INET, SOCK_STREAM, 0));
    ASSERT_EQ(connect(peer.get(), generic, length), 0);
    const int fd = accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK);
    AddFd(fd, "127.0.0.1", 0, 0);
    EXPECT_EQ(send(peer.get(), "!", 1, MSG_OOB), 1); // urgent data is the exception that TCP has
    EXPECT_TRUE(WaitUntil([&] {
        Pass();
        return GetConnectCount() == 0;
    }));
    EXPECT_TRUE(log.Has("[Warn]: SendRecvSocketThread N fd exception: fd = " + std::to_string(fd) + "\n"));
}

TEST_F(ReceiveThread, ServesTheDispatcherToTheByte)
{
    SetMessageCallback(ProtocolNetworkProcess);
    const TestConnection connection(0x2A, kFdCommand);
    connection.Send(MakeRequest(1006, "", /* session= */ 1, /* seqNum= */ 0x04030201));
    Pass();
    const std::string header("\xFF\x01\0\0\x2A\0\0\0\x01\x02\x03\x04\0\0\xEF\x03\x37\0\0\0", 20);
    EXPECT_EQ(connection.Received(), header + R"({"Name":"KeepAlive","Ret":100,"SessionID":"0x0000002a"})");
    connection.Send(MakeRequest(9999)); // no answer, and the connection stays
    Pass();
    EXPECT_EQ(connection.Received(), "");
    EXPECT_TRUE(connection.IsInTable());
}

} // namespace
