#include "config/network_objects.h"

#include <cstring>

#include "camera/device_commands.h"
#include "config/network_settings.h"
#include "config/server_identity.h"

namespace {

constexpr uint32_t kWiredDhcp = 0;

bool IsThisCamera(const char* interface, const char* mac)
{
    char own[kMacTextBytes] = "";
    (void)CameraGetMacAddr(interface, own);
    return mac != nullptr && strcmp(mac, own) == 0;
}

} // namespace

const char kNetNTP[] = R"({"Enable":false,"TimeZone":13,"UpdatePeriod":60,)"
                       R"("Server":{"Address":"0x00000000","Anonymity":false,"Name":"","Password":"",)"
                       R"("Port":554,"UserName":""}})";

const char kOnlineUpgrade[] = R"({"AutoUpgrade":true,"AutoUpgradeImp":true,"CheckFirmMode":1,"Enable":true,)"
                              R"("IgnoreAllVersion":false,"IgnoreCurVersion":false,"JustImpVersion":false,)"
                              R"("ServerAddr":"upgrade.velmora.example","ServerPort":8083})";

void BuildNetCommon(ReplyText* text)
{
    NetworkFacts facts;
    GetNetworkFacts(ChooseActiveInterface(), &facts);
    Add(text,
        R"({"GateWay":@,"HostIP":@,"HostName":@,"HttpPort":@,"MAC":@,"MaxBps":0,"MonMode":"TCP","SSLPort":@,)"
        R"("Submask":@,"TCPMaxConn":10,"TCPPort":@,"TransferPlan":"Quality","UDPPort":34568,)"
        R"("UseHSDownLoad":false})",
        AddressValue(facts.gateway), AddressValue(facts.address), Quoted(facts.hostName),
        Number(facts.usHttpPort), Quoted(facts.mac), Number(facts.usServerPort), AddressValue(facts.mask),
        Number(facts.usServerPort));
}

SetResult ApplyNetCommon(const cJSON* request, const cJSON* object)
{
    if (object == nullptr)
        return kReply;
    const char* const interface = ChooseActiveInterface();
    if (!IsThisCamera(interface, GetJsonString(request, "MAC")))
        return kReply;
    const int httpPort = GetJsonNumber(object, "HttpPort");
    if (!IsHttpPort(httpPort))
        return kNoReply;
    (void)CameraSetHttpPort(static_cast<uint16_t>(httpPort));
    SetServerPortMember(object);
    SetAddressMember(CameraSetGateway, interface, object, "GateWay");
    SetAddressMember(CameraSetIPAddr, interface, object, "HostIP");
    SetHostNameMember(object);
    SetAddressMember(CameraSetNetmask, interface, object, "Submask");
    return kReply;
}

void BuildNetDHCP(ReplyText* text)
{
    const JsonValue interface = Quoted(ChooseActiveInterface());
    Add(text,
        R"([{"Enable":false,"Interface":@},{"Enable":false,"Interface":@},{"Enable":false,"Interface":@}])",
        interface, interface, interface);
}

SetResult ApplyNetDHCP(const cJSON*, const cJSON* object)
{
    const char* const interface = ChooseActiveInterface();
    const cJSON* const element = cJSON_IsArray(object) != 0 ? cJSON_GetArrayItem(object, 0) : nullptr;
    if (element == nullptr)
        return kReply;
    const char* const named = GetJsonString(element, "Interface");
    if (named == nullptr || strcmp(named, interface) != 0)
        return kNoReply;
    const DhcpStatue record{kWiredDhcp, static_cast<uint32_t>(GetJsonBool(element, "Enable"))};
    (void)CameraSetDhcpStatue(&record);
    return kReply;
}

// The second server is the first.
void BuildNetDNS(ReplyText* text)
{
    char server[kAddressTextBytes] = "";
    (void)CameraGetDNS(ChooseActiveInterface(), server);
    Add(text, R"({"Address":@,"SpareAddress":@})", AddressValue(server), AddressValue(server));
}
