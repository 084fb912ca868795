#include "server/alarm_push.h"

#include <unistd.h>

#include <atomic>
#include <ctime>
#include <fstream>
#include <iterator>
#include <thread>

#include "protocol/send_mutex.h"
#include "server/requests/alarm_requests.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

// The time text as it travels; empty when the second changes meanwhile.
std::string TimeText()
{
    const time_t now = time(nullptr);
    char text[26];
    return std::string(ctime_r(&now, text), 24) + "\\n";
}

// An alarm message to the byte.
std::string Alarm(uint32_t session, uint32_t number, const std::string& time, const std::string& status)
{
    const std::string body = R"({"AlarmInfo":{"Channel":0,"Event":"VideoMotion","StartTime":")" + time + '"' +
                             status + R"(},"Name":"AlarmInfo","SessionID":"0x00000000"})";
    auto header = MakeRequest(1504, body, session, number);
    return {header.begin(), header.end()};
}

struct Subscriber : TestConnection {
    explicit Subscriber(uint32_t session, int32_t type = kFdCommand) : TestConnection(session, type)
    {
        const Answer answer = ExchangeOn(fd(), ProcessAlarmSubscribeReq, MakeRequest(1500));
        EXPECT_EQ(answer.header.usMessageId, 1501);
        EXPECT_TRUE(answer.body.starts_with(R"({"Name":"","Ret":100,"SessionID":"0x0)"));
    }
    void Fill() const
    {
        const std::string bytes(65536, 'x');
        while (send(fd(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
        }
    }
};

class AlarmPush : public testing::Test {
  protected:
    AlarmPush() { StartAlarmPush(); }
    ~AlarmPush() override { StopAlarmPush(); }
    CapturedOutput log;
};

TEST_F(AlarmPush, GoesToSubscribersUnderTheirOwnSessionAndNumber)
{
    const Subscriber first(0x01020304), second(5);
    const TestConnection other(6, kFdCommand);
    (void)GetNextSeqnum(second.fd()); // a media message, say
    std::string time;
    for (int i = 0; time != TimeText(); i += 3) { // again when the second has changed on the way
        ASSERT_LT(i, 30);
        time = TimeText();
        const auto n = static_cast<uint32_t>(i);
        AlarmCallbackFunc(2, 1, 1);
        AlarmCallbackFunc(2, 0, 0);
        AlarmCallbackFunc(2, 7, 7);
        AlarmCallbackFunc(1, 1, 1); // of another kind
        const std::string start = R"(,"Status":"Start")", stop = R"(,"Status":"Stop")";
        const auto all = [&](uint32_t session, uint32_t from) {
            return Alarm(session, from, time, start) + Alarm(session, from + 1, time, stop) +
                   Alarm(session, from + 2, time, "");
        };
        const std::string toFirst = first.Received(), toSecond = second.Received();
        if (time == TimeText()) {
            EXPECT_EQ(toFirst, all(0x01020304, n));
            EXPECT_EQ(toSecond, all(5, n + 1));
        }
    }
    EXPECT_EQ(other.Received(), "");
    EXPECT_EQ(ExchangeOn(second.fd(), ProcessAlarmUnsubscribeReq, MakeRequest(1502)).body,
              R"({"Name":"","Ret":100,"SessionID":"0x00000005"})");
    StopAlarmPush();
    AlarmCallbackFunc(2, 1, 1);
    EXPECT_EQ(first.Received(), "");
    StartAlarmPush();
    AlarmCallbackFunc(2, 1, 1);
    EXPECT_NE(first.Received(), "");
    EXPECT_EQ(second.Received(), "");
}

TEST_F(AlarmPush, OneWhoDoesNotReadMissesItAndOneWhoIsGoneIsRemoved)
{
    const Subscriber stuck(1), reading(3);
    Subscriber gone(2);
    stuck.Fill();
    gone.ClosePeer();
    AlarmCallbackFunc(2, 1, 1);
    EXPECT_EQ(
        ReadHeader(reinterpret_cast<const uint8_t*>(reading.Received().data()), kHeaderBytes).ulSessionId,
        3U);
    EXPECT_FALSE(gone.IsInTable());
    EXPECT_TRUE(stuck.IsInTable());
    EXPECT_EQ(GetNextSeqnum(stuck.fd()), 0U); // no number is lost with a missed message
}

// Whether the thread has nothing to do but to wait.
bool IsWaiting(pid_t thread)
{
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return text.find(") S ") != std::string::npos;
}

TEST_F(AlarmPush, WaitsForTheMediaMessageThatIsOnItsWayToTheReceiver)
{
    CreateSendMutex();
    const Subscriber watching(1, kFdMainStream);
    std::atomic<pid_t> thread{0};
    MutexLock(&g_sendMutex);
    std::thread polling([&] {
        thread = gettid();
        AlarmCallbackFunc(2, 1, 1);
    });
    EXPECT_EQ(send(watching.fd(), "a piece, ", 9, 0), 9);
    // One that did not wait for the mutex would rest only after its send.
    EXPECT_TRUE(WaitUntil([&] { return log.Has("SendAlarmReq N: SendAlarmReqend!") && IsWaiting(thread); }));
    EXPECT_EQ(send(watching.fd(), "the rest", 8, 0), 8);
    MutexUnlock(&g_sendMutex);
    polling.join();
    EXPECT_TRUE(watching.Received().starts_with("a piece, the rest\xFF\x01"));
}

} // namespace
