#include "config/network_text.h"

#include <gtest/gtest.h>

#include "tests/table.h"

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
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/hosts.tsv", 2))
        EXPECT_EQ(IsValidHostOrIp(row[0].c_str()), row[1] == "taken") << row[0];
}

} // namespace
