#include "camera/network_operations.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "camera/camera_records.h"
#include "camera/network_files.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/bounded_text.h"
#include "common/log.h"
#include "common/unique_fd.h"

namespace {

constexpr uint32_t kFieldHttpPort = 4101;
constexpr uint32_t kFieldHostName = 4145;

// An address setting's field on each interface.
struct AddressField {
    uint32_t ulWired;
    uint32_t ulWireless;
};
constexpr AddressField kAddress{4096, 4358};
constexpr AddressField kNetmask{4097, 4359};
constexpr AddressField kGateway{4098, 4360};
constexpr AddressField kDns{4099, 4361};
constexpr AddressField kDhcp{4105, 4357};

void WriteAddress(in_addr address, char* text)
{
    char dotted[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &address, dotted, sizeof dotted); // every address fits
    memcpy(text, dotted, strlen(dotted) + 1);
}

UniqueFd OpenQuerySocket()
{
    return UniqueFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

ifreq QueryFor(const char* interface)
{
    ifreq query{};
    CopyBounded(query.ifr_name, sizeof query.ifr_name, interface, strlen(interface));
    return query;
}

int GetInterfaceAddress(const void* interface, unsigned long request, void* output)
{
    if (interface == nullptr || output == nullptr)
        return kCameraFailed;
    const UniqueFd fd = OpenQuerySocket();
    ifreq query = QueryFor(static_cast<const char*>(interface));
    if (!fd.isValid()) {
        perror("socket");
    } else if (ioctl(fd.get(), request, &query) != 0) {
        perror("ioctl");
    } else {
        sockaddr_in address{};
        memcpy(&address, &query.ifr_addr, sizeof address);
        WriteAddress(address.sin_addr, static_cast<char*>(output));
    }
    return kCameraOk;
}

// Reads the address and the interface of the record, whose texts may lack their zero. False when the
// address is none.
struct AddressChange {
    in_addr address;
    char interface[kInterfaceTextBytes + 1];
    char text[sizeof InterfaceAddress{}.szAddress + 1];
};
bool ReadChange(const void* input, AddressChange* change)
{
    InterfaceAddress record;
    memcpy(&record, input, sizeof record);
    CopyBounded(change->interface, sizeof change->interface, record.szInterface, sizeof record.szInterface);
    CopyBounded(change->text, sizeof change->text, record.szAddress, sizeof record.szAddress);
    return inet_aton(change->text, &change->address) != 0;
}

void SendChange(const AddressField& field, const AddressChange& change)
{
    if (strcmp(change.interface, "eth0") == 0)
        (void)ControlSystemData(field.ulWired, &change.address, sizeof change.address);
    else if (strcmp(change.interface, "wlan0") == 0)
        (void)ControlSystemData(field.ulWireless, &change.address, sizeof change.address);
}

int SetAddress(const void* input, const AddressField& field)
{
    AddressChange change;
    if (input == nullptr || !ReadChange(input, &change))
        return kCameraFailed;
    SendChange(field, change);
    return kCameraOk;
}

// Names in a script of two bytes a character are refused; single bytes beyond ASCII pass.
bool HasTwoHighBytes(const char* text)
{
    for (; text[0] != '\0'; ++text)
        if ((static_cast<uint8_t>(text[0]) & 0x80) != 0 && (static_cast<uint8_t>(text[1]) & 0x80) != 0)
            return true;
    return false;
}

void WriteStoredGateway(char* output)
{
    const SysInfo* const config = GetSysConfig();
    if (config == nullptr)
        return;
    in_addr stored{};
    memcpy(&stored, config->ucByte + block::kGateway, sizeof stored);
    WriteAddress(stored, output);
}

} // namespace

int Common_GetIPAddr(const void* interface, void* address)
{
    return GetInterfaceAddress(interface, SIOCGIFADDR, address);
}

int Common_GetNetmask(const void* interface, void* mask)
{
    return GetInterfaceAddress(interface, SIOCGIFNETMASK, mask);
}

int Common_GetMacAddr(const void* interface, void* mac)
{
    if (interface == nullptr || mac == nullptr)
        return kCameraFailed;
    uint8_t byte[6]{};
    const UniqueFd fd = OpenQuerySocket();
    ifreq query = QueryFor(static_cast<const char*>(interface));
    if (!fd.isValid())
        printf("socket error");
    else if (ioctl(fd.get(), SIOCGIFHWADDR, &query) != 0)
        printf("net_get_hwaddr: ioctl SIOCGIFHWADDR");
    else
        memcpy(byte, query.ifr_hwaddr.sa_data, sizeof byte);
    snprintf(static_cast<char*>(mac), kMacTextBytes, "%02X:%02X:%02X:%02X:%02X:%02X", byte[0], byte[1],
             byte[2], byte[3], byte[4], byte[5]);
    return kCameraOk;
}

int Common_GetDNS(const void* interface, void* server)
{
    if (interface == nullptr || server == nullptr)
        return kCameraFailed;
    char* const text = static_cast<char*>(server);
    const size_t line = strcmp(static_cast<const char*>(interface), "eth0") == 0 ? 0 : 1;
    ReadNameServer(line, text, kInterfaceTextBytes);
    LogTrace("%s %d pDnsAddr = %s\n", __func__, __LINE__, text);
    return kCameraOk;
}

int Common_GetGateway(const void* interface, void* gateway)
{
    if (interface == nullptr || gateway == nullptr)
        return kCameraFailed;
    char* const text = static_cast<char*>(gateway);
    in_addr address{};
    if (const int ret = ReadGateway(static_cast<const char*>(interface), &address); ret != 0) {
        LogTrace("%s %d: ret = %d\n", __func__, __LINE__, ret);
        WriteStoredGateway(text);
    } else if (address.s_addr == 0) {
        LogTrace("%s %d: adr_inet.sin_addr.s_addr = %d\n", __func__, __LINE__, address.s_addr);
        WriteStoredGateway(text);
    } else {
        WriteAddress(address, text);
    }
    return kCameraOk;
}

int Common_SetIPAddr(const void* record, void*)
{
    return SetAddress(record, kAddress);
}

int Common_SetNetmask(const void* record, void*)
{
    return SetAddress(record, kNetmask);
}

int Common_SetGateway(const void* record, void*)
{
    return SetAddress(record, kGateway);
}

int Common_SetDNS(const void* record, void*)
{
    AddressChange change;
    if (record == nullptr)
        return kCameraFailed;
    if (!ReadChange(record, &change)) {
        LogTrace("%s %d Dns %s is invalid\n", __func__, __LINE__, change.text);
        return kCameraFailed;
    }
    SendChange(kDns, change);
    return kCameraOk;
}

int Common_SetDhcpStatue(const void* record, void*)
{
    if (record == nullptr)
        return kCameraFailed;
    DhcpStatue statue;
    memcpy(&statue, record, sizeof statue);
    if (statue.ulInterface == 0)
        (void)ControlSystemData(kDhcp.ulWired, &statue.ulEnable, sizeof statue.ulEnable);
    else if (statue.ulInterface == 1)
        (void)ControlSystemData(kDhcp.ulWireless, &statue.ulEnable, sizeof statue.ulEnable);
    return kCameraOk;
}

int Common_GetHttpPort(const void*, void* port)
{
    const SysInfo* const config = GetSysConfig();
    if (port == nullptr || config == nullptr)
        return kCameraFailed;
    const auto value = BlockField<uint16_t>(config, block::kHttpPort);
    memcpy(port, &value, sizeof value);
    return kCameraOk;
}

int Common_SetHttpPort(const void* port, void*)
{
    if (port == nullptr)
        return kCameraFailed;
    (void)ControlSystemData(kFieldHttpPort, port, sizeof(uint16_t));
    return kCameraOk;
}

int Common_GetHostname(const void*, void* name)
{
    const SysInfo* const config = GetSysConfig();
    if (name == nullptr || config == nullptr)
        return kCameraFailed;
    BlockText(config, block::kDeviceName, block::kIdentityBytes, static_cast<char*>(name),
              block::kIdentityBytes + 1);
    return kCameraOk;
}

int Common_SetHostname(const void* name, void*)
{
    if (name == nullptr)
        return kCameraFailed;
    const char* const text = static_cast<const char*>(name);
    LogTrace("%s %d: pHostname = %s\n", __func__, __LINE__, text);
    if (HasTwoHighBytes(text)) {
        LogTrace("%s %d: This is Chinese\n", __func__, __LINE__);
        return kCameraFailed;
    }
    char cut[100]{};
    CopyBounded(cut, sizeof cut, text, strlen(text));
    (void)ControlSystemData(kFieldHostName, cut, strlen(cut));
    return kCameraOk;
}
