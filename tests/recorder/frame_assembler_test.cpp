#include "recorder/frame_assembler.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/recorder/fake_camera.h"

namespace {

using Body = std::pair<uint32_t, Bytes>; // sequence number and bytes

// Each whole frame as a letter for its kind and its payload.
std::vector<Bytes> Assemble(FrameAssembler& assembler, const std::vector<Body>& bodies)
{
    std::vector<Bytes> frames;
    for (const auto& [seqNum, body] : bodies) {
        // In memory of just its size: a read behind it is seen by the address sanitizer.
        const std::vector<uint8_t> bytes(body.begin(), body.end());
        if (const auto frame = assembler.Add(seqNum, bytes))
            frames.push_back((frame->kind == kKeyFrame     ? "K"
                              : frame->kind == kAudioFrame ? "A"
                                                           : "O") +
                             Bytes(frame->payload.begin(), frame->payload.end()));
    }
    return frames;
}

TEST(FrameAssembler, PutsFramesTogetherAndFindsItsPlaceAgain)
{
    const Bytes key = KeyFrame("key");
    const Bytes other = OtherFrame("otherframe");
    const Bytes longest(0xC0000, 'x');
    const Bytes start = other.substr(0, 12); // 8 of sub-header, "othe"
    const std::tuple<const char*, std::vector<Body>, std::vector<Bytes>, AssemblerCounters> kCases[] = {
        {"one message each", {{0, key}, {1, other}, {2, AudioFrame("a")}}, {"Kkey", "Ootherframe", "Aa"}, {}},
        {"cut in three", {{0, start}, {1, "rfra"}, {2, "me"}}, {"Ootherframe"}, {}},
        {"gap between frames", {{0, key}, {3, other}}, {"Kkey", "Ootherframe"}, {1, 2, 0}},
        {"gap hidden by a fitting length", {{0, start}, {2, "rframe"}, {3, key}}, {"Kkey"}, {1, 1, 1}},
        {"first message missing", {{1, key}}, {"Kkey"}, {1, 1, 0}},
        {"numbers go back", {{0, key}, {0, other}}, {"Kkey", "Ootherframe"}, {1, 0, 0}},
        {"frame left unfinished", {{0, start}, {1, key}}, {"Kkey"}, {0, 0, 1}},
        {"more than announced", {{0, start}, {1, "rframeXX"}, {2, key}}, {"Kkey"}, {0, 0, 1}},
        {"first message too long", {{0, other + "X"}, {1, key}}, {"Kkey"}, {0, 0, 1}},
        {"garbage counts once", {{0, "garbage"}, {1, "more"}, {2, ""}, {3, key}}, {"Kkey"}, {0, 0, 1}},
        {"half a sub-header", {{0, key.substr(0, 15)}, {1, key}}, {"Kkey"}, {0, 0, 1}},
        {"longest", {{0, OtherFrame(longest + "x")}, {1, OtherFrame(longest)}}, {"O" + longest}, {0, 0, 1}},
        {"length zero", {{0, OtherFrame("")}, {1, key}}, {"Kkey"}, {0, 0, 1}},
        {"empty continuation", {{0, start}, {1, ""}, {2, key}}, {"Kkey"}, {0, 0, 1}},
    };
    for (const auto& [name, bodies, frames, expected] : kCases) {
        SCOPED_TRACE(name);
        FrameAssembler assembler(kMainFrameBytes);
        EXPECT_EQ(Assemble(assembler, bodies), frames);
        EXPECT_EQ(assembler.counters().gaps, expected.gaps);
        EXPECT_EQ(assembler.counters().lostMessages, expected.lostMessages);
        EXPECT_EQ(assembler.counters().damaged, expected.damaged);
    }
}

// Starts of frames and small bytes, so that lengths are now and then believable.
TEST(FrameAssembler, SurvivesAnyBytes)
{
    std::minstd_rand random(1); // the same bytes each time
    FrameAssembler assembler(kMainFrameBytes);
    const Bytes starts[] = {KeyFrame("x"), OtherFrame("x"), AudioFrame("x"), ""};
    size_t frames = 0;
    uint32_t seqNum = 0;
    for (int i = 0; i < 20'000; i++, seqNum += random() % 8 == 0 ? 2 : 1) {
        Bytes body = starts[random() % 4].substr(0, random() % 20);
        for (size_t rest = random() % 40; rest > 0; rest--)
            body += static_cast<char>(random() % 3);
        frames += Assemble(assembler, {{seqNum, body}}).size();
    }
    EXPECT_GT(frames, 0U);
    EXPECT_EQ(Assemble(assembler, {{seqNum, KeyFrame("good")}}), std::vector<Bytes>{"Kgood"});
}

} // namespace
