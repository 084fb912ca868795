#include "config/resolution_names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/camera/camera_setup.h"
#include "tests/table.h"

namespace {

TEST(ResolutionNames, AreFoundByWidthAndThenByHeight)
{
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/resolutions.tsv", 3)) {
        const char* const name = GetResolutionName(std::stoi(row[0]), std::stoi(row[1]));
        EXPECT_EQ(name != nullptr ? name : "none", row[2]) << row[0] << "x" << row[1];
    }
}

TEST(ResolutionNames, OfAStreamAreItsMask)
{
    Host().Set<uint8_t>({{1334, 1}}); // two streams
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/masks.tsv", 3)) {
        std::ofstream("/var/cfg/CustomTools.cfg") << "[CustomToolCfg]\nCustomComboName=" << row[0] << "\n";
        EXPECT_EQ(ResolutionCombo(0), std::stoul(row[1], nullptr, 16)) << row[0];
        EXPECT_EQ(ResolutionCombo(1), std::stoul(row[2], nullptr, 16)) << row[0];
    }
    unlink("/var/cfg/CustomTools.cfg");
    EXPECT_EQ(ResolutionCombo(0), 0x00144800U);
    EXPECT_EQ(ResolutionCombo(1), 1U);
    EXPECT_EQ(IsResolutionSupported(0, "1080P"), 0);
    EXPECT_EQ(IsResolutionSupported(0, "4K"), -1);
    EXPECT_EQ(IsResolutionSupported(0, nullptr), -1);
    EXPECT_EQ(IsResolutionSupported(1, "1080P"), -1);
    EXPECT_EQ(IsResolutionSupported(2, "anything"), 0);
}

} // namespace
