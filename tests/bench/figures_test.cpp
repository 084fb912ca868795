#include <gtest/gtest.h>

#include "bench/frame_pattern.h"
#include "bench/media_figures.h"
#include "bench/process_under_test.h"
#include "media/media_layout.h"

TEST(Figures, PercentilesAndMedians)
{
    EXPECT_EQ(Percentile({}, 0.5), 0);
    EXPECT_EQ(Percentile({7}, 0.01), 7);
    EXPECT_EQ(Percentile({4, 1, 3, 2}, 0.5), 2);
    EXPECT_EQ(Percentile({4, 1, 3, 2}, 0.51), 3);
    std::vector<double> hundred;
    for (int value = 100; value > 0; --value)
        hundred.push_back(value);
    EXPECT_EQ(Percentile(hundred, 0.99), 99);
    EXPECT_EQ(Percentile(hundred, 1), 100);
    EXPECT_EQ(Median({}), 0);
    EXPECT_EQ(Median({9, 1, 5}), 5);
    EXPECT_EQ(Median({9, 1, 5, 6}), 5.5);
}

TEST(Figures, LossIsSummedAndTheRestIsTheMedian)
{
    const std::vector<MediaFigures> repeats = {{.delayP50Ms = 3, .lostFrames = 1, .damagedFrames = 0},
                                               {.delayP50Ms = 1, .lostFrames = 0, .damagedFrames = 2},
                                               {.delayP50Ms = 2, .lostFrames = 4, .damagedFrames = 1}};
    const MediaFigures summary = Summarize(repeats);
    EXPECT_EQ(summary.delayP50Ms, 2);
    EXPECT_EQ(summary.lostFrames, 5);
    EXPECT_EQ(summary.damagedFrames, 3);
}

TEST(Figures, FieldsOfProcTexts)
{
    const std::string status =
        "Name:\tx\nvoluntary_ctxt_switches:\t12\nnonvoluntary_ctxt_switches:\t34\nRss:     56 kB\n";
    EXPECT_EQ(FieldOf(status, "voluntary_ctxt_switches"), 12U);
    EXPECT_EQ(FieldOf(status, "nonvoluntary_ctxt_switches"), 34U);
    EXPECT_EQ(FieldOf(status, "Rss"), 56U);
    EXPECT_EQ(FieldOf(status, "Pss"), 0U);
}

TEST(FramePattern, EveryGroupHasTheBytesOfItsRate)
{
    for (const uint32_t mbit : {1U, 4U, 20U, 25U}) {
        const FramePattern pattern{.bitsPerSecond = mbit * 1000000};
        const double groupBytes = pattern.bitsPerSecond / 8.0 * 2;
        const double mean = groupBytes / (pattern.gopFrames - 1 + pattern.keyFrameRatio);
        double bytes = 0;
        for (uint64_t number = 100; number < 100 + pattern.gopFrames; ++number) {
            const uint32_t frame = FrameBytes(pattern, number);
            bytes += frame;
            EXPECT_EQ(frame % 4, 0U);
            EXPECT_LE(frame, kMainFrameBytes);
            const bool key = IsKeyFrame(pattern, number);
            EXPECT_NEAR(frame, key ? mean * pattern.keyFrameRatio : mean, key ? 4 : mean * 0.4 + 4);
        }
        EXPECT_NEAR(bytes / groupBytes, 1, 0.002);
    }
}
