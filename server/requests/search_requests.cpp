#include "server/requests/search_requests.h"

#include <strings.h>

#include <cstring>

#include "camera/camera_commands.h"
#include "camera/device_commands.h"
#include "common/bounded_text.h"
#include "common/log.h"
#include "config/network_text.h"
#include "config/server_identity.h"

namespace {

constexpr size_t kHostNameBytes = 65; // the camera's name has up to 64 characters

// What a getter cannot learn stays empty. All results are dropped for that reason.
struct NetworkFacts {
    char gateway[kAddressTextBytes];
    char address[kAddressTextBytes];
    char mask[kAddressTextBytes];
    char mac[kAddressTextBytes];
    char hostName[kHostNameBytes];
    uint16_t usHttpPort;
    uint16_t usServerPort;
    DeviceInformation device;
};

void GetNetworkFacts(const char* interface, NetworkFacts* facts)
{
    (void)CameraGetGateway(interface, facts->gateway);
    (void)CameraGetIPAddr(interface, facts->address);
    (void)CameraGetHostname(facts->hostName);
    (void)CameraGetHttpPort(&facts->usHttpPort);
    (void)CameraGetMacAddr(interface, facts->mac);
    (void)CameraGetDeviceInformation(&facts->device);
    facts->usServerPort = VelmoraGetServerPort();
    (void)CameraGetNetmask(interface, facts->mask);
}

JsonValue Address(const char* dotted)
{
    return UpperHex(IpTextToNumber(dotted));
}

const char* OrNull(const char* text)
{
    return text != nullptr ? text : "(null)";
}

// Whether the request names this camera.
bool IsForThisCamera(const cJSON* request, const char* interface)
{
    constexpr char kName[] = "ProcessDevIpSettingReq";
    char deviceMac[kAddressTextBytes]{};
    (void)CameraGetMacAddr(interface, deviceMac); // all zeros when the interface has none
    const char* const mac = GetJsonString(request, "MAC");
    LogTrace("%s %d dev mac %s\n", kName, __LINE__, deviceMac);
    LogTrace("%s %d MAC %s\n", kName, __LINE__, OrNull(mac));
    if (mac != nullptr && strcasecmp(mac, deviceMac) == 0)
        return true;
    LogTrace("%s %d Mac is not right!\n", kName, __LINE__);
    return false;
}

// The results of the setters below are dropped: the reply says nothing about them.

void SetHttpPort(const cJSON* request)
{
    const int port = GetJsonNumber(request, "HttpPort");
    if (port != 80 && (port < 1025 || port > 65534))
        return;
    LogTrace("#################%s %d: \n", "ProcessDevIpSettingReq", __LINE__);
    (void)CameraSetHttpPort(static_cast<uint16_t>(port));
}

// Not examined: a request without the member moves the server to port 65535 (at its next start).
void SetServerPort(const cJSON* request)
{
    AgreementEntry selector{};
    selector.ucArgType = ARG_AGREEMENT_VLM;
    AgreementEntry record{};
    (void)CameraGetArgeementProperty(&selector, &record);
    record.usPort = static_cast<uint16_t>(GetJsonNumber(request, "TCPPort"));
    (void)CameraSetArgeementProperty(&record);
}

void SetAddress(const cJSON* request, const char* key, const char* interface,
                int (*set)(const InterfaceAddress*))
{
    const char* const hex = GetJsonString(request, key);
    if (hex == nullptr)
        return;
    InterfaceAddress record{};
    CopyBounded(record.szInterface, sizeof record.szInterface, interface, strlen(interface));
    HexTextToIpText(hex, record.szAddress, sizeof record.szAddress);
    (void)set(&record);
}

void SetHostName(const cJSON* request)
{
    const char* const name = GetJsonString(request, "HostName");
    if (name != nullptr && IsValidHostOrIp(name))
        (void)CameraSetHostname(name);
}

void ApplySettings(const cJSON* request)
{
    const char* const interface = ChooseActiveInterface();
    if (!IsForThisCamera(request, interface))
        return;
    SetHttpPort(request);
    SetServerPort(request);
    SetAddress(request, "GateWay", interface, CameraSetGateway);
    SetAddress(request, "HostIP", interface, CameraSetIPAddr);
    SetHostName(request);
    SetAddress(request, "Submask", interface, CameraSetNetmask);
}

} // namespace

int ProcessDevSearchReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const char* const interface = ChooseActiveInterface();
    LogTrace("%s %d: Devname = %s\n", __func__, __LINE__, interface);
    const MessageHeader header = StartReply(fd, request, kDevSearchReply);
    NetworkFacts facts{};
    GetNetworkFacts(interface, &facts);
    ReplyText text = StartReplyText(reply);
    // The session is always 0: this answer is not for one recorder.
    Add(&text,
        R"({"NetWork.NetCommon":{"GateWay":@,"HostIP":@,"HostName":@,"HttpPort":@,"MAC":@,"MaxBps":0,)"
        R"("MonMode":"TCP","SN":@,"SSLPort":@,"Submask":@,"TCPMaxConn":10,"TCPPort":@,)"
        R"("TransferPlan":"Quality","UDPPort":34568,"UseHSDownLoad":false},)"
        R"("Ret":100,"SessionID":"0x00000000"})",
        Address(facts.gateway), Address(facts.address), Quoted(facts.hostName), Number(facts.usHttpPort),
        Quoted(facts.mac), Quoted(facts.device.szSerialNumber), Number(facts.usServerPort),
        Address(facts.mask), Number(facts.usServerPort));
    return FinishReply(header, text, reply, replyLen);
}

int ProcessDevIpSettingReq(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const MessageHeader header = StartReply(fd, request, kDevIpSettingReply);
    LogTrace("%s %d: seqnum = %d\n", __func__, __LINE__, header.ulSeqNum);
    if (const JsonPtr body = ParseBody(request, requestLen))
        ApplySettings(body.get());
    return WriteReply(header, R"("Name":"",)", reply, replyLen);
}
