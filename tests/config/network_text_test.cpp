#include "config/network_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(NetworkText, AddressesTravelAsTheNumberWhoseLowestByteIsTheFirstOctet)
{
    const std::pair<const char*, uint32_t> numbers[] = {
        {"192.168.1.10", 0x0A01A8C0}, {"0.0.0.0", 0}, {"0.0.0.128", 0x80000000}};
    for (const auto& [dotted, number] : numbers)
        EXPECT_EQ(IpTextToNumber(dotted), number) << dotted;
    for (const char* none :
         {"255.255.255.255", "1.2.3", "", "1.2.3.4 ", " 1.2.3.4", "256.1.1.1", "01.2.3.4", "1.2.3.4.5",
          "1.2.3.-4", "1.2.3.0x4", "1.2.3.", "fe80::1", "4444444444444444444444444444444444444444"})
        EXPECT_EQ(IpTextToNumber(none), 0xFFFFFFFF) << none;
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
