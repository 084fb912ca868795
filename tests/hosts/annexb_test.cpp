#include "hosts/annexb.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

Bytes FromHex(const std::string& text)
{
    std::istringstream words(text);
    Bytes bytes;
    for (unsigned byte = 0; words >> std::hex >> byte;)
        bytes.push_back(static_cast<uint8_t>(byte));
    return bytes;
}

constexpr size_t kLimit = 28; // the longest frame below

const struct FrameCase {
    const char* name;
    MediaCodec codec;
    const char *seen, *unit, *expected; // seen: parameter sets before; expected: empty when refused
    bool keyFrame;
} kFrames[] = {
    {"StartCodesGrowAndZerosBehindAUnitGo", kCodecH264, "", "00 00 01 41 9A 00 00 00 00 00 01 01 9B 00",
     "00 00 00 01 41 9A 00 00 00 01 01 9B", false},
    {"LeadingDelimiterAndSeiAreDropped", kCodecH264, "",
     "00 00 00 01 09 F0 00 00 01 06 05 01 AA 80 00 00 01 41 9A", "00 00 00 01 41 9A", false},
    {"NewSetReplacesTheOldOne", kCodecH264, "00 00 01 67 64 00 00 01 68 EE",
     "00 00 01 09 F0 00 00 01 67 42 00 00 01 65 88", "00 00 00 01 67 42 00 00 00 01 68 EE 00 00 00 01 65 88",
     true},
    {"KeyFrameWithHalfTheSets", kCodecH264, "00 00 01 67 64", "00 00 01 65 88", "", false},
    {"DataPartitionIsNoSliceOfType1", kCodecH264, "", "00 00 01 42 9A", "", false},
    {"OtherFrameWithASetInFront", kCodecH264, "", "00 00 01 68 EE 00 00 01 41 9A", "", false},
    {"H265Slice", kCodecH265, "", "00 00 01 46 01 50 00 00 01 02 01 D0", "00 00 00 01 02 01 D0", false},
    {"H265UnreferencedSliceHasType0", kCodecH265, "", "00 00 01 00 01 D0", "", false},
    {"H265KeyFrameGetsMissingSets", kCodecH265, "00 00 01 40 01 0C 00 00 01 42 01 01 00 00 01 44 01 C1",
     "00 00 01 4E 01 05 00 00 01 28 01 AF",
     "00 00 00 01 40 01 0C 00 00 00 01 42 01 01 00 00 00 01 44 01 C1 00 00 00 01 28 01 AF", true},
    {"OneByteAboveTheLimit", kCodecH265, "00 00 01 40 01 0C 00 00 01 42 01 01 00 00 01 44 01 C1",
     "00 00 01 28 01 AF AF", "", false},
    {"H265NeedsAVps", kCodecH265, "", "00 00 01 42 01 01 00 00 01 44 01 C1 00 00 01 26 01 AF", "", false},
};

TEST(NormaliseAccessUnit, BringsFramesIntoTheFormOfRingRecordsOrRefusesThem)
{
    for (const FrameCase& c : kFrames) {
        SCOPED_TRACE(c.name);
        ParameterSets sets;
        CollectParameterSets(c.codec, FromHex(c.seen), &sets);
        const AccessUnit unit = NormaliseAccessUnit(c.codec, FromHex(c.unit), kLimit, &sets);
        EXPECT_EQ(unit.bytes, FromHex(c.expected));
        EXPECT_EQ(unit.keyFrame, c.keyFrame);
        EXPECT_EQ(unit.problem != nullptr, unit.bytes.empty());
    }
}

} // namespace
