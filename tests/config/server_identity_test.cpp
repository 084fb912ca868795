#include "config/server_identity.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

std::string InterfaceName()
{
    char name[kInterfaceNameBytes];
    GetInterfaceName(name);
    return name;
}

TEST(InterfaceChoice, FollowsTheLinkOfEth0)
{
    EXPECT_EQ(InterfaceName(), "eth0");
    SetInterfaceName(std::string(64, 'n').c_str());
    EXPECT_EQ(InterfaceName(), std::string(63, 'n')); // cut to its field
    const struct {
        const char* change;
        const char* choice;
    } cases[] = {
        {"true", "wlan0"}, // there is no eth0
        {"ip link add eth0 type veth peer name far0 && ip link set eth0 up && ip link set far0 up", "eth0"},
        {"ip link set far0 down", "wlan0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(std::system(c.change), 0);
        EXPECT_STREQ(ChooseActiveInterface(), c.choice) << c.change;
        EXPECT_EQ(InterfaceName(), c.choice);
    }
}

} // namespace
