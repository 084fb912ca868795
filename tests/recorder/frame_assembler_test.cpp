#include "recorder/frame_assembler.h"

#include <gtest/gtest.h>

#include "tests/recorder/fake_camera.h"

namespace {

std::span<const uint8_t> AsBytes(const Bytes& text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

struct Body {
    uint32_t seqNum;
    Bytes bytes;
};

// Each whole frame as a letter for its kind and its payload.
std::vector<Bytes> Assemble(FrameAssembler& assembler, const std::vector<Body>& bodies)
{
    std::vector<Bytes> frames;
    for (const Body& body : bodies)
        if (const auto frame = assembler.Add(body.seqNum, AsBytes(body.bytes)))
            frames.push_back((frame->kind == kKeyFrame     ? "K"
                              : frame->kind == kAudioFrame ? "A"
                                                           : "O") +
                             Bytes(frame->payload.begin(), frame->payload.end()));
    return frames;
}

TEST(FrameAssembler, PutsFramesTogetherAndFindsItsPlaceAgain)
{
    const Bytes key = KeyFrame(2, 25, 640, 360, "keyframe");
    const Bytes other = OtherFrame("otherframe");
    const Bytes audio = AudioFrame("audio");
    const Bytes otherStart = other.substr(0, 12); // 8 of sub-header, "othe"
    const struct {
        const char* name;
        std::vector<Body> bodies;
        std::vector<Bytes> frames;
        AssemblerCounters counters;
    } kCases[] = {
        {"one message each", {{0, key}, {1, other}, {2, audio}}, {"Kkeyframe", "Ootherframe", "Aaudio"}, {}},
        {"cut in three", {{0, otherStart}, {1, "rfra"}, {2, "me"}}, {"Ootherframe"}, {}},
        {"gap between frames", {{0, key}, {3, other}}, {"Kkeyframe", "Ootherframe"}, {1, 2, 0}},
        {"gap within a frame", {{0, otherStart}, {2, "me"}, {3, key}}, {"Kkeyframe"}, {1, 1, 1}},
        {"gap hidden by a fitting length",
         {{0, otherStart}, {2, "rframe"}, {3, key}},
         {"Kkeyframe"},
         {1, 1, 1}},
        {"first message missing", {{1, key}}, {"Kkeyframe"}, {1, 1, 0}},
        {"numbers go back", {{0, key}, {0, other}}, {"Kkeyframe", "Ootherframe"}, {1, 0, 0}},
        {"frame left unfinished", {{0, otherStart}, {1, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"more than announced", {{0, otherStart}, {1, "rframeXX"}, {2, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"first message too long", {{0, other + "X"}, {1, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"garbage counts once", {{0, "garbage"}, {1, "more"}, {2, ""}, {3, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"garbage twice", {{0, "garbage"}, {1, key}, {2, "more"}}, {"Kkeyframe"}, {0, 0, 2}},
        {"half a sub-header", {{0, key.substr(0, 15)}, {1, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"length zero", {{0, OtherFrame("")}, {1, key}}, {"Kkeyframe"}, {0, 0, 1}},
        {"empty continuation", {{0, otherStart}, {1, ""}, {2, key}}, {"Kkeyframe"}, {0, 0, 1}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        FrameAssembler assembler(kMainFrameBytes);
        EXPECT_EQ(Assemble(assembler, c.bodies), c.frames);
        EXPECT_EQ(assembler.counters().gaps, c.counters.gaps);
        EXPECT_EQ(assembler.counters().lostMessages, c.counters.lostMessages);
        EXPECT_EQ(assembler.counters().damaged, c.counters.damaged);
    }
}

TEST(FrameAssembler, BoundsTheLengthByTheStream)
{
    for (const size_t limit : {size_t{0xC0000}, size_t{0x40000}}) {
        FrameAssembler assembler(limit);
        const Bytes whole(limit, 'x');
        const Bytes fits = OtherFrame(whole);
        uint32_t seqNum = 0;
        std::vector<Body> bodies{{seqNum++, OtherFrame(whole + "x").substr(0, 32768)}};
        for (size_t at = 0; at < fits.size(); at += 32768)
            bodies.push_back({seqNum++, fits.substr(at, 32768)});
        EXPECT_EQ(Assemble(assembler, bodies), std::vector<Bytes>{"O" + whole});
        EXPECT_EQ(assembler.counters().damaged, 1U);
    }
}

} // namespace
