#include "server/ProtocolAccess.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "common/log.h"
#include "config/ability_report.h"
#include "config/get_config.h"
#include "config/set_config.h"
#include "config/system_information.h"
#include "media/key_frame_request.h"
#include "media/monitor_requests.h"
#include "server/requests/account_requests.h"
#include "server/requests/alarm_requests.h"
#include "server/requests/login_requests.h"
#include "server/requests/ptz_requests.h"
#include "server/requests/search_requests.h"
#include "server/requests/system_requests.h"

namespace {

// In the order in which the protocol lists its requests.
// clang-format off
constexpr RequestRow kRequests[] = {
    {kLoginReq, ProcessLoginReq},
    {kKeepaliveReq, ProcessKeepaliveReq},
    {kSysinfoReq, ProcessSysinfoReq},
    {kMonitorReq, ProcessMonitorReq},
    {kMonitorClaim, ProcessMonitorClaim},
    {kDevSearchReq, ProcessDevSearchReq},
    {kGetConfigReq, ProcessGetConfigReq},
    {kSetConfigReq, ProcessSetConfigReq},
    {kTimeSettingReq, ProcessTimeSettingReq},
    {kTimeQueryReq, ProcessTimeQueryReq},
    {kLogQueryReq, ProcessOPLogQueryReq},
    {kSysManagerReq, ProcessSysManagerReq},
    {kGetAbilityReq, ProcessGetAbilityReq},
    {kGetChanTitleReq, ProcessGetChanTitleReq},
    {kAlarmSubscribeReq, ProcessAlarmSubscribeReq},
    {kUserManageReq, ProcessUserManageReq},
    {kUserGroupReq, ProcessUserGroupReq},
    {kUserUsersReq, ProcessUserUsersReq},
    {kUserSettingReq, ProcessUserSettingReq},
    {kDevIpSettingReq, ProcessDevIpSettingReq},
    {kPtzControlReq, ProcessOPPTZControlReq},
    {kForceIFrameReq, ProcessForceIFrameReq},
    {kAlarmUnsubscribeReq, ProcessAlarmUnsubscribeReq},
};
// clang-format on

consteval bool IdsAreUnique()
{
    for (const RequestRow* row = std::begin(kRequests); row != std::end(kRequests); ++row)
        for (const RequestRow* other = row + 1; other != std::end(kRequests); ++other)
            if (row->usMessageId == other->usMessageId)
                return false;
    return true;
}
static_assert(IdsAreUnique());

// The server's own search and IP-setting replies, which its UDP socket hears back because they are
// broadcast.
bool IsOwnEcho(uint16_t messageId)
{
    return messageId == kDevSearchReply || messageId == kDevIpSettingReply;
}

// Prints the bytes received on standard output, in one write so that no other line comes between.
void PrintBytes(const uint8_t* bytes, size_t length)
{
    static constexpr char kTitle[] = "BYTE_PRINT \n";
    static constexpr char kDigits[] = "0123456789ABCDEF";
    char text[sizeof kTitle + 5 * kReadBytes + 1];
    char* end = std::copy_n(kTitle, sizeof kTitle - 1, text);
    for (size_t i = 0; i < std::min(length, kReadBytes); ++i) {
        const char byteText[] = {'0', 'x', kDigits[bytes[i] >> 4], kDigits[bytes[i] & 0xF], ' '};
        end = std::copy_n(byteText, sizeof byteText, end);
    }
    *end++ = '\n';
    (void)fwrite(text, 1, static_cast<size_t>(end - text), stdout); // a diagnostic: nobody to tell
}

void ReportUnsupported(uint16_t messageId, const uint8_t* request, int requestLen)
{
    constexpr char kName[] = "ProtocolNetworkProcess";
    LogTrace("@@@@@@@@@@@@@@@@@%s %d: Not supported this command : %d\n", kName, __LINE__, messageId);
    const JsonPtr body = ParseBody(request, requestLen);
    const char* const name = GetJsonString(body.get(), "Name");
    LogTrace("@@@@@@@@@@@%s %d: Name = %s\n", kName, __LINE__, TextForLog(name));
    PrintBytes(request, requestLen > 0 ? static_cast<size_t>(requestLen) : 0);
}

} // namespace

std::span<const RequestRow> Requests()
{
    return kRequests;
}

int ProtocolNetworkProcess(int fd, const uint8_t* request, int requestLen, uint8_t* reply, int* replyLen)
{
    const MessageHeader header = ReadHeader(request, requestLen > 0 ? static_cast<size_t>(requestLen) : 0);
    const std::string_view body = RequestBody(request, requestLen);
    LogTrace("%s %d: id = %d cmd = %d data len = %d data = %.*s\n", __func__, __LINE__, header.ulSessionId,
             header.usMessageId, header.ulBodyLength, static_cast<int>(body.size()), body.data());
    *replyLen = 0;
    if (IsOwnEcho(header.usMessageId))
        return 0;
    const auto row = std::find_if(std::begin(kRequests), std::end(kRequests), [&header](const RequestRow& r) {
        return r.usMessageId == header.usMessageId;
    });
    if (row != std::end(kRequests))
        return row->handler(fd, request, requestLen, reply, replyLen);
    ReportUnsupported(header.usMessageId, request, requestLen);
    return 0;
}
