#include "common/inifile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/e2e/harness/expand.h"
#include "tests/table.h"

namespace {

std::string WriteProfile(const std::string& text)
{
    const std::string path = testing::TempDir() + "velmora-profile.cfg";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

TEST(ProfileString, FindsTheValueOrCopiesTheDefault)
{
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/profiles.tsv", 4)) {
        SCOPED_TRACE(row[0]);
        const std::string path = WriteProfile(Expand(row[0], false));
        const bool isThere = row[3] != "none";
        char value[64] = "untouched";
        EXPECT_EQ(
            read_profile_string(row[1].c_str(), row[2].c_str(), value, sizeof value, "none", path.c_str()),
            isThere ? 1 : 0);
        EXPECT_EQ(value, Expand(row[3], false));
    }
}

TEST(ProfileString, CutsToTheBufferAndLeavesItWithoutADefault)
{
    const std::string path = WriteProfile("[S]\nKey=abcdef\nNumber=-7x\n");
    char value[4] = "old";
    EXPECT_EQ(read_profile_string("S", "Missing", value, sizeof value, nullptr, path.c_str()), 0);
    EXPECT_STREQ(value, "old");
    EXPECT_EQ(read_profile_string("S", "Key", value, sizeof value, nullptr, path.c_str()), 1);
    EXPECT_STREQ(value, "abc");
    EXPECT_EQ(read_profile_string("S", "Key", value, sizeof value, "defaults", "/nonexistent"), 0);
    EXPECT_STREQ(value, "def");
    EXPECT_EQ(read_profile_int("S", "Number", 9, path.c_str()), -7);
    EXPECT_EQ(read_profile_int("S", "Missing", 9, path.c_str()), 9);
}

} // namespace
