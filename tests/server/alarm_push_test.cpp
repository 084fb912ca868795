#include "server/alarm_push.h"

#include <pthread.h>

#include <cerrno>
#include <functional>
#include <future>
#include <thread>

#include "protocol/send_mutex.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

namespace {

std::function<int(pthread_mutex_t*)> g_timedLock; // what a wait for the send mutex comes to

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

// Another thread's media message, whose first piece has gone to the watcher.
struct MessageUnderWay {
    explicit MessageUnderWay(const Subscriber& watching) NO_THREAD_SAFETY_ANALYSIS : watcher(watching)
    {
        CreateSendMutex();
        MutexLock(&g_sendMutex);
        EXPECT_EQ(send(watcher.fd(), "a piece, ", 9, 0), 9);
    }
    void End() const NO_THREAD_SAFETY_ANALYSIS
    {
        EXPECT_EQ(send(watcher.fd(), "the rest", 8, 0), 8);
        MutexUnlock(&g_sendMutex);
    }
    const Subscriber& watcher;
};

TEST_F(AlarmPush, WaitsForAMediaMessageThatIsOnItsWayAndLetsNobodyElseWait)
{
    const Subscriber watching(kFdMainStream), later;
    for (const bool isEndedInTime : {true, false}) {
        SCOPED_TRACE(isEndedInTime);
        const MessageUnderWay media(watching);
        std::promise<void> waits;
        std::promise<void> ended;
        std::string laterGot;
        g_timedLock = [&](pthread_mutex_t* mutex) {
            laterGot = later.Received();
            waits.set_value();
            ended.get_future().wait();
            return isEndedInTime ? pthread_mutex_lock(mutex) : ETIMEDOUT;
        };
        std::thread polling([] { AlarmCallbackFunc(2, 1, 1); });
        waits.get_future().wait();
        if (isEndedInTime)
            media.End();
        ended.set_value();
        polling.join();
        if (!isEndedInTime)
            media.End();
        const std::string got = watching.Received();
        EXPECT_EQ(got.substr(0, 17), "a piece, the rest");
        EXPECT_EQ(got.substr(17, 2), isEndedInTime ? "\xFF\x01" : "");
        EXPECT_EQ(laterGot.substr(0, 2), "\xFF\x01");
        EXPECT_EQ(log.Has("media keep fd"), !isEndedInTime);
    }
    EXPECT_EQ(GetNextSeqnum(watching.fd()), 1U); // no number is lost with a missed message
}

} // namespace

extern "C" int __wrap_pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until);
extern "C" int __wrap_pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec*)
{
    return g_timedLock(mutex);
}
