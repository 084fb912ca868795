#include "camera/agreement_operations.h"

#include "camera/camera_records.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

// One switch of a service: its byte in the block and its parameter field; both 0 when it has none.
struct ServiceSwitch {
    size_t offset;
    uint32_t ulField;
};

// What a change of a service sends.
enum class Sends : uint8_t {
    kAll,          // switch 6, the port, switch 7
    kPortOrSwitch, // the port, or the switch when the port is 0
};

struct Service {
    AgreementType type;
    Sends sends;
    uint32_t ulPortField;
    size_t portOffset;
    ServiceSwitch switch6; // byte 6 of the entry
    ServiceSwitch switch7; // byte 7 of the entry
};

constexpr ServiceSwitch kNone = {0, 0};

using enum Sends;
using namespace block;

// In the order in which all services are listed.
constexpr Service kServices[] = {
    {ARG_AGREEMENT_RTSP, kPortOrSwitch, 4102, kRtspPort, kNone, {kRtspEncryption, 4107}},
    {ARG_AGREEMENT_OST, kAll, 4388, kOstraPort, {kOstraEnable, 4387}, kNone},
    {ARG_AGREEMENT_ONVIF, kAll, 4103, kOnvifPort, {kOnvifAuth, 4399}, {kOnvifEnable, 4391}},
    {ARG_AGREEMENT_HTTP, kAll, 4101, kHttpPort, kNone, kNone},
    {ARG_AGREEMENT_HTTPS, kAll, 4104, kHttpsPort, kNone, kNone},
    {ARG_AGREEMENT_VLM, kAll, 4390, kVelmoraPort, {kVelmoraEnable, 4389}, kNone},
    {ARG_AGREEMENT_PALLO, kPortOrSwitch, 4108, kPalloPort, {kPalloEncryption, 4109}, kNone},
};

const Service* FindService(uint8_t type)
{
    for (const Service& service : kServices)
        if (service.type == type)
            return &service;
    return nullptr;
}

void FillSwitch(const SysInfo* config, const ServiceSwitch& row, uint8_t* value)
{
    if (row.offset != 0)
        *value = BlockField<uint8_t>(config, row.offset);
}

void FillEntry(const SysInfo* config, const Service& service, AgreementEntry* entry)
{
    entry->ucEnable = 1;
    entry->ucArgType = service.type;
    entry->usPort = BlockField<uint16_t>(config, service.portOffset);
    FillSwitch(config, service.switch6, &entry->ucSwitch6);
    FillSwitch(config, service.switch7, &entry->ucSwitch7);
}

void SendSwitch(const ServiceSwitch& row, const uint8_t& value)
{
    if (row.ulField != 0)
        (void)ControlSystemData(row.ulField, &value, sizeof value);
}

void SendEntry(const Service& service, const AgreementEntry& entry)
{
    const bool sendsPort = service.sends == kAll || entry.usPort != 0;
    const bool sendsSwitches = service.sends == kAll || entry.usPort == 0;
    if (sendsSwitches)
        SendSwitch(service.switch6, entry.ucSwitch6);
    if (sendsPort)
        (void)ControlSystemData(service.ulPortField, &entry.usPort, sizeof entry.usPort);
    if (sendsSwitches)
        SendSwitch(service.switch7, entry.ucSwitch7);
}

// The services' own log lines.
void LogEntry(const char* caller, const AgreementEntry& entry)
{
    switch (entry.ucArgType) {
    case ARG_AGREEMENT_RTSP:
        LogTrace("%s %d:RTSPPort = %d, pProperty->ucEncrypt = %d, ucRes = %d\n", caller, __LINE__,
                 entry.usPort, entry.ucSwitch7, entry.ucSwitch6);
        break;
    case ARG_AGREEMENT_OST:
    case ARG_AGREEMENT_PRIVATE:
    case ARG_AGREEMENT_VLM:
        LogTrace("%s %d:pProperty->usPort = %d, pProperty->ucEnable = %d\n", caller, __LINE__, entry.usPort,
                 entry.ucSwitch6);
        break;
    case ARG_AGREEMENT_ONVIF:
        LogTrace("%s %d:pProperty->usPort = %d,pProperty->ucAuthentication = %d\n", caller, __LINE__,
                 entry.usPort, entry.ucSwitch6);
        break;
    case ARG_AGREEMENT_HTTP:
        LogTrace("%s %d:pProperty->usPort = %d\n", caller, __LINE__, entry.usPort);
        break;
    case ARG_AGREEMENT_HTTPS:
        LogTrace("%s %d:pProperty->usHttpsPort = %d\n", caller, __LINE__, entry.usPort);
        break;
    case ARG_AGREEMENT_PALLO:
        LogTrace("%s %d:pProperty->usPort = %d, pProperty->ucEncrypt = %d \n", caller, __LINE__, entry.usPort,
                 entry.ucSwitch6);
        break;
    default:
        break;
    }
}

} // namespace

int Common_SetArgeementProperty(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& entry = *static_cast<const AgreementEntry*>(input);
    LogTrace("%s %d: pArgeementProperty->ucCh = %d, pArgeementProperty->ucEnable = "
             "%d,pArgeementProperty->ucArgType = %d\n",
             __func__, __LINE__, entry.ucCh, entry.ucEnable, entry.ucArgType);
    LogEntry(__func__, entry);
    if (const Service* const service = FindService(entry.ucArgType))
        SendEntry(*service, entry);
    return kCameraOk;
}

int Common_GetArgeementProperty(const void* input, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (input == nullptr || output == nullptr || config == nullptr)
        return kCameraFailed;
    const uint8_t selector = static_cast<const AgreementEntry*>(input)->ucArgType;
    auto* const entries = static_cast<AgreementEntry*>(output);
    if (selector == ARG_AGREEMENT_ALL) {
        AgreementEntry* entry = entries;
        for (const Service& service : kServices)
            FillEntry(config, service, entry++);
    } else if (const Service* const service = FindService(selector)) {
        FillEntry(config, *service, entries);
    }
    LogTrace("%s,%d:ucArgType = 0x%x\n", __func__, __LINE__, entries[0].ucArgType);
    return kCameraOk;
}
