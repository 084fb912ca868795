#include "common/inifile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace {

std::string WriteProfile(const std::string& text)
{
    const std::string path = testing::TempDir() + "velmora-profile.cfg";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

const struct ProfileCase {
    const char* name;
    std::string file;
    const char* section;
    const char* key;
    const char* value; // null: not found
} kProfileCases[] = {
    {"RestOfTheLineUntrimmed", "[S]\nKey= a=b ; c \r\n", "S", "Key", " a=b ; c \r"},
    {"LastLineWithoutEnd", "[S]\nKey=value", "S", "Key", "value"},
    {"CommentSkipped", "[S]\n;Key=no\nKey=yes\n", "S", "Key", "yes"},
    {"OtherSection", "[A]\nKey=a\n[S]\nKey=s\n", "S", "Key", "s"},
    {"SectionEndsAtTheNext", "[S]\nOther=1\n[T]\nKey=t\n", "S", "Key", nullptr},
    {"ComparedOverTheLengthFound", "[Cust]\nKe=v\n", "CustomToolCfg", "Key", "v"},
    {"LongerNameInTheFileIsAnother", "[SS]\nKey=v\n[S]\nKeys=w\n", "S", "Key", nullptr},
    {"BinaryBytes", std::string("\0\xff=\n[S]\nKey=v\n", 13), "S", "Key", "v"},
    {"BeyondTheReadLimit", std::string(kProfileFileBytes, ';') + "\n[S]\nKey=v\n", "S", "Key", nullptr},
};

TEST(ProfileString, FindsTheValueOrCopiesTheDefault)
{
    for (const ProfileCase& c : kProfileCases) {
        SCOPED_TRACE(c.name);
        const std::string path = WriteProfile(c.file);
        char value[64] = "untouched";
        EXPECT_EQ(read_profile_string(c.section, c.key, value, sizeof value, "default", path.c_str()),
                  c.value != nullptr ? 1 : 0);
        EXPECT_STREQ(value, c.value != nullptr ? c.value : "default");
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
