#include "hosts/alarm_source.h"

#include <cstring>
#include <ctime>

#include "tests/hosts/queue_client.h"

namespace {

TEST(AlarmSource, FollowsItsSchedule)
{
    const auto schedule = MotionScheduleOfText("every=10,for=2.5");
    ASSERT_TRUE(schedule);
    const struct {
        int elapsedMs, atMs;
        bool motion;
    } kRows[] = {{0, 10000, true},      {2400, 10000, true},  {10000, 12500, false},
                 {12499, 12500, false}, {12500, 20000, true}, {20000, 22500, false}};
    for (const auto& row : kRows) {
        const MotionChange next = NextMotionChange(*schedule, std::chrono::milliseconds(row.elapsedMs));
        EXPECT_TRUE(next.at.count() == row.atMs && next.motion == row.motion) << row.elapsedMs;
    }
    for (const char* text :
         {"", "every=10", "every=10,for=10", "every=3,for=10", "every=0,for=0", "every=1,for=0",
          "every=1,for=0.0001", "every=nan,for=1", "every=1e9,for=1", "every=2,for=1s"})
        EXPECT_FALSE(MotionScheduleOfText(text)) << text;
}

TEST(AlarmSource, WritesMotionAsTheSecondSourceAndNothingElse)
{
    constexpr key_t kBlock = 0x61788C7C;
    constexpr size_t kStatus = 16; // u32; the time follows
    const auto start = static_cast<uint32_t>(time(nullptr));
    AlarmSource byHand(std::nullopt);
    byHand.Start();
    uint8_t* const block = AttachSegment(kBlock);
    for (const uint32_t expected : {1U, 0U, 1U}) {
        std::vector<uint8_t> before(block, block + 144);
        byHand.ToggleMotion();
        uint32_t entry[2];
        memcpy(entry, block + kStatus, sizeof entry);
        EXPECT_EQ(entry[0], expected);
        EXPECT_GE(entry[1], start);
        memcpy(before.data() + kStatus, entry, sizeof entry);
        EXPECT_EQ(memcmp(before.data(), block, before.size()), 0);
    }
    AlarmSource again(std::nullopt);
    EXPECT_EQ(block[kStatus], 0) << "each life begins without an alarm";
    shmdt(block);
    byHand.Release(true);
}

} // namespace
