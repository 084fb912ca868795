#include "hosts/video_source.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "hosts/test_picture.h"
#include "tests/hosts/clip.h"

namespace {

constexpr size_t kLimit = 0x40000;
constexpr int64_t kFrameUs = 40000;

TEST(VideoSource, PassesAFileThroughAgainAndAgainAndJumpsToKeyFrames)
{
    const Clip clip(25);
    const auto source = OpenVideo(clip.path(), kLimit, 200000);
    EXPECT_EQ(source->facts().usWidth, 64);
    EXPECT_EQ(source->facts().iIFrameInterval, kClipKeyFrameEvery);
    // The frame of the clip that comes instead of the next one.
    const std::map<int, int> jumps = {{30, 10}, {31, 20}, {34, 0}, {36, 10}};
    std::map<int64_t, Bytes> frames;
    int frame = 0;
    for (int i = 0; i < 75; ++i, frame = (frame + 1) % 25) {
        SCOPED_TRACE(i);
        if (jumps.contains(i))
            frame = jumps.at(i);
        FrameTime time{};
        const int64_t dueUs = source->Peek().playUs;
        const AccessUnit unit = source->Take(jumps.contains(i), &time);
        ASSERT_EQ(dueUs, i * kFrameUs) << "nothing drifts, and a jump takes no time";
        ASSERT_EQ(time.playUs, dueUs);
        ASSERT_EQ(time.mediaUs, frame * kFrameUs);
        ASSERT_EQ(unit.keyFrame, frame % kClipKeyFrameEvery == 0);
        ASSERT_EQ(unit.bytes, frames.try_emplace(frame, unit.bytes).first->second) << "the same each time";
    }
}

TEST(VideoSource, EncodesWhatDoesNotFitAndMakesKeyFramesOnDemand)
{
    const Clip clip(25);
    // A limit that the clip's key frames exceed, and the encoder's at a tenth of the bit rate do not.
    FrameTime time{};
    const size_t largest = OpenVideo(clip.path(), kLimit, 0)->Take(true, &time).bytes.size();
    const auto source = OpenVideo(clip.path(), largest - 1, 20000);
    const std::set<int> forced = {0, 3, 4, 30};
    int framesThatFit = 0;
    for (int i = 0; i < 60; ++i) {
        const AccessUnit unit = source->Take(forced.contains(i), &time);
        ASSERT_EQ(time.playUs, i * kFrameUs);
        if (unit.problem != nullptr)
            continue;
        ++framesThatFit;
        ASSERT_LT(unit.bytes.size(), largest);
        ASSERT_TRUE(unit.keyFrame || !forced.contains(i)) << "frame " << i;
        ASSERT_EQ(unit.bytes[4] & 0x1F, unit.keyFrame ? 7 : 1);
    }
    EXPECT_GT(framesThatFit, 50);
}

TEST(TestPicture, LowersItsRateToALimitAndTakesAnySettings)
{
    const auto source = OpenTestPicture({kCodecH264, 64, 64, 20, 100000, 40, 0}, kLimit, 0);
    FrameTime time{};
    source->Take(false, &time);
    std::vector<int32_t> rates;
    while (source->LowerRate()) {
        rates.push_back(source->facts().iFrameRate);
        const int64_t dueUs = source->Peek().playUs;
        EXPECT_TRUE(source->Take(false, &time).keyFrame);
        EXPECT_EQ(source->Peek().playUs, dueUs + 1'000'000 / rates.back());
    }
    EXPECT_EQ(rates, (std::vector<int32_t>{15, 11, 8, 6, 5}));
    for (const int32_t number : {INT32_MIN, 0, INT32_MAX})
        EXPECT_TRUE(OpenTestPicture({kCodecH264, 64, 64, number, number, number, 9}, kLimit, 0)
                        ->Take(false, &time)
                        .keyFrame);
    const StreamFacts unusable[] = {{MediaCodec{4}, 64, 64, 25, 100000, 25, 0},
                                    {kCodecH264, 0, 64, 25, 100000, 25, 0},
                                    {kCodecH265, 65535, 65535, 25, 100000, 25, 0},
                                    {kCodecH264, 65, 64, 25, 100000, 25, 0}};
    for (const StreamFacts& settings : unusable)
        EXPECT_THROW(OpenTestPicture(settings, kLimit, 0), std::runtime_error);
}

} // namespace
