#include "hosts/annexb.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/table.h"

namespace {

Bytes FromHex(const std::string& text)
{
    std::istringstream words(text);
    Bytes bytes;
    for (unsigned byte = 0; words >> std::hex >> byte;)
        bytes.push_back(static_cast<uint8_t>(byte));
    return bytes;
}

constexpr size_t kLimit = 28; // the longest frame of the table

TEST(NormaliseAccessUnit, BringsFramesIntoTheFormOfRingRecordsOrRefusesThem)
{
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/access_units.tsv", 6)) {
        SCOPED_TRACE(row[0]);
        const MediaCodec codec = row[1] == "H264" ? kCodecH264 : kCodecH265;
        ParameterSets sets;
        CollectParameterSets(codec, FromHex(row[2]), &sets);
        const AccessUnit unit = NormaliseAccessUnit(codec, FromHex(row[3]), kLimit, &sets);
        EXPECT_EQ(unit.bytes, FromHex(row[5]));
        EXPECT_EQ(unit.keyFrame, row[4] == "key");
        EXPECT_EQ(unit.problem != nullptr, row[5] == "refused");
    }
}

} // namespace
