#include "config/resolution_names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/camera/parameter_host.h"
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
    const struct {
        const char* combinations;
        uint32_t main, second;
    } cases[] = {
        {"H265:352x576;H265:352x480;@H265:352x576,H265:320x240;H265:352x480,H265:320x240;@@", 0x2, 0x40},
        {"H265:2560x1600;@H265:2560x1600,H265:1024x600;@@", 0, 0x4000000},
        {"H265:1280x1280;@H265:1280x1280,H265:640x720;H265:1920x1200,H265:640x720;@@", 0xA000, 0x2000000},
    };
    for (const auto& c : cases) {
        std::ofstream("/var/cfg/CustomTools.cfg")
            << "[CustomToolCfg]\nCustomComboName=" << c.combinations << "\n";
        Host().Set<uint8_t>({{1334, 1}}); // two streams
        EXPECT_EQ(ResolutionCombo(1), c.second) << c.combinations;
        EXPECT_EQ(ResolutionCombo(0), c.main) << c.combinations;
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
