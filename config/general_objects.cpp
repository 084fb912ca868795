#include "config/general_objects.h"

#include "camera/device_commands.h"
#include "common/log.h"

namespace {

constexpr uint32_t kTimeZones = 49;
constexpr uint32_t kDefaultTimeZone = 40; // eight hours east of UTC

// Minutes west of UTC, as the protocol counts them.
constexpr int MinutesOf(uint32_t index)
{
    return 720 - 30 * static_cast<int>(index);
}

uint32_t IndexOf(int minutes)
{
    for (uint32_t index = 0; index < kTimeZones; ++index)
        if (MinutesOf(index) == minutes)
            return index;
    return kDefaultTimeZone;
}

} // namespace

const char kGeneralGeneral[] =
    R"({"AutoLogout":0,"FontSize":24,"IranCalendarEnable":0,"LocalNo":0,"MachineName":"LocalHost",)"
    R"("OverWrite":"OverWrite","ScreenAutoShutdown":10,"ScreenSaveTime":0,"SnapInterval":2,)"
    R"("VideoOutPut":"Auto"})";

const char kGeneralLocation[] =
    R"({"DSTEnd":{"Day":0,"Hour":1,"Minute":1,"Month":11,"Week":1,"Year":1970},"DSTRule":"Off",)"
    R"("DSTStart":{"Day":0,"Hour":1,"Minute":1,"Month":3,"Week":2,"Year":1970},"DateFormat":"YYMMDD",)"
    R"("DateSeparator":"-","Language":"SimpChinese","TimeFormat":"24","VideoFormat":"NTSC","WorkDay":62})";

const char kAutoMaintain[] = R"({"AutoDeleteFilesDays":0,"AutoRebootHour":1,"AutoRebootDay":"Tuesday"})";

const char kExUserMap[] = R"({"UserNum":1,"User":[{"Name":"admin","Password":""}]})";

void BuildCorrespondent(ReplyText* text)
{
    DeviceInformation device{};
    (void)CameraGetDeviceInformation(&device);
    uint16_t httpPort = 0;
    (void)CameraGetHttpPort(&httpPort);
    Add(text, R"({"BrandInfo":"H264","FirmwareVersion":@,"HardwareId":@,"Port":@,"RevSpace":"NVT"})",
        Quoted(device.szFirmwareVersion), Quoted(device.szHardwareId), Number(httpPort));
}

void BuildTimeZone(ReplyText* text)
{
    uint8_t index = 0;
    (void)CameraGetTimeZone(&index);
    LogTrace("%s %d: timezone = %d\n", "ProcessGetConfigReq", __LINE__, index);
    Add(text, R"({"FirstUserTimeZone":0,"timeMin":@})",
        Number(MinutesOf(index < kTimeZones ? index : kDefaultTimeZone)));
}

SetResult ApplyTimeZone(const cJSON*, const cJSON* object)
{
    if (object != nullptr)
        (void)CameraSetTimeZone(0, IndexOf(GetJsonNumber(object, "timeMin")));
    return kReply;
}
