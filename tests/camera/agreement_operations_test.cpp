#include "camera/agreement_operations.h"

#include <gtest/gtest.h>

#include "camera/camera_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

TEST(Agreements, SettersSendPortsAndSwitchesInOrder)
{
    const std::tuple<uint8_t, uint16_t, const char*, std::vector<Request>> cases[] = {
        {1, 554, "RTSPPort = 554, pProperty->ucEncrypt = 72, ucRes = 61", {SentShort(3, 554)}},
        {1, 0, "RTSPPort = 0, pProperty->ucEncrypt = 72, ucRes = 61", {SentByte(281, 72)}},
        {2, 90, "pProperty->usPort = 90, pProperty->ucEnable = 61", {SentByte(8, 61), SentShort(7, 90)}},
        {4, 91, "pProperty->usPort = 91, pProperty->ucEnable = 61", {}},
        {8,
         92,
         "pProperty->usPort = 92,pProperty->ucAuthentication = 61",
         {SentByte(192, 61), SentShort(4, 92), SentByte(11, 72)}},
        {16, 80, "pProperty->usPort = 80", {SentShort(2, 80)}},
        {32, 93, "pProperty->usPort = 93, pProperty->ucEnable = 61", {SentByte(10, 61), SentShort(9, 93)}},
        {64, 443, "pProperty->usHttpsPort = 443", {SentShort(5, 443)}},
        {72, 94, "pProperty->usPort = 94, pProperty->ucEncrypt = 61 ", {SentShort(6, 94)}},
        {72, 0, "pProperty->usPort = 0, pProperty->ucEncrypt = 61 ", {SentByte(282, 61)}},
        {255, 96, "pArgeementProperty->ucCh = 8, pArgeementProperty->ucEnable = 9,", {}},
    };
    Host().Take();
    for (const auto& [type, port, log, sent] : cases) {
        AgreementEntry entry{8, 9, type, 0, port, 61, 72, {}};
        const std::string output = ErrorOutputOf([&] { EXPECT_EQ(CameraSetArgeementProperty(&entry), 0); });
        EXPECT_NE(output.find(log), std::string::npos) << output;
        EXPECT_EQ(Host().Take(), sent) << log;
    }
}

TEST(Agreements, GettersFillPortsAndSwitchesOnly)
{
    // The type, and the places of port, switch 6 and switch 7 in the block.
    const std::array<uint16_t, 4> services[] = {{1, 1110, 0, 1208}, {2, 1200, 1202, 0}, {8, 1198, 1169, 1168},
                                                {16, 1108, 0, 0},   {64, 1196, 0, 0},   {32, 1204, 1206, 0},
                                                {72, 1210, 6197, 0}};
    uint8_t* const block = Host().block;
    for (size_t i = 0; i < kBlockBytes; i++)
        block[i] = static_cast<uint8_t>(i * 7 + i / 256);
    using Entries = std::array<uint8_t, 8 * 144>;
    const auto get = [](int type) {
        AgreementEntry selector{0, 0, static_cast<uint8_t>(type), 0, 0, 0, 0, {}};
        alignas(AgreementEntry) Entries out;
        out.fill(0xEE);
        EXPECT_EQ(CameraGetArgeementProperty(&selector, reinterpret_cast<AgreementEntry*>(out.data())), 0);
        return out;
    };
    Entries untouched;
    untouched.fill(0xEE);
    Entries all = untouched;
    uint8_t* entry = all.data();
    for (const auto& [type, port, switch6, switch7] : services) {
        entry[1] = 1;
        entry[2] = static_cast<uint8_t>(type);
        memcpy(entry + 4, block + port, 2);
        entry[6] = switch6 != 0 ? block[switch6] : 0xEE;
        entry[7] = switch7 != 0 ? block[switch7] : 0xEE;
        Entries one = untouched;
        std::copy_n(entry, 144, one.data());
        EXPECT_EQ(get(type), one);
        entry += 144;
    }
    EXPECT_EQ(get(255), all);
    for (const int noService : {0, 3, 4, 254})
        EXPECT_EQ(get(noService), untouched) << noService;
}

} // namespace
