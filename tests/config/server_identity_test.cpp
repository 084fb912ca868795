#include "config/server_identity.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "camera/camera_commands.h"

namespace {

uint16_t g_recordPort = 0;

std::string InterfaceName()
{
    char name[kInterfaceNameBytes];
    memset(name, 'x', sizeof name);
    GetInterfaceName(name);
    return name;
}

} // namespace

// The camera floor's record, played by the test.
int CameraGetArgeementProperty(AgreementEntry* selector, AgreementEntry* out)
{
    EXPECT_EQ(selector->ucArgType, 32);
    out->usPort = g_recordPort;
    return g_recordPort != 0 ? 0 : -1;
}

namespace {

TEST(ServerPort, IsTheRecordsAndSetOnce)
{
    EXPECT_EQ(VelmoraGetServerPort(), 0);
    EXPECT_EQ(g_port_server, 0);
    g_recordPort = 9000;
    EXPECT_EQ(VelmoraGetServerPort(), 9000);
    EXPECT_EQ(g_port_server, 9000);
    g_recordPort = 9000;
    EXPECT_EQ(VelmoraGetServerPort(), 9000);
    EXPECT_EQ(g_port_server, 9000);
}

TEST(InterfaceName, IsCutToItsField)
{
    EXPECT_EQ(InterfaceName(), "eth0");
    SetInterfaceName(std::string(64, 'n').c_str());
    EXPECT_EQ(InterfaceName(), std::string(63, 'n'));
}

TEST(InterfaceChoice, FollowsTheLinkOfEth0)
{
    const struct {
        const char* change;
        const char* choice;
    } cases[] = {
        {"true", "wlan0"}, // there is no eth0
        {"ip link add eth0 type veth peer name far0 && ip link set eth0 up && ip link set far0 up", "eth0"},
        {"ip link set far0 down", "wlan0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.change);
        ASSERT_EQ(std::system(c.change), 0);
        EXPECT_STREQ(ChooseActiveInterface(), c.choice);
        EXPECT_EQ(InterfaceName(), c.choice);
    }
}

} // namespace
