#include "camera/agreement_operations.h"

#include <gtest/gtest.h>

#include "camera/camera_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

AgreementEntry Entry(uint8_t type, uint16_t port, uint8_t switch6, uint8_t switch7)
{
    AgreementEntry entry{};
    entry.ucArgType = type;
    entry.usPort = port;
    entry.ucSwitch6 = switch6;
    entry.ucSwitch7 = switch7;
    return entry;
}

TEST(Agreements, SettersSendPortsAndSwitchesInOrder)
{
    const struct {
        uint8_t type;
        uint16_t port;
        std::vector<Request> sent;
        const char* log;
    } cases[] = {
        {1, 554, {Sent<uint16_t>(3, 554)}, ":RTSPPort = 554, pProperty->ucEncrypt = 72, ucRes = 61\n"},
        {1, 0, {Sent<uint8_t>(281, 72)}, ":RTSPPort = 0, pProperty->ucEncrypt = 72, ucRes = 61\n"},
        {2,
         90,
         {Sent<uint8_t>(8, 61), Sent<uint16_t>(7, 90)},
         ":pProperty->usPort = 90, pProperty->ucEnable = 61\n"},
        {4, 91, {}, ":pProperty->usPort = 91, pProperty->ucEnable = 61\n"},
        {8,
         92,
         {Sent<uint8_t>(192, 61), Sent<uint16_t>(4, 92), Sent<uint8_t>(11, 72)},
         ":pProperty->usPort = 92,pProperty->ucAuthentication = 61\n"},
        {16, 80, {Sent<uint16_t>(2, 80)}, ":pProperty->usPort = 80\n"},
        {32,
         93,
         {Sent<uint8_t>(10, 61), Sent<uint16_t>(9, 93)},
         ":pProperty->usPort = 93, pProperty->ucEnable = 61\n"},
        {64, 443, {Sent<uint16_t>(5, 443)}, ":pProperty->usHttpsPort = 443\n"},
        {72, 94, {Sent<uint16_t>(6, 94)}, ":pProperty->usPort = 94, pProperty->ucEncrypt = 61 \n"},
        {72, 0, {Sent<uint8_t>(282, 61)}, ":pProperty->usPort = 0, pProperty->ucEncrypt = 61 \n"},
        {3, 95, {}, ""},
        {255, 96, {}, ""},
    };
    Host().Take();
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << int(c.type) << " port " << c.port);
        AgreementEntry entry = Entry(c.type, c.port, 61, 72);
        testing::internal::CaptureStderr();
        EXPECT_EQ(CameraSetArgeementProperty(&entry), 0);
        EXPECT_NE(testing::internal::GetCapturedStderr().find(c.log), std::string::npos);
        EXPECT_EQ(Host().Take(), c.sent);
    }
}

class AgreementGetter : public testing::Test {
  protected:
    void SetUp() override
    {
        Host().NewBlock();
        for (const int offset : {1108, 1110, 1196, 1198, 1200, 1204, 1210})
            Host().Set(static_cast<size_t>(offset), static_cast<uint16_t>(offset));
        for (const auto& [offset, value] :
             {std::pair(1168, 1), {1169, 2}, {1202, 3}, {1206, 4}, {1208, 5}, {6197, 6}})
            Host().Set(static_cast<size_t>(offset), static_cast<uint8_t>(value));
        memset(out_, 0xEE, sizeof out_);
    }
    int Get(uint8_t type)
    {
        AgreementEntry selector = Entry(type, 0, 0, 0);
        return CameraGetArgeementProperty(&selector, reinterpret_cast<AgreementEntry*>(out_));
    }
    // Channel, enable, type, port and switches of the n-th entry; 0xEE is what nobody wrote.
    std::vector<int> Filled(size_t n) const
    {
        const uint8_t* const e = out_ + 144 * n;
        return {e[0], e[1], e[2], e[4] + 256 * e[5], e[6], e[7], e[143]};
    }
    alignas(AgreementEntry) uint8_t out_[8 * 144];
};

const std::vector<std::vector<int>> kAll = {
    {0xEE, 1, 1, 1110, 0xEE, 5, 0xEE},     {0xEE, 1, 2, 1200, 3, 0xEE, 0xEE},
    {0xEE, 1, 8, 1198, 2, 1, 0xEE},        {0xEE, 1, 16, 1108, 0xEE, 0xEE, 0xEE},
    {0xEE, 1, 64, 1196, 0xEE, 0xEE, 0xEE}, {0xEE, 1, 32, 1204, 4, 0xEE, 0xEE},
    {0xEE, 1, 72, 1210, 6, 0xEE, 0xEE},
};
const std::vector<int> kUntouched = {0xEE, 0xEE, 0xEE, 0xEEEE, 0xEE, 0xEE, 0xEE};

TEST_F(AgreementGetter, FillsTheEntryOfASelector)
{
    for (const std::vector<int>& expected : kAll) {
        memset(out_, 0xEE, sizeof out_);
        EXPECT_EQ(Get(static_cast<uint8_t>(expected[2])), 0);
        EXPECT_EQ(Filled(0), expected);
        EXPECT_EQ(Filled(1), kUntouched);
    }
}

TEST_F(AgreementGetter, FillsSevenEntriesForAll)
{
    EXPECT_EQ(Get(255), 0);
    for (size_t n = 0; n < 7; n++)
        EXPECT_EQ(Filled(n), kAll[n]);
    EXPECT_EQ(Filled(7), kUntouched);
}

TEST_F(AgreementGetter, FillsNothingForOtherSelectors)
{
    for (const int selector : {0, 3, 4, 254}) {
        EXPECT_EQ(Get(static_cast<uint8_t>(selector)), 0);
        EXPECT_EQ(Filled(0), kUntouched);
    }
    AgreementEntry entry{};
    EXPECT_EQ(CameraGetArgeementProperty(nullptr, &entry), -1);
    EXPECT_EQ(CameraGetArgeementProperty(&entry, nullptr), -1);
}

} // namespace
