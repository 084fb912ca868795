// What `velmora stress` judges by: a checker that must see every byte that is not right, and bounds.

#include <gtest/gtest.h>

#include "recorder/failure.h"
#include "recorder/stress/figures.h"
#include "recorder/stress/media_checker.h"
#include "tests/recorder/fake_camera.h"

namespace {

struct Received {
    MessageHeader header;
    Bytes body;
};

// The messages of session 7: a key frame, a large frame in two messages, an alarm, an audio frame.
std::vector<Received> GoodStream()
{
    const Bytes large = OtherFrame(Bytes(40000, 'x'));
    const std::pair<uint16_t, Bytes> messages[] = {{kMediaData, KeyFrame("key")},
                                                   {kMediaData, large.substr(0, kVideoBodyBytes)},
                                                   {kMediaData, large.substr(kVideoBodyBytes)},
                                                   {kAlarmInfo, "{}"},
                                                   {kMediaData, AudioFrame("a")}};
    std::vector<Received> stream;
    for (const auto& [id, body] : messages) {
        const auto number = static_cast<uint32_t>(stream.size());
        const auto length = static_cast<uint32_t>(body.size());
        const uint8_t isMedia = id == kMediaData ? 1 : 0;
        stream.push_back({{kHeadFlag, kVersion, {isMedia, 0}, 7, number, {}, id, length}, body});
    }
    return stream;
}

uint64_t CountFaults(const std::vector<Received>& stream)
{
    MediaChecker checker(7, kMainFrameBytes);
    for (const auto& [header, body] : stream)
        checker.Take({header, {reinterpret_cast<const uint8_t*>(body.data()), body.size()}});
    return checker.faults();
}

TEST(Stress, TheCheckerSeesWhateverIsNotRight)
{
    EXPECT_EQ(CountFaults(GoodStream()), 0U);
    const std::pair<const char*, void (*)(std::vector<Received>&)> kFaults[] = {
        {"another session's", [](auto& s) { s[2].header.ulSessionId = 8; }},
        {"a number is missing", [](auto& s) { s.erase(s.begin() + 3); }},
        {"a number comes twice", [](auto& s) { s.insert(s.begin() + 4, s[3]); }},
        {"a reply", [](auto& s) { s[3].header.usMessageId = kKeepaliveReply; }},
        {"a reserved byte", [](auto& s) { s[4].header.ucReserved12[1] = 1; }},
        {"an alarm within a frame", [](auto& s) { std::swap(s[2].body, s[3].body); }},
        {"a frame too short",
         [](auto& s) { s.erase(s.begin() + 2), s[2].header.ulSeqNum = 2, s[3].header.ulSeqNum = 3; }},
        {"a message that is not full",
         [](auto& s) { s[2].body += s[1].body.substr(9, 9), s[1].body.resize(999); }},
    };
    for (const auto& [name, spoil] : kFaults) {
        SCOPED_TRACE(name);
        std::vector<Received> stream = GoodStream();
        spoil(stream);
        EXPECT_GT(CountFaults(stream), 0U);
    }
}

TEST(Stress, WatchersOfAStreamAreComparedWhereBothHaveFrames)
{
    std::vector<uint64_t> frames(300);
    for (size_t i = 0; i < frames.size(); i++)
        frames[i] = i * i;
    const std::vector<uint64_t> late(frames.begin() + 60, frames.end() - 3);
    std::vector<uint64_t> spoilt = late;
    spoilt[100]++;
    const std::vector<uint64_t> other(50, 1);
    EXPECT_EQ(CountDifferent(frames, late), 0U);
    EXPECT_EQ(CountDifferent(late, frames), 0U);
    EXPECT_EQ(CountDifferent(spoilt, frames), 1U);
    EXPECT_EQ(CountDifferent(frames, other), 50U);
}

TEST(Stress, BoundsHoldForTheirFigureAndTimesAllowForTheMachine)
{
    const Figures figures{{"lost", 1}, {"load_gap_ms", 460}, {"answers", 7}};
    const std::tuple<const char*, bool, const char*> kCases[] = {
        {"lost=0", false, "lost is 1, wanted at most 0"},
        {"load_gap_ms=450", false, ""},
        {"load_gap_ms=449", false, "load_gap_ms is 460, wanted at most 449"},
        {"answers=8", true, "answers is 7, wanted at least 8"},
        {"none=0", true, "none is not measured, wanted at least 0"},
    };
    for (const auto& [text, isLeast, broken] : kCases) {
        SCOPED_TRACE(text);
        const auto lines = BrokenBounds(figures, {ParseBound(text, isLeast)}, /* noiseMs= */ 10);
        EXPECT_EQ(lines.empty() ? "" : lines.front(), broken);
    }
    for (const char* text : {"", "=3", "lost", "lost=", "lost=x", "lost=1x"})
        EXPECT_THROW(ParseBound(text, false), Failure) << text;
}

} // namespace
