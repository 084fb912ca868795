#include "server/requests/search_requests.h"

#include <strings.h>

#include "camera/device_commands.h"
#include "common/log.h"
#include "config/network_settings.h"
#include "config/server_identity.h"

namespace {

// Whether the request names this camera.
bool IsForThisCamera(const cJSON* request, const char* interface)
{
    constexpr char kName[] = "ProcessDevIpSettingReq";
    char deviceMac[kMacTextBytes]{};
    (void)CameraGetMacAddr(interface, deviceMac); // all zeros when the interface has none
    const char* const mac = GetJsonString(request, "MAC");
    LogTrace("%s %d dev mac %s\n", kName, __LINE__, deviceMac);
    LogTrace("%s %d MAC %s\n", kName, __LINE__, TextForLog(mac));
    if (mac != nullptr && strcasecmp(mac, deviceMac) == 0)
        return true;
    LogTrace("%s %d Mac is not right!\n", kName, __LINE__);
    return false;
}

// The results of the setters below are dropped: the reply says nothing about them.

void SetHttpPort(const cJSON* request)
{
    const int port = GetJsonNumber(request, "HttpPort");
    if (!IsHttpPort(port))
        return;
    LogTrace("#################%s %d: \n", "ProcessDevIpSettingReq", __LINE__);
    (void)CameraSetHttpPort(static_cast<uint16_t>(port));
}

void ApplySettings(const cJSON* request)
{
    const char* const interface = ChooseActiveInterface();
    if (!IsForThisCamera(request, interface))
        return;
    SetHttpPort(request);
    SetServerPortMember(request);
    SetAddressMember(CameraSetGateway, interface, request, "GateWay");
    SetAddressMember(CameraSetIPAddr, interface, request, "HostIP");
    SetHostNameMember(request);
    SetAddressMember(CameraSetNetmask, interface, request, "Submask");
}

} // namespace

int ProcessDevSearchReq(int fd, const uint8_t* request, int, uint8_t* reply, int* replyLen)
{
    LogRequest(__func__, __LINE__);
    const char* const interface = ChooseActiveInterface();
    LogTrace("%s %d: Devname = %s\n", __func__, __LINE__, interface);
    const MessageHeader header = StartReply(fd, request, kDevSearchReply);
    NetworkFacts facts;
    GetNetworkFacts(interface, &facts);
    DeviceInformation device{};
    (void)CameraGetDeviceInformation(&device);
    ReplyText text = StartReplyText(reply);
    // The session is always 0: this answer is not for one recorder.
    Add(&text,
        R"({"NetWork.NetCommon":{"GateWay":@,"HostIP":@,"HostName":@,"HttpPort":@,"MAC":@,"MaxBps":0,)"
        R"("MonMode":"TCP","SN":@,"SSLPort":@,"Submask":@,"TCPMaxConn":10,"TCPPort":@,)"
        R"("TransferPlan":"Quality","UDPPort":34568,"UseHSDownLoad":false},)"
        R"("Ret":100,"SessionID":"0x00000000"})",
        AddressValue(facts.gateway), AddressValue(facts.address), Quoted(facts.hostName),
        Number(facts.usHttpPort), Quoted(facts.mac), Quoted(device.szSerialNumber),
        Number(facts.usServerPort), AddressValue(facts.mask), Number(facts.usServerPort));
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
