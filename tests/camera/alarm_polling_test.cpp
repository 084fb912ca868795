#include "camera/alarm_polling.h"

#include <gtest/gtest.h>
#include <sys/shm.h>

#include <array>
#include <atomic>
#include <ctime>
#include <string>

#include "camera/camera_commands.h"
#include "camera/stream_callbacks.h"
#include "tests/camera/camera_setup.h"

namespace {

thread_local std::string g_told;            // states told to Note; what polling threads tell is theirs
std::atomic<uint32_t> g_threadsState{4711}; // told by one of them last

void Note(uint32_t kind, uint32_t state, uint32_t state2)
{
    g_told += kind == 2 && state == state2 ? std::to_string(state) : "wrong";
}

// Plays seconds, each the states of sources 0, 2 and 3, through one slot; what is told in each, - for none.
std::string Play(uint32_t slot, const std::string& seconds)
{
    AlarmPoll poll{slot, false, 0};
    std::string told;
    for (size_t i = 0; i < seconds.size(); i += 4) {
        AlarmRecord record{};
        for (AlarmEntry& other : record.source)
            other = {1, 99}; // no slot watches these
        for (const auto& [source, digit] : {std::pair(0, i), {2, i + 1}, {3, i + 2}})
            record.source[source].ulStatus = static_cast<uint32_t>(seconds[digit] - '0');
        g_told.clear();
        PollAlarmSlot(record, &poll);
        told += g_told.empty() ? "-" : g_told;
    }
    return told;
}

TEST(AlarmPolling, CallsWhileAnAlarmLastsAndOnceWhenItEnds)
{
    EXPECT_EQ(Play(5, "010 000"), "--") << "without a callback";
    for (const uint32_t slot : {0U, 1U, 5U})
        ASSERT_EQ(CameraSetAlarmCallback(slot, Note), 0);
    for (const uint32_t slot : {0U, 5U})
        EXPECT_EQ(Play(slot, "101 010 010 111 000 000 020 030 000 000"), "-1110--30-");
    EXPECT_EQ(Play(1, "000 100 010 001 000 000 111 250 000"), "-1010-150") << "parity of the seconds";
    EXPECT_EQ(CameraSetAlarmCallback(10, Note), -1);
    ClearAlarmCallbacks();
    EXPECT_EQ(Play(0, "010"), "-");
}

// The threads that the test before started go on through all that happens to the block.
TEST(AlarmPolling, FollowsABlockThatIsMadeAnew)
{
    EXPECT_EQ(libAlarmProcessInit(), 0); // a second time
    const time_t before = time(nullptr);
    for (const auto& [source, status, result] : {std::array{7, 1, 0}, {7, 0, 0}, {10, 1, -1}, {0, 2, -1}})
        EXPECT_EQ(AlarmDataWrite(static_cast<uint32_t>(source), static_cast<uint32_t>(status)), result);
    ASSERT_EQ(shmctl(shmget(0x61788C7C, 144, 0), IPC_RMID, nullptr), 0);
    int id;
    while ((id = shmget(0x61788C7C, 144, 0)) < 0) // until no thread holds the old one
        ASSERT_EQ(AlarmDataWrite(9, 1), 0);
    for (int life = 0; life < 2; life++) { // the first of which somebody still holds in the second
        ASSERT_EQ(AlarmDataWrite(9, 1), 0);
        const auto* const words = static_cast<const uint32_t*>(shmat(id, nullptr, SHM_RDONLY));
        EXPECT_EQ(words[18], 1U);
        EXPECT_EQ(words[14], 0U);
        EXPECT_GE(words[15], before);
        ASSERT_EQ(shmctl(id, IPC_RMID, nullptr), 0);
        ASSERT_GE(id = shmget(0x61788C7C, 144, IPC_CREAT | 0777), 0);
    }
    const auto callFromThread = [](uint32_t, uint32_t state, uint32_t) {
        g_threadsState = state;
        g_threadsState.notify_all();
    };
    ASSERT_EQ(CameraSetAlarmCallback(4, callFromThread), 0);
    for (const uint32_t state : {1U, 0U}) {
        ASSERT_EQ(AlarmDataWrite(2, state), 0);
        for (uint32_t told; (told = g_threadsState) != state;)
            g_threadsState.wait(told);
    }
    ClearAlarmCallbacks();
}

TEST(StreamCallbacks, AreKeptByType)
{
    const auto callback = [](uint32_t, uint32_t, const uint8_t*, int32_t, const DataInfo*) { return 0; };
    EXPECT_EQ(CameraSetStreamCallback(4, callback), 0);
    EXPECT_EQ(CameraSetStreamCallback(10, callback), -1);
    EXPECT_EQ(GetStreamCallback(4), static_cast<StreamCallback*>(callback));
    for (const uint32_t none : {8U, 9U, 10U})
        EXPECT_EQ(GetStreamCallback(none), nullptr);
}

} // namespace
