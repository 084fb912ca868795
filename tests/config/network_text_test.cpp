#include "config/network_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(NetworkText, AddressesTravelAsTheNumberWhoseLowestByteIsTheFirstOctet)
{
    const std::pair<const char*, uint32_t> numbers[] = {
        {"192.168.1.10", 0x0A01A8C0},
        {"0.0.0.0", 0},
        {"255.255.255.255", 0xFFFFFFFF},
        {"1.2.3", 0xFFFFFFFF},
        {"", 0xFFFFFFFF},
        {"1.2.3.4 ", 0xFFFFFFFF},
        {"256.1.1.1", 0xFFFFFFFF},
        {"fe80::1", 0xFFFFFFFF},
        {"0.0.0.128", 0x80000000},
        {" 1.2.3.4", 0xFFFFFFFF},
        {"01.2.3.4", 0xFFFFFFFF},
        {"1.2.3.4.5", 0xFFFFFFFF},
        {"1.2.3.-4", 0xFFFFFFFF},
        {"1.2.3.0x4", 0xFFFFFFFF},
        {"1.2.3.", 0xFFFFFFFF},
        {"4444444444444444444444444444444444444444", 0xFFFFFFFF}};
    for (const auto& [dotted, number] : numbers)
        EXPECT_EQ(IpTextToNumber(dotted), number) << dotted;
    const std::pair<const char*, const char*> texts[] = {{"0x0A01A8C0", "192.168.1.10"},
                                                         {"a01a8c0", "192.168.1.10"},
                                                         {"0x1", "1.0.0.0"},
                                                         {"", "0.0.0.0"},
                                                         {"none", "0.0.0.0"},
                                                         {"0x1FFFFFFFF", "255.255.255.255"},
                                                         {"-1", "255.255.255.255"},
                                                         {"0x0G", "0.0.0.0"}};
    for (const auto& [hex, dotted] : texts) {
        char text[16] = "";
        HexTextToIpText(hex, text, sizeof text);
        EXPECT_STREQ(text, dotted) << hex;
    }
}

TEST(NetworkText, HostsAreAddressesOrNames)
{
    const std::string longest = "a" + std::string(254, '1');
    const std::pair<std::string, bool> cases[] = {
        {"10.0.0.1", true},   {"223.255.255.254", true}, {"0.1.2.3", true},
        {"127.0.0.1", false}, {"224.0.0.1", false},      {"1.256.1.1", false},
        {"1.1.256.1", false}, {"1.1.1.255", false},      {"99999999999.1.1.1", false},
        {"1.2.3", true},      {"1.2.3.4.5", true},       {"1.2.3.", false},
        {"cam-01", true},     {"A.b-9", true},           {"7", true},
        {"", false},          {"cam-", false},           {"cam.", false},
        {"-", false},         {"-cam", false},           {".cam", false},
        {"my cam", false},    {"cam_1", false},          {"caf\xC3\xA9", false},
        {longest, true},      {longest + "1", false}};
    for (const auto& [text, isValid] : cases)
        EXPECT_EQ(IsValidHostOrIp(text.c_str()), isValid) << text;
}

} // namespace
