#include "hosts/network_applier.h"

#include <arpa/inet.h>

#include <array>

#include "hosts/parameter_fields_table.h"
#include "tests/captured_output.h"
#include "tests/table.h"

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
        return OutputOf("{ ip -4 -o addr show dev eth0 | awk '{print $4}';"
                        "  ip route show default | awk '{print $3}'; } | tr '\\n' ' '");
    }
};

TEST_F(NetworkApplierTest, AppliesWhatAHostCanHaveAndRefusesTheRest)
{
    std::string before = State();
    ASSERT_EQ(before, "192.0.2.10/24 192.0.2.1 ");
    for (const TableRow& row : ReadTable(VELMORA_HOSTS_DATA "/addresses.tsv", 4)) {
        NetworkApplier applier("eth0");
        for (size_t i = 0; i < 3; ++i)
            if (row[i] != "-")
                applier.Set(std::array{kFieldAddress, kFieldNetmask, kFieldGateway}[i],
                            inet_addr(row[i].c_str()));
        ASSERT_EQ(State(), before) << "nothing happens before the start";
        applier.Start();
        EXPECT_EQ(State(), row[3] == "as before" ? before : row[3] + " ") << row[0] << row[1] << row[2];
        before = State();
    }
}

} // namespace
