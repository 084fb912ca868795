// What the soak's verdict rests on: its plan, its frames, its reading of the log and its line through the
// memory.

#include <gtest/gtest.h>

#include <set>

#include "bench/soak_frames.h"
#include "bench/soak_health.h"
#include "bench/soak_log.h"
#include "bench/soak_plan.h"

namespace {

TEST(SoakPlan, FollowsFromTheSeedAndBeginsWithEverything)
{
    std::set<Operation> operations[kSoakRecorders];
    std::set<Fault> faults;
    for (uint64_t number = 0; number < kFirstRounds; ++number) {
        const Round round = PlanRound(7, number);
        EXPECT_TRUE(round == PlanRound(7, number));
        EXPECT_FALSE(round == PlanRound(8, number));
        EXPECT_FALSE(PlanRound(7, 100 + number) == PlanRound(7, 101 + number));
        faults.insert(round.fault);
        for (size_t i = 0; i < kSoakRecorders; ++i)
            for (const Step& step : round.steps[i])
                operations[i].insert(step.operation);
    }
    EXPECT_EQ(faults.size(), static_cast<size_t>(Fault::kCount));
    for (const auto& seen : operations)
        EXPECT_EQ(seen.size(), static_cast<size_t>(Operation::kCount));
}

TEST(SoakFrames, AFrameWithAnyOtherByteIsNone)
{
    const FrameMark mark{.number = 26, .epoch = 12345};
    const auto number = [](const std::optional<FrameMark>& seen) { return seen ? seen->number : 0; };
    for (uint32_t stream = 0; stream < kSoakStreams; ++stream) {
        const std::vector<uint8_t> picture = MakePicture(stream, mark), sound = MakeSound(stream, mark);
        EXPECT_EQ(number(CheckPicture(stream, kOtherFrame, picture)), 26U);
        EXPECT_EQ(CheckSound(stream, sound)->epoch, 12345U);
        EXPECT_FALSE(CheckPicture(stream, kKeyFrame, picture));
        EXPECT_FALSE(CheckPicture(1 - stream, kOtherFrame, picture) || CheckSound(1 - stream, sound));
        EXPECT_FALSE(CheckSound(stream, std::span(sound).first(sound.size() - 1)));
        // A changed number or epoch gives another frame's mark, or none; nothing else may pass.
        for (size_t at : {0UL, 4UL, sizeof(FramePrefix), picture.size() / 2, picture.size() - 1}) {
            std::vector<uint8_t> changed = picture;
            changed[at] ^= 1;
            EXPECT_FALSE(CheckPicture(stream, kOtherFrame, changed)) << at;
        }
    }
}

TEST(SoakHealth, TheLineBeginsBehindTheWarmUp)
{
    std::vector<MemoryPoint> points = {{1, 1e9}};
    for (double at = 100; at <= 1000; at += 10)
        points.push_back({at, 5e5 + at * 2 + (static_cast<int>(at / 10) % 2 == 0 ? 4096 : 0)});
    const MemoryTrend trend = FitMemory(points, 100);
    EXPECT_EQ(trend.points, 91U);
    EXPECT_NEAR(trend.growthBytes, 1800, 100);
    EXPECT_NEAR(trend.slopeBytesPerHour, 7200, 400);
    EXPECT_EQ(FitMemory({{1, 1}, {2, 9}}, 2).slopeBytesPerHour, 0); // one point is no line
}

TEST(SoakLog, CountsLinesOfEachSourceByKind)
{
    SoakLog log;
    LogSource output, console;
    log.Add(output, "[Trace]: RemoveFd 1: Remo");
    log.Add(console, "[Warn]: ListenSocketThread 2: Connect over\n[Tra");
    log.Add(output, "ve 0 fd 3\nqueue id:1\nx.cpp:1:2: runtime error: y\n");
    log.Add(console, "ce]: SendAVStream 3: ret11count >= 200\n");
    EXPECT_EQ(log.Kinds(), (std::map<std::string, uint64_t>{
                               {"[Trace]", 2}, {"[Warn] ListenSocketThread", 1}, {"other", 2}}));
    EXPECT_EQ(log.Complaints().size(), 1U);
    EXPECT_EQ(log.SlowReaders(), 1U);
}

} // namespace
