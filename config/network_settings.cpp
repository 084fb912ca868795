#include "config/network_settings.h"

#include <cstring>

#include "camera/camera_commands.h"
#include "camera/device_commands.h"
#include "common/bounded_text.h"
#include "config/server_identity.h"

void GetNetworkFacts(const char* interface, NetworkFacts* facts)
{
    *facts = {};
    (void)CameraGetGateway(interface, facts->gateway);
    (void)CameraGetIPAddr(interface, facts->address);
    (void)CameraGetHostname(facts->hostName);
    (void)CameraGetHttpPort(&facts->usHttpPort);
    (void)CameraGetMacAddr(interface, facts->mac);
    facts->usServerPort = VelmoraGetServerPort();
    (void)CameraGetNetmask(interface, facts->mask);
}

JsonValue AddressValue(const char* dotted)
{
    return UpperHex(IpTextToNumber(dotted));
}

bool IsHttpPort(int port)
{
    return port == 80 || (port >= 1025 && port <= 65534);
}

void SetAddressMember(AddressSetter* set, const char* interface, const cJSON* object, const char* key)
{
    const char* const hex = GetJsonString(object, key);
    if (hex == nullptr)
        return;
    InterfaceAddress record{};
    CopyBounded(record.szInterface, sizeof record.szInterface, interface, strlen(interface));
    HexTextToIpText(hex, record.szAddress, sizeof record.szAddress);
    (void)set(&record);
}

void SetHostNameMember(const cJSON* object)
{
    const char* const name = GetJsonString(object, "HostName");
    if (name != nullptr && IsValidHostOrIp(name))
        (void)CameraSetHostname(name);
}

void SetServerPortMember(const cJSON* object)
{
    AgreementEntry selector{};
    selector.ucArgType = ARG_AGREEMENT_VLM;
    AgreementEntry record{};
    (void)CameraGetArgeementProperty(&selector, &record);
    record.usPort = static_cast<uint16_t>(static_cast<uint32_t>(GetJsonNumber(object, "TCPPort")));
    (void)CameraSetArgeementProperty(&record);
}
