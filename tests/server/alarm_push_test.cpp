#include "server/alarm_push.h"

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <thread>

#include "protocol/send_mutex.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

struct Subscriber : TestConnection {
    explicit Subscriber(int32_t type = kFdCommand) : TestConnection(1, type) { SetAlarmFlag(fd(), 1); }
};

class AlarmPush : public testing::Test {
  protected:
    AlarmPush() { StartAlarmPush(); }
    ~AlarmPush() override { StopAlarmPush(); }
    CapturedOutput log;
};

TEST_F(AlarmPush, TellsTheStatusOfTheTwoStatesAloneAndNothingWhenItIsStopped)
{
    const Subscriber subscriber;
    for (const auto& [state, status] :
         {std::pair(0U, R"(\n","Status":"Stop"},)"), {1U, R"(\n","Status":"Start"},)"}, {2U, R"(\n"},)"}}) {
        AlarmCallbackFunc(2, state, state);
        EXPECT_NE(subscriber.Received().find(status), std::string::npos) << state;
    }
    AlarmCallbackFunc(1, 1, 1); // another kind of callback
    StopAlarmPush();
    AlarmCallbackFunc(2, 1, 1);
    EXPECT_EQ(subscriber.Received(), "");
}

TEST_F(AlarmPush, OneWhoDoesNotReadMissesItAndOneWhoIsGoneIsRemoved)
{
    const Subscriber stuck, reading;
    Subscriber gone;
    while (send(stuck.fd(), "some bytes", 10, MSG_DONTWAIT) > 0) {
    }
    gone.ClosePeer();
    AlarmCallbackFunc(2, 1, 1);
    EXPECT_NE(reading.Received(), "");
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
    const Subscriber watching(kFdMainStream);
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
