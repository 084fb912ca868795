// Operations on network, time zone and accounts through their wrappers: the exact messages of each setter,
// and what the getters learn from the running system. Runs in the sandbox, whose eth0 they read.
#include "camera/network_operations.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

#include "camera/device_commands.h"
#include "tests/camera/parameter_host.h"

namespace {

using std::string;
using std::string_literals::operator""s;

Request SentText(int code, const string& text)
{
    return {code, {text.begin(), text.end()}};
}

InterfaceAddress Record(const char* interface, const string& address)
{
    InterfaceAddress record{};
    memcpy(record.szInterface, interface, strnlen(interface, sizeof record.szInterface));
    memcpy(record.szAddress, address.data(), std::min(address.size(), sizeof record.szAddress));
    return record;
}

TEST(AddressSetters, SendValidAddressesOfKnownInterfaces)
{
    const std::tuple<int (*)(const InterfaceAddress*), int, int> setters[] = {{CameraSetIPAddr, 0, 305},
                                                                              {CameraSetNetmask, 1, 306},
                                                                              {CameraSetGateway, 14, 307},
                                                                              {CameraSetDNS, 46, 308}};
    const string bytes = "\xC0\x00\x02\x07"s;
    Host().Take();
    for (const auto& [set, wiredCode, wirelessCode] : setters) {
        for (const char* interface : {"eth0", "wlan0", "eth1", "", "eth0eth0eth0eth0"}) {
            const InterfaceAddress record = Record(interface, "192.0.2.7");
            EXPECT_EQ(set(&record), 0) << interface;
        }
        EXPECT_EQ(Host().Take(), (std::vector{SentText(wiredCode, bytes), SentText(wirelessCode, bytes)}));
        for (const string& invalid : {"192.0.2.256"s, "256.0.2.7"s, "192.0.2.7.1"s, "192.0.2.-7"s,
                                      " 192.0.2.7"s, "4294967296"s, ""s, "camera"s, string(32, '7')}) {
            const InterfaceAddress record = Record("eth0", invalid);
            EXPECT_EQ(set(&record), -1) << invalid;
        }
        EXPECT_EQ(set(nullptr), -1);
        EXPECT_EQ(Host().Take(), std::vector<Request>{});
    }
}

// One account whose texts are too long, the password without its zero.
UserList LongUser()
{
    UserList list{};
    list.ulCount = 1;
    memset(list.strAcount[0].szName, 'u', 32);
    memset(list.strAcount[0].szPassword, 'p', sizeof list.strAcount[0].szPassword);
    list.strAcount[0].ulAuthority = 2;
    return list;
}
const UserList kLongUser = LongUser();
const UserList kNobody{};
const DhcpStatue kDhcp[] = {{0, 1}, {1, 0x01020304}, {2, 1}};
const string kLongName(120, 'n');

TEST(DeviceSetters, SendTheirFieldsInOrder)
{
    const string account = string(31, 'u') + '\0' + string(31, 'p') + "\0\x02\0\0\0"s;
    const struct {
        const char* name;
        int (*call)();
        int status;
        std::vector<Request> sent;
    } cases[] = {
        {"DHCP, wired", [] { return CameraSetDhcpStatue(&kDhcp[0]); }, 0, {Sent<uint32_t>(15, 1)}},
        {"wireless", [] { return CameraSetDhcpStatue(&kDhcp[1]); }, 0, {Sent<uint32_t>(304, 0x01020304)}},
        {"neither", [] { return CameraSetDhcpStatue(&kDhcp[2]); }, 0, {}},
        {"no record", [] { return CameraSetDhcpStatue(nullptr); }, -1, {}},
        {"HTTP port", [] { return CameraSetHttpPort(8080); }, 0, {SentShort(2, 8080)}},
        {"host name", [] { return CameraSetHostname("a\x80z\xFF"); }, 0, {SentText(65, "a\x80z\xFF")}},
        {"two bytes", [] { return CameraSetHostname("ok\x80\xFFok"); }, -1, {}},
        {"cut", [] { return CameraSetHostname(kLongName.c_str()); }, 0, {SentText(65, string(99, 'n'))}},
        {"zone", [] { return CameraSetTimeZone(0, 40); }, 0, {SentByte(221, 0), SentByte(223, 40)}},
        {"zone and mode", [] { return CameraSetTimeZone(256, 0); }, 0, {SentByte(221, 2), SentByte(223, 0)}},
        {"new account", [] { return CameraCreateUser(&kLongUser); }, 0, {SentText(248, account)}},
        {"account gone", [] { return CameraDelUser(&kLongUser); }, 0, {SentText(249, account)}},
        {"other account", [] { return CameraSetUser(&kLongUser); }, 0, {SentText(250, account)}},
        {"empty list", [] { return CameraCreateUser(&kNobody); }, -1, {}},
        {"defaults", [] { return CameraFactoryDefault(1); }, 0, {SentByte(243, 1)}},
        {"no place", [] { return CameraGetTimeZone(nullptr); }, -1, {}},
    };
    Host().Set<uint8_t>({{1170, 0}});
    Host().Take();
    for (const auto& row : cases) {
        EXPECT_EQ(row.call(), row.status) << row.name;
        EXPECT_EQ(Host().Take(), row.sent) << row.name;
    }
}

// What a getter writes over "old"; the next byte beyond the text's place must stay.
string LiveText(int (*get)(const char*, char*), const char* interface, size_t size = 16)
{
    char text[32] = "old";
    text[size] = '#';
    EXPECT_EQ(get(interface, text), 0);
    EXPECT_EQ(text[size], '#');
    EXPECT_EQ(get(interface, nullptr), -1);
    EXPECT_EQ(get(nullptr, text), -1);
    return text;
}

TEST(LiveGetters, AskTheSystemAndLeaveWhatItDoesNotSay)
{
    EXPECT_EQ(LiveText(CameraGetIPAddr, "eth0"), "192.0.2.10");
    EXPECT_EQ(LiveText(CameraGetNetmask, "eth0"), "255.255.255.0");
    EXPECT_EQ(LiveText(CameraGetMacAddr, "eth0", 18), "02:00:5E:A1:B2:C3");
    for (const char* interface : {"wlan0", "eth0-and-more-than-a-name", ""}) {
        EXPECT_EQ(LiveText(CameraGetIPAddr, interface), "old");
        EXPECT_EQ(LiveText(CameraGetNetmask, interface), "old");
        EXPECT_EQ(LiveText(CameraGetMacAddr, interface, 18), "00:00:00:00:00:00");
    }
}

TEST(LiveGetters, TakeNameServersByLine)
{
    ASSERT_EQ(mount("tmpfs", "/etc", "tmpfs", 0, nullptr), 0);
    EXPECT_EQ(LiveText(CameraGetDNS, "eth0"), "old") << "no file";
    const std::tuple<string, const char*, const char*> cases[] = {
        {"nameserver 192.0.2.53\nnameserver 192.0.2.54\n", "192.0.2.53", "192.0.2.54"},
        {"search here\n# nameserver\t192.0.2.54\n", "old", "192.0.2.54"},
        {"nameserver 192.0.2.53", "old", "old"},
        {"nameserver\n\n", "old", "old"},
        {"nameserver 2001:db8:1234:5678::1\n", "2001:db8:1234:5", "old"},
        {"nameserver " + string(130, '5') + "\n", "old", "old"},
        {"\0\n\xFF\n"s, "old", "old"},
    };
    for (const auto& [text, first, second] : cases) {
        std::ofstream("/etc/resolv.conf") << text;
        EXPECT_EQ(LiveText(CameraGetDNS, "eth0"), first) << text;
        EXPECT_EQ(LiveText(CameraGetDNS, "wlan0"), second) << text;
    }
    ASSERT_EQ(umount("/etc"), 0);
}

TEST(LiveGetters, TakeTheGatewayOfARouteOrTheStoredOne)
{
    Host().Set<uint32_t>({{1100, 0x097100CB}});
    EXPECT_EQ(LiveText(CameraGetGateway, "eth0"), "192.0.2.1");
    EXPECT_EQ(LiveText(CameraGetGateway, "ETH"), "192.0.2.1") << "begins like eth0";
    EXPECT_EQ(LiveText(CameraGetGateway, "wlan0"), "203.0.113.9");
    const string headings = "Iface\tDestination\tGateway \tFlags\n";
    const std::tuple<string, const char*> cases[] = {
        {headings + "eth0\t0\t010200C0\t2\neth0\t0\t020200C0\t1\neth0\t0\tFE0200C0\t3\n", "192.0.2.254"},
        {"eth0\t0\t010200C0\t3\n", "203.0.113.9"}, // where the headings should be
        {headings + "eth0\t0\t00000000\t3\neth0\t0\t010200C0\t3\n", "203.0.113.9"},
        {headings + "eth0\n\neth0\tx\ty\tz\n" + string(300, 'e') + "\teth0\t0\t0\t3\n", "203.0.113.9"},
        {"", "203.0.113.9"},
    };
    ASSERT_EQ(mount("tmpfs", "/proc/self/net", "tmpfs", 0, nullptr), 0);
    for (const auto& [routes, gateway] : cases) {
        std::ofstream("/proc/net/route") << routes;
        EXPECT_EQ(LiveText(CameraGetGateway, "eth0"), gateway) << routes;
    }
    ASSERT_EQ(umount("/proc/self/net"), 0);
}

TEST(StoredGetters, CopyTheBlockWithinItsFields)
{
    ParameterHost& host = Host();
    memset(host.block, 0, kBlockBytes);
    memset(host.block + 1912, 'd', 64); // no zero, and another field behind it
    memcpy(host.block + 1976, "V1", 3);
    memcpy(host.block + 2040, "HW", 3);
    memcpy(host.block + 5908, "SN", 3);
    host.Set<uint16_t>({{1108, 8080}});
    host.Set<uint8_t>({{1158, 40}});
    memcpy(host.block + 4, "root", 5);
    memset(host.block + 4 + 15 * 68, 'l', 68); // the last entry, without zeros

    uint16_t port = 0;
    uint8_t zone = 0;
    char name[65];
    EXPECT_EQ(CameraGetHttpPort(&port) + CameraGetTimeZone(&zone) + CameraGetHostname(name), 0);
    EXPECT_EQ(port, 8080);
    EXPECT_EQ(zone, 40);
    EXPECT_EQ(name, string(64, 'd'));

    DeviceInformation device;
    memset(&device, 0xEE, sizeof device);
    UserList users;
    const auto get = [&] { return CameraGetDeviceInformation(&device) + CameraGetUsers(&users); };
    EXPECT_EQ(get(), 0);
    const char* const texts[] = {device.szManufacturer, device.szModel,           device.szFirmwareVersion,
                                 device.szSerialNumber, device.szHardwareId,      device.szChip,
                                 device.szSensor,       users.strAcount[0].szName};
    const string expected[] = {"Corvane", string(64, 'd'), "V1", "SN", "HW", "Q7RTN", "OS05A10", "root"};
    for (size_t i = 0; i < std::size(texts); i++)
        EXPECT_EQ(texts[i], expected[i]);
    EXPECT_EQ(device.ucConstant, 214);
    EXPECT_EQ(users.ulCount, 2U) << "entries without a name are none";
    EXPECT_EQ(users.strAcount[1].szPassword, string(32, 'l'));
    EXPECT_EQ(users.strAcount[1].ulAuthority, 0x6C6C6C6CU);

    std::ofstream("/var/cfg/CustomTools.cfg")
        << "[CustomToolCfg]\nAdminUser=chief\nCustomCompanyName=" << string(200, 'c') << "\n";
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(device.szManufacturer, string(127, 'c'));
    EXPECT_STREQ(users.strAcount[0].szName, "chief");
    std::remove("/var/cfg/CustomTools.cfg");
}

} // namespace
