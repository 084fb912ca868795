#include <gtest/gtest.h>

#include "bench/frame_pattern.h"
#include "bench/media_figures.h"
#include "bench/process_under_test.h"
#include "media/media_layout.h"

TEST(Figures, AreRankedSummedAndRead)
{
    EXPECT_EQ(Percentile({}, 0.5), 0);
    EXPECT_EQ(Percentile({7}, 0.01), 7);
    EXPECT_EQ(Percentile({4, 1, 3, 2}, 0.5), 2);
    EXPECT_EQ(Percentile({4, 1, 3, 2}, 0.51), 3);
    EXPECT_EQ(Percentile({4, 1, 3, 2}, 1), 4);
    EXPECT_EQ(Median({9, 1, 5, 6}), 5.5);
    const MediaFigures summary = Summarize({{.delayP50Ms = 3, .lostFrames = 1, .damagedFrames = 0},
                                            {.delayP50Ms = 1, .lostFrames = 0, .damagedFrames = 2},
                                            {.delayP50Ms = 2, .lostFrames = 4, .damagedFrames = 1}});
    EXPECT_EQ(summary.delayP50Ms, 2);
    EXPECT_EQ(summary.lostFrames, 5);
    EXPECT_EQ(summary.damagedFrames, 3);
    const std::string status = "nonvoluntary_ctxt_switches:\t34\nvoluntary_ctxt_switches:\t12\n";
    EXPECT_EQ(FieldOf(status, "voluntary_ctxt_switches"), 12U);
    EXPECT_EQ(FieldOf(status, "Pss"), 0U);
}

TEST(FramePattern, EveryGroupHasTheBytesOfItsRate)
{
    for (const uint32_t mbit : {1U, 4U, 20U, 25U}) {
        const FramePattern pattern{.bitsPerSecond = mbit * 1000000};
        double bytes = 0;
        for (uint64_t number = 100; number < 100 + pattern.gopFrames; ++number) {
            bytes += FrameBytes(pattern, number);
            EXPECT_LE(FrameBytes(pattern, number), kMainFrameBytes);
        }
        EXPECT_NEAR(bytes / (mbit * 250000.0), 1, 0.002);
    }
}
