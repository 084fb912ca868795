#include "hosts/video_source.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/hosts/clip.h"

namespace {

constexpr size_t kLimit = 0x40000;
constexpr int64_t kFrameUs = 40000;

struct Played {
    FrameTime time;
    AccessUnit unit;
};

Played Take(VideoSource& source, bool keyFrame)
{
    Played played{};
    const int64_t dueUs = source.Peek().playUs;
    played.unit = source.Take(keyFrame, &played.time);
    EXPECT_EQ(played.time.playUs, dueUs) << "a frame comes when it was announced";
    return played;
}

TEST(VideoSource, PassesAFileThroughAgainAndAgainWithoutDrift)
{
    const Clip clip(25);
    const auto source = OpenVideo(clip.path(), kLimit, 200000);
    EXPECT_EQ(source->facts().usWidth, 64);
    EXPECT_EQ(source->facts().iFrameRate, 25);
    EXPECT_EQ(source->facts().iIFrameInterval, kClipKeyFrameEvery);
    std::vector<Bytes> firstPass;
    for (int i = 0; i < 75; ++i) {
        const Played played = Take(*source, false);
        ASSERT_EQ(played.time.playUs, i * kFrameUs);
        ASSERT_EQ(played.time.mediaUs, i % 25 * kFrameUs);
        ASSERT_EQ(played.unit.keyFrame, i % 25 % kClipKeyFrameEvery == 0);
        if (i < 25)
            firstPass.push_back(played.unit.bytes);
        else
            ASSERT_EQ(played.unit.bytes, firstPass[static_cast<size_t>(i % 25)]);
    }
}

TEST(VideoSource, JumpsToTheNextKeyFrameOrFromTheLastToTheFirst)
{
    const Clip clip(25);
    const auto source = OpenVideo(clip.path(), kLimit, 200000);
    const struct {
        int framesBefore;
        int landsAt; // frame of the clip
    } kJumps[] = {{5, 10}, {0, 20}, {2, 0}, {1, 10}};
    int64_t playUs = 0;
    for (const auto& jump : kJumps) {
        for (int i = 0; i < jump.framesBefore; ++i, playUs += kFrameUs)
            ASSERT_EQ(Take(*source, false).time.playUs, playUs);
        const Played played = Take(*source, true);
        EXPECT_TRUE(played.unit.keyFrame);
        EXPECT_EQ(played.time.playUs, playUs) << "a jump takes no time";
        EXPECT_EQ(played.time.mediaUs, jump.landsAt * kFrameUs);
        playUs += kFrameUs;
    }
}

TEST(VideoSource, EncodesWhatDoesNotFitAndMakesKeyFramesOnDemand)
{
    const Clip large(25);
    // A limit that the clip's key frames exceed, and the encoder's at a tenth of the bit rate do not.
    size_t largest = 0;
    const auto original = OpenVideo(large.path(), kLimit, 0);
    for (int i = 0; i < 25; ++i)
        largest = std::max(largest, Take(*original, false).unit.bytes.size());
    const auto source = OpenVideo(large.path(), largest - 1, 20000);
    const std::set<int> forced = {0, 3, 4, 30};
    int framesThatFit = 0;
    for (int i = 0; i < 60; ++i) {
        const Played played = Take(*source, forced.contains(i));
        ASSERT_EQ(played.time.playUs, i * kFrameUs);
        if (played.unit.problem != nullptr)
            continue;
        ++framesThatFit;
        ASSERT_LT(played.unit.bytes.size(), largest);
        if (forced.contains(i)) {
            ASSERT_TRUE(played.unit.keyFrame) << "frame " << i;
        }
        ASSERT_EQ(played.unit.bytes[4] & 0x1F, played.unit.keyFrame ? 7 : 1);
    }
    EXPECT_GT(framesThatFit, 50);
}

TEST(VideoSource, LeavesOutFramesWhenTheMachineCannotKeepUp)
{
    const Clip clip(25);
    const auto source = OpenVideo(clip.path(), /* frameLimit= */ 600, 200000);
    ASSERT_TRUE(source->LowerRate());
    EXPECT_EQ(source->facts().iFrameRate, 13);
    Take(*source, false);
    const int64_t first = Take(*source, false).time.playUs;
    EXPECT_EQ(Take(*source, false).time.playUs - first, 2 * kFrameUs);
    int lowered = 1;
    while (source->LowerRate())
        ++lowered;
    EXPECT_GE(source->facts().iFrameRate, 2);
    EXPECT_LT(lowered, 60);
    EXPECT_FALSE(OpenVideo(clip.path(), kLimit, 200000)->LowerRate());
}

} // namespace
