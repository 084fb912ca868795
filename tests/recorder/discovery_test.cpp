#include "recorder/discovery.h"

#include <gtest/gtest.h>

#include "recorder/failure.h"
#include "tests/recorder/run_tool.h"

namespace {

std::span<const uint8_t> Span(const Bytes& bytes)
{
    return {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
}

std::string Settings(const std::string& mac, const std::string& address)
{
    return R"({"GateWay":"0x010200C0","HostIP":")" + address +
           R"(","HostName":"cam\u001b[2J","HttpPort":80,"MAC":")" + mac +
           R"(","SN":"S1","Submask":"0x00FFFFFF","TCPPort":9000,"Odd":1})";
}

Bytes Answer(const std::string& settings)
{
    return Wire(1531, 1, R"({"NetWork.NetCommon":)" + settings + R"(,"Ret":100})");
}

TEST(Discovery, TakesOnlyAnswersThatCanBeMeant)
{
    const Bytes good = Answer(Settings("02:00:5E:00:53:01", "0x0A0200C0"));
    const auto camera = ReadSearchAnswer(Span(good));
    ASSERT_TRUE(camera.has_value());
    EXPECT_EQ(
        PrintJson(FoundCameraJson(*camera).get(), false),
        R"({"address":"192.0.2.10","mask":"255.255.255.0","gateway":"192.0.2.1",)"
        R"("mac":"02:00:5E:00:53:01","hostName":"cam\u001b[2J","serial":"S1","tcpPort":9000,"httpPort":80})");
    const Bytes kBad[] = {
        "",
        good.substr(0, 19),
        good.substr(0, good.size() - 1),
        good + " ",
        "\xFE" + good.substr(1),
        Wire(1533, 1, good.substr(20)),
        Wire(1531, 1, ""),
        Wire(1531, 1, "[1]"),
        Wire(1531, 1, R"({"NetWork.NetCommon":[]})"),
        Answer(Settings("02:00:5E:00:53:0g", "0x0A0200C0")),
        Answer(Settings("02:00:5E:00:53:01\\n", "0x0A0200C0")),
        Answer(Settings("02:00:5E:00:53:01", "192.0.2.10")),
        Answer(Settings("02:00:5E:00:53:01", "0x1A0200C01")),
    };
    for (const Bytes& bad : kBad)
        EXPECT_FALSE(ReadSearchAnswer(Span(bad)).has_value()) << bad;
}

sockaddr_in SearchPort(uint32_t host)
{
    return {AF_INET, htons(34569), {htonl(host)}, {}};
}

// Two cameras behind one port of this machine's loopback, of which one answers twice.
TEST(Discovery, ListsEachCameraOnceAndNothingThatATerminalObeys)
{
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM, 0));
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    EXPECT_EQ(setsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, "lo", 2), 0);
    const sockaddr_in own = SearchPort(INADDR_ANY), all = SearchPort(INADDR_BROADCAST);
    ASSERT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    const std::jthread network([&] {
        Bytes search(2048, '\0');
        search.resize(static_cast<size_t>(recv(fd.get(), search.data(), search.size(), 0)));
        EXPECT_EQ(LoadLe<uint16_t>(search.data() + 14), 1530);
        const Bytes second = Answer(Settings("02:00:5e:00:53:0A", "0x0A0200C0"));
        for (const Bytes& sent :
             {Bytes("noise"), Answer(Settings("02:00:5E:00:53:01", "0x0B0200C0")), second, second})
            sendto(fd.get(), sent.data(), sent.size(), 0, reinterpret_cast<const sockaddr*>(&all),
                   sizeof all);
    });
    FakeCamera unused({});
    const Outcome outcome = RunTool(TemporaryDirectory(), unused, "discover --interface lo --timeout 1");
    EXPECT_EQ(outcome.code, kExitOk) << outcome.err;
    EXPECT_EQ(outcome.out, "ADDRESS     MAC                SERIAL  NAME     TCP   HTTP\n"
                           "192.0.2.11  02:00:5E:00:53:01  S1      cam.[2J  9000  80\n"
                           "192.0.2.10  02:00:5e:00:53:0A  S1      cam.[2J  9000  80\n");
}

} // namespace
