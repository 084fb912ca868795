#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

#include "bench/committed_ratios.h"
#include "bench/media_figures.h"
#include "bench/process_under_test.h"

TEST(Figures, AreRankedSummedAndRead)
{
    const std::vector<double> values = {4, 1, 3, 2};
    EXPECT_TRUE(Percentile({}, 0.5) == 0 && Percentile({7}, 0.01) == 7 && Percentile(values, 1) == 4);
    EXPECT_TRUE(Percentile(values, 0.5) == 2 && Percentile(values, 0.51) == 3 && Median({9, 1, 5, 6}) == 5.5);
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

// A full run in small: at 4 Mbit/s one and fifteen watchers, of which each costs the server 2 and the RTSP
// server 4 ms a second in the median.
static std::vector<MediaCase> TwoCases()
{
    const auto cpu = [](double ms) { return MediaFigures{.servingMsPerSecond = ms}; };
    std::vector<MediaCase> cases{{.mbitPerSecond = 4, .watchers = 1}, {.mbitPerSecond = 4, .watchers = 15}};
    cases[0].repeats[0] = {cpu(10), cpu(20), cpu(10)};
    cases[1].repeats[0] = {cpu(38), cpu(34), cpu(80)};
    cases[0].repeats[1] = {cpu(10)};
    cases[0].repeats[2] = {cpu(10), cpu(0), cpu(5)};
    cases[1].repeats[2] = {cpu(66), cpu(56), cpu(6)};
    return cases;
}

TEST(Figures, AreJudgedAndComparedWithCommittedOnes)
{
    const std::vector<MediaCase> cases = TwoCases();
    EXPECT_EQ(CpuPerAddedWatcher(cases, 4, Program::Server), 2);
    EXPECT_EQ(CpuPerAddedWatcher(cases, 4, Program::Rtsp), 4);
    EXPECT_EQ(CpuPerAddedWatcher(cases, 20, Program::Server), 0);
    const std::vector<Judgement> judged = Judge(cases);
    ASSERT_FALSE(judged.empty());
    EXPECT_STREQ(judged[0].figure, "added_watcher_to_rtsp");
    EXPECT_EQ(judged[0].value, 0.5);
    EXPECT_TRUE(judged[0].IsMet());

    const std::string path = "/tmp/velmora-ratios." + std::to_string(getpid());
    ASSERT_TRUE(WriteCommitted(path, judged));
    EXPECT_TRUE(CompareWithCommitted(path, judged));
    std::vector<Judgement> worse = judged;
    worse[0].value *= 1.2;
    EXPECT_FALSE(CompareWithCommitted(path, worse));
    EXPECT_FALSE(CompareWithCommitted(path, {})); // nothing to compare
    remove(path.c_str());
}
