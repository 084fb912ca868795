#include "camera/alarm_polling.h"

#include <gtest/gtest.h>
#include <sys/shm.h>

#include <array>
#include <condition_variable>
#include <ctime>
#include <map>
#include <mutex>

#include "camera/camera_commands.h"
#include "camera/stream_callbacks.h"

namespace {

using Call = std::array<uint32_t, 3>;

std::mutex g_mutex;
std::condition_variable g_called;
thread_local std::vector<Call> g_calls; // of CountCall; what polling threads call is theirs
std::map<uint32_t, int> g_threadsCalls; // of CallFromThread, by state

void CountCall(uint32_t kind, uint32_t state, uint32_t state2)
{
    g_calls.push_back({kind, state, state2});
}

void CallFromThread(uint32_t, uint32_t state, uint32_t)
{
    const std::lock_guard lock(g_mutex);
    g_threadsCalls[state]++;
    g_called.notify_all();
}

// Sets the callback of a slot and starts its polling threads, which find no alarm.
void Register(uint32_t slot, AlarmCallback* callback)
{
    ASSERT_EQ(CameraSetAlarmCallback(slot, callback), 0);
}

// Plays seconds with the states of sources 0, 2 and 3 through one slot; the states told each second, or -1.
std::vector<int> Play(uint32_t slot, const std::vector<std::array<uint32_t, 3>>& seconds)
{
    AlarmPoll poll{slot, false, 0};
    std::vector<int> told;
    for (const auto& states : seconds) {
        AlarmRecord record{};
        for (AlarmEntry& other : record.source)
            other = {1, 99}; // no slot watches these
        record.source[0].ulStatus = states[0];
        record.source[2].ulStatus = states[1];
        record.source[3].ulStatus = states[2];
        g_calls.clear();
        PollAlarmSlot(record, &poll);
        if (g_calls.size() > 1 ||
            (!g_calls.empty() && (g_calls[0][0] != 2 || g_calls[0][1] != g_calls[0][2])))
            told.push_back(-2);
        else
            told.push_back(g_calls.empty() ? -1 : static_cast<int>(g_calls[0][1]));
    }
    return told;
}

class AlarmPolling : public testing::Test {
  protected:
    void TearDown() override { ClearAlarmCallbacks(); }
};

TEST_F(AlarmPolling, CallsWhileAnAlarmLastsAndOnceWhenItEnds)
{
    const std::vector<std::array<uint32_t, 3>> seconds = {{1, 0, 1}, {0, 1, 0}, {0, 1, 0}, {1, 1, 1},
                                                          {0, 0, 0}, {0, 0, 0}, {0, 2, 0}, {0, 3, 0},
                                                          {0, 0, 0}, {0, 0, 0}};
    for (const uint32_t slot : {0U, 5U}) {
        EXPECT_EQ(Play(slot, {{0, 1, 0}, {0, 0, 0}}), (std::vector{-1, -1})) << "without a callback";
        Register(slot, CountCall);
        EXPECT_EQ(Play(slot, seconds), (std::vector{-1, 1, 1, 1, 0, -1, -1, 3, 0, -1}));
    }
}

TEST_F(AlarmPolling, TellsTheParityOfTheSecondsInSlot1)
{
    Register(1, CountCall);
    EXPECT_EQ(Play(1, {{0, 0, 0},
                       {1, 0, 0},
                       {0, 1, 0},
                       {0, 0, 1},
                       {0, 0, 0},
                       {0, 0, 0},
                       {1, 1, 1},
                       {2, 5, 0},
                       {0, 0, 0}}),
              (std::vector{-1, 1, 0, 1, 0, -1, 1, 5, 0}));
}

TEST_F(AlarmPolling, RefusesASlotThatIsNone)
{
    EXPECT_EQ(CameraSetAlarmCallback(10, CountCall), -1);
    EXPECT_EQ(CameraSetAlarmCallback(9, nullptr), 0);
}

// Last of the group: it raises an alarm for the threads that the others started.
TEST_F(AlarmPolling, ThreadsOfSlot4CallItsCallback)
{
    Register(4, CallFromThread);
    ASSERT_EQ(AlarmDataWrite(2, 1), 0);
    std::unique_lock lock(g_mutex);
    g_called.wait(lock, [] { return g_threadsCalls[1] > 0; });
    ASSERT_EQ(AlarmDataWrite(2, 0), 0);
    g_called.wait(lock, [] { return g_threadsCalls[0] > 0; });
}

TEST(AlarmBlock, HoldsTheStatesOfAllSources)
{
    EXPECT_EQ(libAlarmProcessInit(), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(libAlarmProcessInit(), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("libAlarmProcessInit has already init!\n"),
              std::string::npos);
    const time_t before = time(nullptr);
    EXPECT_EQ(AlarmDataWrite(9, 1), 0);
    EXPECT_EQ(AlarmDataWrite(7, 1), 0);
    EXPECT_EQ(AlarmDataWrite(7, 0), 0);
    EXPECT_EQ(AlarmDataWrite(10, 1), -1);
    EXPECT_EQ(AlarmDataWrite(0, 2), -1);
    EXPECT_EQ(AlarmDataRead(nullptr), -1);
    AlarmRecord record;
    EXPECT_EQ(AlarmDataRead(&record), 0);
    EXPECT_EQ(record.source[9].ulStatus, 1U);
    EXPECT_EQ(record.source[7].ulStatus, 0U);
    EXPECT_GE(record.source[7].ulTime, before);

    const int id = shmget(0x61788C7C, 144, 0);
    ASSERT_GE(id, 0);
    const void* const block = shmat(id, nullptr, SHM_RDONLY);
    EXPECT_EQ(memcmp(block, &record, 80), 0);
    shmdt(block);
}

TEST(StreamCallbacks, AreKeptByType)
{
    StreamCallback* const callback = [](uint32_t, uint32_t, const uint8_t*, int32_t, const DataInfo*) {
        return 0;
    };
    EXPECT_EQ(CameraSetStreamCallback(4, callback), 0);
    EXPECT_EQ(CameraSetStreamCallback(9, callback), 0);
    EXPECT_EQ(CameraSetStreamCallback(10, callback), -1);
    EXPECT_EQ(GetStreamCallback(4), callback);
    EXPECT_EQ(GetStreamCallback(8), nullptr);
    EXPECT_EQ(GetStreamCallback(9), nullptr);
}

} // namespace
