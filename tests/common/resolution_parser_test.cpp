#include "common/resolution_parser.h"

#include <string>
#include <vector>

#include "tests/capture.h"

namespace {

using Sizes = std::vector<std::pair<int, int>>;

Sizes SizesOf(const ResolutionRecord& record)
{
    Sizes sizes;
    for (int i = 0; i < record.iCount; i++)
        sizes.emplace_back(record.entry[i].iWidth, record.entry[i].iHeight);
    return sizes;
}

std::string ManyMainSizes(int count)
{
    std::string text = "@";
    for (int i = 1; i <= count; i++)
        text += "H265:" + std::to_string(100 * i) + "x100,H265:64x48;";
    return text;
}

const struct ParseCase {
    const char* name;
    std::string text;
    Sizes main, second, third;
} kParseCases[] = {
    {"OneAt",
     "H264:640x360;@H265:1920x1080,H265:640x360;H264:1920x1080,H264:640x360;",
     {{1920, 1080}},
     {{640, 360}},
     {{0, 0}}},
    {"MotionJpegIsNoChoice", "@MJPEG:1920x1080,MJPEG:720x480;@", {{0, 0}}, {{0, 0}}, {{0, 0}}},
    {"NothingBehindTheAt", "H265:640x360;@", {{0, 0}}, {{0, 0}}, {{0, 0}}},
    {"UnendedTokenIsNone", "@H265:640x360,H265:320x240", {{640, 360}}, {{0, 0}}, {{0, 0}}},
    {"NoSize", "@H265:abc,H265:320;", {{0, 0}}, {{0, 0}}, {{0, 0}}},
    {"EightEntriesAtMost",
     ManyMainSizes(12),
     {{100, 100}, {200, 100}, {300, 100}, {400, 100}, {500, 100}, {600, 100}, {700, 100}, {800, 100}},
     {{64, 48}},
     {{0, 0}}},
    {"MoreThanTheListHolds",
     ManyMainSizes(100),
     {{100, 100}, {200, 100}, {300, 100}, {400, 100}, {500, 100}, {600, 100}, {700, 100}, {800, 100}},
     {{64, 48}},
     {{0, 0}}},
    {"ThreeStreams",
     "@H265:1920x1080,H265:720x480;@H265:1920x1080,H265:640x360,H265:352x288;",
     {{1920, 1080}},
     {{720, 480}, {640, 360}},
     {{352, 288}}},
    {"LongFirstSectionRebuildsTheMainList",
     std::string("H265:1x1;H265:1x1;H265:1x1;H265:1x1;H265:1x1;@H265:1920x1080,H265:720x480;@") +
         "H265:1280x720,H265:720x480,H265:352x288;",
     {{1280, 720}},
     {{720, 480}},
     {{352, 288}}},
    {"HugeNumbers", "@H265:99999999999x-5,H265:2x2;", {{2147483647, -5}}, {{2, 2}}, {{0, 0}}},
};

TEST(ParseResolution, GivesEachStreamItsDistinctSizes)
{
    const CaptureFd quiet(STDERR_FILENO);
    for (const ParseCase& c : kParseCases) {
        SCOPED_TRACE(c.name);
        ResolutionRecord records[kResolutionStreams];
        ASSERT_EQ(LS_COMMON_ParseResolution(c.text.c_str(), records), 0);
        EXPECT_EQ(SizesOf(records[0]), c.main);
        EXPECT_EQ(SizesOf(records[1]), c.second);
        EXPECT_EQ(SizesOf(records[2]), c.third);
    }
}

TEST(ParseResolution, RefusesATextWithoutAtAndLeavesTheRecords)
{
    ResolutionRecord records[kResolutionStreams] = {{.iCount = 7, .entry = {}}};
    EXPECT_EQ(LS_COMMON_ParseResolution("H265:640x360,H265:320x240;", records), -1);
    EXPECT_EQ(records[0].iCount, 7);
}

TEST(ParseResolution, PrintsTheEntriesOfStreamsThatHaveSizes)
{
    const CaptureFd captured(STDERR_FILENO);
    ResolutionRecord records[kResolutionStreams];
    ASSERT_EQ(LS_COMMON_ParseResolution("@H264:640x360,H265:320x240;", records), 0);
    const std::string text = captured.Text();
    EXPECT_NE(text.find("ffff///////LS_COMMON_ParseResolution "), std::string::npos);
    EXPECT_NE(text.find(": 0: 640 360\n"), std::string::npos);
    EXPECT_NE(text.find(": 1: 320 240\n"), std::string::npos);
    EXPECT_EQ(text.find(": 2: "), std::string::npos);
}

TEST(ParseSizeText, SplitsAtTheFirstX)
{
    char size[] = "1920x1080x7";
    int32_t width = -1;
    int32_t height = -1;
    EXPECT_EQ(ParseSizeText(size, &width, &height), 0);
    EXPECT_EQ(width, 1920);
    EXPECT_EQ(height, 1080);
    EXPECT_STREQ(size, "1920");
    char none[] = "1920";
    EXPECT_EQ(ParseSizeText(none, &width, &height), -1);
    EXPECT_EQ(width, 1920);
}

} // namespace
