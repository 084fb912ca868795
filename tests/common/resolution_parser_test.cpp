#include "common/resolution_parser.h"

#include "tests/captured_output.h"
#include "tests/table.h"

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

TEST(ParseResolution, GivesEachStreamItsDistinctSizes)
{
    const CapturedOutput quiet;
    ResolutionRecord records[kResolutionStreams];
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/resolutions.tsv", 2)) {
        EXPECT_EQ(LS_COMMON_ParseResolution(row[0].c_str(), records), 0);
        EXPECT_EQ(Print(records), row[1]) << row[0];
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

} // namespace
