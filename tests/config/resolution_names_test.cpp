#include "config/resolution_names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "tests/camera/parameter_host.h"

namespace {

void OfferSizes(const char* combinations)
{
    FILE* const file = fopen("/var/cfg/CustomTools.cfg", "w");
    ASSERT_NE(file, nullptr);
    fprintf(file, "[CustomToolCfg]\nCustomComboName=%s\n", combinations);
    fclose(file);
}

TEST(ResolutionNames, AreFoundByWidthAndThenByHeight)
{
    const struct {
        int32_t width, height;
        const char* name;
    } cases[] = {{1920, 1080, "1080P"}, {1920, 1200, "WUXGA"}, {2592, 1944, "5M"},    {2592, 1520, "4M"},
                 {2592, 1, "3M"},       {3840, 2160, "5M"},    {3840, 1600, "8M"},    {4000, 3000, "5M"},
                 {4000, 1, "12M"},      {1000, 1000, "1080P"}, {2560, 1600, nullptr}, {720, 576, "D1"},
                 {720, 480, "D1"},      {704, 576, "D1"},      {720, 240, "BCIF"},    {352, 288, "CIF"},
                 {352, 576, "HD1"},     {640, 360, "SVCD"},    {640, 1, "VGA"},       {1520, 1520, "WUXGA"},
                 {1520, 1, nullptr},    {1024, 1024, "720P"},  {1280, 1280, "UXGA"},  {2160, 2160, "5M"},
                 {4096, 1, "4K"},       {0, 0, "1080P"},       {-1920, 1080, "1080P"}};
    for (const auto& c : cases)
        EXPECT_STREQ(GetResolutionName(c.width, c.height), c.name) << c.width << "x" << c.height;
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
        OfferSizes(c.combinations);
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
