#include "server/requests/search_requests.h"

#include <arpa/inet.h>

#include "camera/camera_commands.h"
#include "camera/device_commands.h"
#include "config/network_text.h"
#include "config/server_identity.h"
#include "tests/exchange.h"

namespace {

std::string g_sets; // what was set, in order

int Fill(char* to, const char* text)
{
    strcpy(to, text);
    return 0;
}

int Note(const std::string& what)
{
    g_sets += what + "; ";
    return 0;
}

int NoteAddress(const char* what, const InterfaceAddress* in)
{
    return Note(std::string(what) + " " + in->szInterface + " " + in->szAddress);
}

const std::string kLongName(60, 'n');

} // namespace

// The camera and the texts below the handlers.
const char* ChooseActiveInterface()
{
    return "wlan0";
}
uint16_t VelmoraGetServerPort()
{
    return 34567;
}
int CameraGetGateway(const char*, char* to)
{
    return Fill(to, "192.168.1.1");
}
int CameraGetIPAddr(const char*, char* to)
{
    return Fill(to, "192.168.1.10");
}
int CameraGetNetmask(const char*, char*)
{
    return 0;
} // learns nothing
int CameraGetMacAddr(const char*, char* to)
{
    return Fill(to, "00:1A:2B:3C:4D:5E");
}
int CameraGetHostname(char* to)
{
    return Fill(to, (kLongName + "\"\x80zz").c_str());
}
int CameraGetHttpPort(uint16_t* out)
{
    return *out = 8080, 0;
}
int CameraGetDeviceInformation(DeviceInformation* out)
{
    return Fill(out->szSerialNumber, kLongName.c_str());
}
int CameraGetArgeementProperty(AgreementEntry* in, AgreementEntry* out)
{
    out->ucArgType = in->ucArgType;
    out->ucSwitch6 = 1;
    return 0;
}
int CameraSetArgeementProperty(AgreementEntry* in)
{
    EXPECT_EQ(in->ucSwitch6, 1); // as it was read
    return Note("service " + std::to_string(in->ucArgType) + " port " + std::to_string(in->usPort));
}
int CameraSetHttpPort(uint16_t port)
{
    return Note("http " + std::to_string(port));
}
int CameraSetHostname(const char* name)
{
    return Note(std::string("name ") + name);
}
int CameraSetGateway(const InterfaceAddress* in)
{
    return NoteAddress("gateway", in);
}
int CameraSetIPAddr(const InterfaceAddress* in)
{
    return NoteAddress("address", in);
}
int CameraSetNetmask(const InterfaceAddress* in)
{
    return NoteAddress("mask", in);
}
uint32_t IpTextToNumber(const char* dotted)
{
    return inet_addr(dotted);
}
void HexTextToIpText(const char* hex, char* dotted, size_t)
{
    strcpy(dotted, hex + 2);
}
bool IsValidHostOrIp(const char* text)
{
    return text[0] == 'c';
}

namespace {

TEST(Search, TellsEverythingWholeAndBelongsToNoSession)
{
    const TestConnection connection(7);
    const Answer answer = ExchangeOn(connection.fd(), ProcessDevSearchReq, MakeRequest(1530, "{"));
    EXPECT_EQ(answer.header.usMessageId, 1531);
    EXPECT_EQ(answer.header.ulSessionId, 7U);
    EXPECT_EQ(answer.body,
              R"({"NetWork.NetCommon":{"GateWay":"0x0101A8C0","HostIP":"0x0A01A8C0","HostName":")" +
                  kLongName + "\\\"\x80zz" +
                  R"(","HttpPort":8080,"MAC":"00:1A:2B:3C:4D:5E","MaxBps":0,"MonMode":"TCP","SN":")" +
                  kLongName +
                  R"(","SSLPort":34567,"Submask":"0xFFFFFFFF","TCPMaxConn":10,"TCPPort":34567,)"
                  R"("TransferPlan":"Quality","UDPPort":34568,"UseHSDownLoad":false},)"
                  R"("Ret":100,"SessionID":"0x00000000"})");
}

TEST(AddressSetting, TakesEveryStepThatPassesItsTestOnTheCameraThatIsNamed)
{
    const struct {
        std::string body;
        const char* sets;
    } rows[] = {
        {"", ""},
        {R"({"MAC":"00:1a:2b:3c:4d:5e")", ""},
        {R"(["00:1A:2B:3C:4D:5E"])", ""},
        {R"({"HttpPort":80,"TCPPort":9000})", ""},
        {R"({"MAC":0,"HttpPort":80,"TCPPort":9000})", ""},
        {R"({"MAC":"00:1A:2B:3C:4D:5F","HttpPort":80,"TCPPort":9000})", ""},
        {R"({"MAC":"00:1a:2b:3c:4d:5E"})", "service 32 port 65535; "},
        {R"({"Submask":"0x255","HostName":"cam-01","HostIP":"0x10.0.0.2","GateWay":"0x10.0.0.1","tcpPort":9000,)"
         R"("HTTPPort":8080,"SSLPort":1,"UDPPort":2,"MAC":"00:1A:2B:3C:4D:5E"})",
         "http 8080; service 32 port 9000; gateway wlan0 10.0.0.1; address wlan0 10.0.0.2; name cam-01; "
         "mask wlan0 255; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","GateWay":1,"HostIP":null,"HostName":"-","Submask":[],"TCPPort":65537})",
         "service 32 port 1; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","HttpPort":80,"TCPPort":1})", "http 80; service 32 port 1; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","HttpPort":1024,"TCPPort":1})", "service 32 port 1; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","HttpPort":1025,"TCPPort":1})", "http 1025; service 32 port 1; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","HttpPort":65534,"TCPPort":1})", "http 65534; service 32 port 1; "},
        {R"({"MAC":"00:1A:2B:3C:4D:5E","HttpPort":65535,"TCPPort":1})", "service 32 port 1; "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.body);
        g_sets.clear();
        const Answer answer = ExchangeOn(/* fd= */ 999, ProcessDevIpSettingReq, MakeRequest(1532, row.body));
        EXPECT_EQ(answer.header.usMessageId, 1533);
        EXPECT_EQ(answer.body, R"({"Name":"","Ret":100,"SessionID":"0x00000000"})");
        EXPECT_EQ(g_sets, row.sets);
    }
}

} // namespace
