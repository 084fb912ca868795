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
#include "tests/camera/parameter_host.h"

namespace {

using Seconds = std::vector<std::array<uint32_t, 3>>; // states of sources 0, 2 and 3

std::mutex g_mutex;
std::condition_variable g_called;
thread_local std::vector<uint32_t> g_told; // states told to Note; what polling threads tell is theirs
std::map<uint32_t, int> g_threadsCalls;    // of CallFromThread, by state

void Note(uint32_t kind, uint32_t state, uint32_t state2)
{
    g_told.push_back(kind == 2 && state == state2 ? state : 4711);
}

void CallFromThread(uint32_t, uint32_t state, uint32_t)
{
    const std::lock_guard lock(g_mutex);
    g_threadsCalls[state]++;
    g_called.notify_all();
}

// Plays the seconds through one slot; the state told each second, -1 for none.
std::vector<int> Play(uint32_t slot, const Seconds& seconds)
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
        g_told.clear();
        PollAlarmSlot(record, &poll);
        EXPECT_LE(g_told.size(), 1U);
        told.push_back(g_told.empty() ? -1 : static_cast<int>(g_told[0]));
    }
    return told;
}

TEST(AlarmPolling, CallsWhileAnAlarmLastsAndOnceWhenItEnds)
{
    const Seconds ofMain = {{1, 0, 1}, {0, 1, 0}, {0, 1, 0}, {1, 1, 1}, {0, 0, 0},
                            {0, 0, 0}, {0, 2, 0}, {0, 3, 0}, {0, 0, 0}, {0, 0, 0}};
    const Seconds ofThree = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0},
                             {0, 0, 0}, {1, 1, 1}, {2, 5, 0}, {0, 0, 0}};
    EXPECT_EQ(Play(5, {{0, 1, 0}, {0, 0, 0}}), (std::vector{-1, -1})) << "without a callback";
    for (const uint32_t slot : {0U, 1U, 5U})
        ASSERT_EQ(CameraSetAlarmCallback(slot, Note), 0);
    for (const uint32_t slot : {0U, 5U})
        EXPECT_EQ(Play(slot, ofMain), (std::vector{-1, 1, 1, 1, 0, -1, -1, 3, 0, -1}));
    EXPECT_EQ(Play(1, ofThree), (std::vector{-1, 1, 0, 1, 0, -1, 1, 5, 0})) << "parity of the seconds";
    EXPECT_EQ(CameraSetAlarmCallback(10, Note), -1);
    ClearAlarmCallbacks();
    EXPECT_EQ(Play(0, {{0, 1, 0}}), std::vector{-1});
}

// The threads that the test before started go on through all that happens to the block.
TEST(AlarmPolling, FollowsABlockThatIsMadeAnew)
{
    EXPECT_EQ(libAlarmProcessInit(), 0); // a second time
    const time_t before = time(nullptr);
    for (const auto& [source, status, result] :
         {std::array{9, 1, 0}, {7, 1, 0}, {7, 0, 0}, {10, 1, -1}, {0, 2, -1}})
        EXPECT_EQ(AlarmDataWrite(static_cast<uint32_t>(source), static_cast<uint32_t>(status)), result);
    EXPECT_EQ(AlarmDataRead(nullptr), -1);
    ASSERT_EQ(shmctl(shmget(0x61788C7C, 144, 0), IPC_RMID, nullptr), 0);
    int id;
    while ((id = shmget(0x61788C7C, 144, 0)) < 0) // until no thread holds the old one
        ASSERT_EQ(AlarmDataWrite(9, 1), 0);
    ASSERT_EQ(AlarmDataWrite(9, 1), 0);
    const auto* const words = static_cast<const uint32_t*>(shmat(id, nullptr, SHM_RDONLY));
    EXPECT_EQ(words[18], 1U);
    EXPECT_EQ(words[14], 0U);
    EXPECT_GE(words[15], before);
    shmdt(words);

    ASSERT_EQ(CameraSetAlarmCallback(4, CallFromThread), 0);
    for (const uint32_t state : {1U, 0U}) {
        ASSERT_EQ(AlarmDataWrite(2, state), 0);
        std::unique_lock lock(g_mutex);
        g_called.wait(lock, [&] { return g_threadsCalls[state] > 0; });
    }
    ClearAlarmCallbacks();
}

TEST(StreamCallbacks, AreKeptByType)
{
    StreamCallback* const callback = [](uint32_t, uint32_t, const uint8_t*, int32_t, const DataInfo*) {
        return 0;
    };
    for (const auto& [type, status] : {std::pair(4U, 0), {9U, 0}, {10U, -1}})
        EXPECT_EQ(CameraSetStreamCallback(type, callback), status);
    EXPECT_EQ(GetStreamCallback(4), callback);
    for (const uint32_t none : {8U, 9U, 10U})
        EXPECT_EQ(GetStreamCallback(none), nullptr);
}

} // namespace
