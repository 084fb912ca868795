#include "common/resolution_parser.h"

#include "tests/captured_output.h"

namespace {

// The sizes of each stream, as "main | second | third".
std::string Print(const ResolutionRecord (&records)[kResolutionStreams])
{
    std::string text;
    for (const ResolutionRecord& record : records) {
        text += &record == records ? "" : "| ";
        for (int i = 0; i < record.iCount; i++)
            text +=
                std::to_string(record.entry[i].iWidth) + "x" + std::to_string(record.entry[i].iHeight) + " ";
    }
    return text;
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
    const char* sizes;
} kParseCases[] = {
    {"OneAt", "H264:640x360;@H265:1920x1080,H265:640x360;H264:1920x1080,H264:640x360;",
     "1920x1080 | 640x360 | 0x0 "},
    {"MotionJpegIsNoChoice", "@MJPEG:1920x1080,MJPEG:720x480;@", "0x0 | 0x0 | 0x0 "},
    {"UnendedTokenIsNone", "@H265:640x360,H265:320x240", "640x360 | 0x0 | 0x0 "},
    {"NoSize", "@H265:abc,H265:320;", "0x0 | 0x0 | 0x0 "},
    {"MoreThanRecordAndListHold", ManyMainSizes(100),
     "100x100 200x100 300x100 400x100 500x100 600x100 700x100 800x100 | 64x48 | 0x0 "},
    {"ThreeStreams", "@H265:1920x1080,H265:720x480;@H265:1920x1080,H265:640x360,H265:352x288;",
     "1920x1080 | 720x480 640x360 | 352x288 "},
    {"LongFirstSectionRebuildsTheMainList",
     "H265:1x1;H265:1x1;H265:1x1;H265:1x1;H265:1x1;@H265:1920x1080,H265:720x480;@"
     "H265:1280x720,H265:720x480,H265:352x288;",
     "1280x720 | 720x480 | 352x288 "},
    {"HugeNumbers", "@H265:99999999999x-5,H265:2x2;", "2147483647x-5 | 2x2 | 0x0 "},
};

TEST(ParseResolution, GivesEachStreamItsDistinctSizes)
{
    const CapturedOutput quiet;
    ResolutionRecord records[kResolutionStreams];
    for (const ParseCase& c : kParseCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(LS_COMMON_ParseResolution(c.text.c_str(), records), 0);
        EXPECT_EQ(Print(records), c.sizes);
    }
    const std::string before = Print(records);
    EXPECT_EQ(LS_COMMON_ParseResolution("H265:640x360,H265:320x240;", records), -1); // no "@"
    EXPECT_EQ(Print(records), before);
}

TEST(ParseResolution, PrintsTheEntriesOfStreamsThatHaveSizes)
{
    const CapturedOutput log;
    ResolutionRecord records[kResolutionStreams];
    ASSERT_EQ(LS_COMMON_ParseResolution("@H264:640x360,H265:320x240;@", records), 0);
    EXPECT_EQ(log.Lines(), "[Trace]: LS_COMMON_ParseResolution N: ParseLen1 0\n"
                           "[Trace]: ResolutionString[0][0] 640x360\n"
                           "[Trace]: ResolutionString[1][0] 320x240\n"
                           "ffff///////LS_COMMON_ParseResolution N: 0: 640 360\n"
                           "ffff///////LS_COMMON_ParseResolution N: 1: 320 240\n");
}

TEST(ParseSizeText, SplitsAtTheFirstX)
{
    char size[] = "1920x1080x7";
    int32_t width = -1;
    int32_t height = -1;
    EXPECT_EQ(ParseSizeText(size, &width, &height), 0);
    EXPECT_EQ(ParseSizeText(size, &width, &height), -1); // its "x" has gone
    EXPECT_EQ(width * 10000 + height, 1920'1080);
}

} // namespace
