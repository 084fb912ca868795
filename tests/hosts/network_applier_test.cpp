#include "hosts/network_applier.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "hosts/parameter_fields_table.h"

namespace {

// An eth0 of the test's own network namespace, at 192.0.2.10 with a gateway.
class NetworkApplierTest : public testing::Test {
  protected:
    NetworkApplierTest()
    {
        Run("ip link add eth0 type veth peer name far0 && ip link set eth0 up && ip link set far0 up && "
            "ip addr add 192.0.2.10/24 dev eth0 && ip route add default via 192.0.2.1");
    }
    ~NetworkApplierTest() override { Run("ip link del eth0"); }

    static void Run(const char* command) { ASSERT_EQ(system(command), 0) << command; }
    // All addresses of eth0, then all gateways.
    static std::string State()
    {
        FILE* const pipe = popen("{ ip -4 -o addr show dev eth0 | awk '{print $4}';"
                                 "  ip route show default | awk '{print $3}'; } | tr '\\n' ' '",
                                 "r");
        char text[200];
        text[fread(text, 1, sizeof text - 1, pipe)] = '\0';
        pclose(pipe);
        return text;
    }
    static void Set(NetworkApplier* applier, const char* address, const char* mask, const char* gateway)
    {
        const std::pair<uint32_t, const char*> values[] = {
            {kFieldAddress, address}, {kFieldNetmask, mask}, {kFieldGateway, gateway}};
        for (const auto& [field, text] : values)
            if (*text != '\0')
                applier->Set(field, inet_addr(text));
    }
};

TEST_F(NetworkApplierTest, AppliesWhatAHostCanHaveAndRefusesTheRest)
{
    const struct {
        const char *address, *mask, *gateway, *state; // a state of null: as before
    } kRows[] = {
        {"0.0.0.0", "", "", nullptr},
        {"224.0.0.1", "255.255.255.0", "192.0.2.9", nullptr},
        {"127.0.0.1", "", "", nullptr},
        {"255.255.255.255", "", "", nullptr},
        {"192.0.2.0", "", "", nullptr},
        {"192.0.2.255", "", "", nullptr},
        {"", "255.0.255.0", "", nullptr},
        {"", "0.0.0.0", "", nullptr},
        {"192.0.2.77", "", "", "192.0.2.77/24 192.0.2.1 "},
        {"", "255.255.255.128", "", "192.0.2.77/25 192.0.2.1 "},
        {"", "", "192.0.2.2", "192.0.2.77/25 192.0.2.2 "},
        {"", "", "192.0.2.200", "192.0.2.77/25 "},
        {"10.9.8.7", "255.255.0.0", "10.9.0.1", "10.9.8.7/16 10.9.0.1 "},
        {"", "", "10.9.8.7", "10.9.8.7/16 "},
        {"", "", "10.9.0.1", "10.9.8.7/16 10.9.0.1 "},
        {"", "", "239.9.0.1", "10.9.8.7/16 "},
        {"198.51.100.4", "255.255.255.254", "198.51.100.5", "198.51.100.4/31 198.51.100.5 "},
        {"203.0.113.9", "", "", "203.0.113.9/31 "},
    };
    std::string before = State();
    ASSERT_EQ(before, "192.0.2.10/24 192.0.2.1 ");
    for (const auto& row : kRows) {
        NetworkApplier applier("eth0");
        Set(&applier, row.address, row.mask, row.gateway);
        ASSERT_EQ(State(), before) << "nothing happens before the start";
        applier.Start();
        const std::string after = row.state == nullptr ? before : row.state;
        EXPECT_EQ(State(), after) << row.address << ' ' << row.mask << ' ' << row.gateway;
        before = State();
    }
}

TEST_F(NetworkApplierTest, AppliesChangesTogetherOneSecondAfterTheLast)
{
    NetworkApplier applier("eth0");
    applier.Start();
    for (const char* const state : {"10.9.8.7/16 10.9.0.1 ", "192.0.2.10/24 192.0.2.1 "}) {
        const bool away = *state == '1' && state[1] == '0';
        Set(&applier, away ? "10.9.8.7" : "192.0.2.10", "", "");
        const auto set = std::chrono::steady_clock::now();
        Set(&applier, "", away ? "255.255.0.0" : "255.255.255.0", away ? "10.9.0.1" : "192.0.2.1");
        while (State() != state)
            std::this_thread::yield();
        EXPECT_GE(std::chrono::steady_clock::now() - set, std::chrono::seconds(1));
    }
}

} // namespace
