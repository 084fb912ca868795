#include "camera/camera_access.h"

#include <algorithm>
#include <atomic>

#include "camera/account_operations.h"
#include "camera/agreement_operations.h"
#include "camera/alarm_polling.h"
#include "camera/audio_motion_operations.h"
#include "camera/camera_commands.h"
#include "camera/common_init.h"
#include "camera/fixed_operations.h"
#include "camera/image_operations.h"
#include "camera/network_operations.h"
#include "camera/ptz_operations.h"
#include "camera/stream_callbacks.h"
#include "camera/system_operations.h"
#include "camera/time_operations.h"
#include "camera/upgrade_operation.h"
#include "camera/video_operations.h"
#include "common/log.h"

namespace {

constexpr CameraRow kFullTable[] = {
    {0, "", nullptr},
    {1, "Common_Init", Common_Init},
    {2, "Common_GetIPAddr", Common_GetIPAddr},
    {3, "Common_SetIPAddr", Common_SetIPAddr},
    {4, "Common_GetDhcpStatue", nullptr},
    {5, "Common_SetDhcpStatue", Common_SetDhcpStatue},
    {6, "Common_GetHttpPort", Common_GetHttpPort},
    {7, "Common_SetHttpPort", Common_SetHttpPort},
    {8, "Common_GetRtspPort", nullptr},
    {9, "Common_SetRtspPort", nullptr},
    {10, "Common_GetMacAddr", Common_GetMacAddr},
    {11, "Common_GetDeviceInformation", Common_GetDeviceInformation},
    {12, "Common_GetStreamUri", nullptr},
    {13, "Common_GetScopes", nullptr},
    {14, "Common_GetVideoSourceConfig", nullptr},
    {15, "Common_GetVideoEncoderConfig", Common_GetVideoEncoderConfig},
    {16, "Common_GetStreamEnable", nullptr},
    {17, "Common_GetImageConfig", Common_GetImageConfig},
    {18, "Common_SetImageConfig", Common_SetImageConfig},
    {19, "Common_Reserved19", Common_Reserved},
    {20, "Common_SetResolution", Common_SetResolution},
    {21, "Common_SetResolution2", nullptr},
    {22, "Common_SetVideoQuality", Common_SetVideoQuality},
    {23, "Common_SetFrameRate", Common_SetFrameRate},
    {24, "Common_SetBitRate", Common_SetBitRate},
    {25, "Common_SetBitRateCtl", Common_SetBitRateCtl},
    {26, "Common_SetIFrameInterval", Common_SetIFrameInterval},
    {27, "Common_GetAudioConfig", Common_GetAudioConfig},
    {28, "Common_Cmd28", Common_Cmd28},
    {29, "Common_GetSnapshotUri", nullptr},
    {30, "Common_GetChannelEnable", Common_GetChannelEnable},
    {31, "Common_Reserved31", Common_Reserved},
    {32, "Common_Reserved32", Common_Reserved},
    {33, "Common_SetAlarmCallback", Common_SetAlarmCallback},
    {34, "Common_GetNetmask", Common_GetNetmask},
    {35, "Common_SetNetmask", Common_SetNetmask},
    {36, "Common_GetDNS", Common_GetDNS},
    {37, "Common_SetDNS", Common_SetDNS},
    {38, "Common_GetNTP", nullptr},
    {39, "Common_SetNTP", nullptr},
    {40, "Common_GetHostname", Common_GetHostname},
    {41, "Common_SetHostname", Common_SetHostname},
    {42, "Common_GetGateway", Common_GetGateway},
    {43, "Common_SetGateway", Common_SetGateway},
    {44, "Common_GetUsers", Common_GetUsers},
    {45, "Common_CreateUser", Common_CreateUser},
    {46, "Common_SetUser", Common_SetUser},
    {47, "Common_DelUser", Common_DelUser},
    {48, "Common_Reboot", Common_Reboot},
    {49, "Common_FactoryDefault", Common_FactoryDefault},
    {50, "Common_Upgrade", Common_Upgrade},
    {51, "Common_Reserved51", Common_Reserved51},
    {52, "Common_SetDateTime", Common_SetDateTime},
    {53, "Common_GetTimeZone", Common_GetTimeZone},
    {54, "Common_SetTimeZone", Common_SetTimeZone},
    {55, "Common_Reserved55", Common_Reserved55},
    {56, "Common_GetTestVideoFrame", Common_GetTestVideoFrame},
    {57, "Common_SetStreamCallback", Common_SetStreamCallback},
    {58, "Common_GetOnvifAuthentication", nullptr},
    {59, "Common_GetResolutionsAvailable", Common_GetResolutionsAvailable},
    {60, "Common_ControlPtz", Common_ControlPtz},
    {61, "Common_GetPtzPresets", Common_GetPtzPresets},
    {62, "Common_GetPtzPosition", nullptr},
    {63, "Common_Cmd63", Common_Cmd63},
    {64, "Common_SetMotionDectionProperty", nullptr},
    {65, "Common_GetMotionDectionProperty", nullptr},
    {66, "Common_GetSmtpProperty", nullptr},
    {67, "Common_SetSmtpProperty", nullptr},
    {68, "Common_GetFtpProperty", nullptr},
    {69, "Common_SetFtpProperty", nullptr},
    {70, "Common_GetLogInfo", nullptr},
    {71, "Common_GetLogEventInfo", nullptr},
    {72, "Common_GetWifiList", nullptr},
    {73, "Common_AddWifiNet", nullptr},
    {74, "Common_DelWifiNet", nullptr},
    {75, "Common_WifiConnect", nullptr},
    {76, "Common_WifiDisconnect", nullptr},
    {77, "Common_GetWifiScanResult", nullptr},
    {78, "Common_GetDDNSProperty", nullptr},
    {79, "Common_SetDDNSProperty", nullptr},
    {80, "Common_GetAudioProperty", Common_GetAudioProperty},
    {81, "Common_SetAudioProperty", Common_SetAudioProperty},
    {82, "Common_GetVideoCoverProperty", nullptr},
    {83, "Common_SetVideoCoverProperty", nullptr},
    {84, "Common_GetVideoProperty", nullptr},
    {85, "Common_SetVideoProperty", nullptr},
    {86, "Common_SetDeviceInformation", nullptr},
    {87, "Common_GetUpGradeaveFileName", nullptr},
    {88, "Common_GetMobilePort", nullptr},
    {89, "Common_SetMobilePort", Common_SetMobilePort},
    {90, "Common_SetSysRebootProperty", nullptr},
    {91, "Common_GetSysRebootProperty", nullptr},
    {92, "Common_SetP2PProperty", nullptr},
    {93, "Common_GetP2PProperty", nullptr},
    {94, "Common_SetP2PPushImageEnable", nullptr},
    {95, "Common_GetTimeProperty", nullptr},
    {96, "Common_SetTimeProperty", nullptr},
    {97, "Common_SetStreamProperty", nullptr},
    {98, "Common_GetStreamProperty", nullptr},
    {99, "Common_GetChannelScope", nullptr},
    {100, "Common_GetEncodingScope", Common_GetEncodingScope},
    {101, "Common_SetEncodingType", Common_SetEncodingType},
    {102, "Common_SetEncodingEnable", nullptr},
    {103, "Common_GetPTZProperty", nullptr},
    {104, "Common_SetPTZProperty", Common_SetPTZProperty},
    {105, "Common_StorageOption", nullptr},
    {106, "Common_GetStorageInfo", nullptr},
    {107, "Common_SetArgeementProperty", Common_SetArgeementProperty},
    {108, "Common_GetArgeementProperty", Common_GetArgeementProperty},
    {109, "Common_SetAlarmProperty", nullptr},
    {110, "Common_GetAlarmProperty", nullptr},
    {111, "Common_DeleteLogFile", nullptr},
    {112, "Common_GetStorageProperty", nullptr},
    {113, "Common_SetStorageProperty", nullptr},
    {114, "Common_SetRegularRecordProperty", nullptr},
    {115, "Common_GetRegularRecordProperty", nullptr},
    {116, "Common_SetRegularSNAPProperty", nullptr},
    {117, "Common_GetRegularSNAPProperty", nullptr},
    {118, "Common_SetMacAddr", nullptr},
    {119, "Common_GetAlarmScope", nullptr},
    {120, "Common_SetLDCProperty", nullptr},
    {121, "Common_GetLDCProperty", nullptr},
    {122, "Common_SetROIProperty", nullptr},
    {123, "Common_GetROIProperty", nullptr},
    {124, "Common_SetVideoCoverExProperty", nullptr},
    {125, "Common_GetVideoCoverExProperty", nullptr},
    {126, "Common_GetSaveFilePath", nullptr},
    {127, "Common_SetAudioConfig", Common_SetAudioConfig},
    {128, "Common_GetSysCommonProperty", nullptr},
    {129, "Common_SetSysCommonProperty", nullptr},
    {130, "Common_GetP2PInfo", nullptr},
    {131, "Common_RecvFileEnd", nullptr},
    {132, "Common_SetMotionDetectionExProperty", Common_SetMotionDetectionExProperty},
    {133, "Common_GetMotionDetectionExProperty", Common_GetMotionDetectionExProperty},
    {134, "Common_GetCloudBindInfo", nullptr},
    {135, "Common_SetCloudBindInfo", nullptr},
    {136, "Common_GetCloudStateInfo", nullptr},
    {137, "Common_GetConfigFilePath", nullptr},
    {138, "Common_Reserved138", Common_Reserved},
    {139, "Common_CheckUpgradeFile", nullptr},
    {140, "Common_SetDSTInfo", nullptr},
    {141, "Common_GetDSTInfo", nullptr},
    {142, "Common_SetSysRebootExProperty", nullptr},
    {143, "Common_GetSysRebootExProperty", nullptr},
    {144, "Common_GetPlayBackQueryFile", nullptr},
    {145, "Common_SetPtzSerialProperty", nullptr},
    {146, "Common_GetPtzSerialProperty", nullptr},
    {147, "Common_SetIOProperty", nullptr},
    {148, "Common_GetIOProperty", nullptr},
    {149, "Common_GetSuitableEncodingProperty", nullptr},
    {150, "Common_SetVideoProfile", nullptr},
    {151, "Common_SetEncodingPropertyEx", nullptr},
    {152, "Common_GetEncodingPropertyEx", nullptr},
    {153, "Common_SetFishEyeProperty", nullptr},
    {154, "Common_GetFishEyeProperty", nullptr},
    {155, "Common_SetCruiseLineProperty", Common_SetCruiseLineProperty},
    {156, "Common_GetCruiseLineProperty", Common_GetCruiseLineProperty},
    {157, "Common_SetOsdPropertyEx", nullptr},
    {158, "Common_GetOsdPropertyEx", nullptr},
    {159, "Common_GetPtzInfo", nullptr},
    {160, "Common_SetPtzInfo", nullptr},
    {161, "Common_SetPtz3DZoom", nullptr},
    {162, "Common_GetAlarmPropertyEx", nullptr},
    {163, "Common_SetAlarmPropertyEx", nullptr},
    {164, "Common_GetVideoCoverAlarmProperty", nullptr},
    {165, "Common_SetVideoCoverAlarmProperty", nullptr},
    {166, "Common_GetAbnormalEventProperty", nullptr},
    {167, "Common_SetAbnormalEventProperty", nullptr},
    {168, "Common_GetNetPropertyEx", nullptr},
    {169, "Common_SetNetPropertyEx", nullptr},
    {170, "Common_SetProviewConfig", nullptr},
    {171, "Common_SetPptpProperty", nullptr},
    {172, "Common_GetPptpProperty", nullptr},
    {173, "Common_GetWifiInfo", nullptr},
    {174, "Common_SetSmartEncEnable", nullptr},
    {175, "Common_Set_Video_Force_IFrame", nullptr},
    {176, "Common_SetSecuritySettings", nullptr},
    {177, "Common_GetSecuritySettings", nullptr},
    {178, "Common_SetFillLightSettings", nullptr},
    {179, "Common_GetFillLightSettings", nullptr},
    {180, "Common_SetAlarmPeripherals", nullptr},
    {181, "Common_GetAlarmPeripherals", nullptr},
    {182, "Common_SetSmartIRStatus", nullptr},
    {183, "Common_GetSmartIRStatus", nullptr},
    {184, "Common_GetAccessPointInfo", nullptr},
    {185, "Common_SetAccessPointInfo", nullptr},
    {186, "Common_ExportPasswdEncryptFile", nullptr},
    {187, "Common_ImportPasswdEncryptFile", nullptr},
    {188, "Common_SetUpnpProperty", nullptr},
    {189, "Common_GetUpnpProperty", nullptr},
    {190, "Common_SetSmartMotionDetectionExProperty", nullptr},
    {191, "Common_GetSmartMotionDetectionExProperty", nullptr},
    {192, "Common_GetEncodingPropertyPro", nullptr},
    {193, "Common_SetEncodingPropertyPro", nullptr},
    {194, "Common_GetEncodingScopeProperty", nullptr},
    {kCameraEndCommand, "", nullptr},
};
static_assert(std::size(kFullTable) == kCameraCommands + 1);

consteval bool RowsAreInOrder()
{
    for (size_t row = 0; row < kCameraCommands; row++)
        if (kFullTable[row].Camera_command != row)
            return false;
    return true;
}
static_assert(RowsAreInOrder(), "row i holds command i, so that a look-up is an index");

constexpr uint32_t kInitCommand = 1;

// Types 2 and 3 are cameras without a table of their own.
constexpr uint32_t kFullCamera = 1;
constexpr uint32_t kLastCameraType = 3;

// Written once by CameraInit, before the server's threads start; read by every command.
struct CameraState {
    std::atomic<uint32_t> type{0};
    std::atomic<bool> initialized{false};
    std::atomic<const CameraRow*> pCameraAccess{nullptr};
};
CameraState g_camera;

// A command beyond the table meets the end row, which has no operation.
const CameraRow& RowOf(const CameraRow* table, uint32_t command)
{
    return table[std::min<size_t>(command, kCameraCommands)];
}

} // namespace

std::span<const CameraRow, kCameraCommands + 1> CameraAccessTable()
{
    return kFullTable;
}

int CameraInit(uint32_t type, uint32_t processKind)
{
    if (g_camera.initialized.load())
        return kCameraInitialized;
    if (type == 0 || type > kLastCameraType)
        return kCameraFailed;
    if (type != kFullCamera) {
        LogWarn("Unknown camera !\n");
        return kCameraUnknown;
    }
    g_camera.pCameraAccess.store(kFullTable);
    g_camera.type.store(type);
    g_camera.initialized.store(true);
    return RunCameraCommand(kInitCommand, &processKind, nullptr);
}

int CameraCmdCheck(uint32_t command)
{
    if (!g_camera.initialized.load()) {
        LogWarn("Camera dev is not initialize, initialize first!\n");
        return kCameraNotInitialized;
    }
    const CameraRow* const table = g_camera.pCameraAccess.load();
    if (table == nullptr) {
        LogWarn("Unknown camera !\n");
        return kCameraUnknown;
    }
    const CameraRow& row = RowOf(table, command);
    if (row.Camera_command != command) {
        LogWarn("Cmd not match!cmd = %d, pCameraAccess[%d].Camera_command = %d\n", command, command,
                row.Camera_command);
        return kCameraCommandMismatch;
    }
    if (row.operation == nullptr) {
        LogWarn("The Onvif cmd is not support now!\n");
        return kCameraNotSupported;
    }
    return kCameraOk;
}

int RunCameraCommand(uint32_t command, const void* input, void* output)
{
    if (const int code = CameraCmdCheck(command))
        return code;
    return RowOf(g_camera.pCameraAccess.load(), command).operation(input, output);
}

int RunSetter(uint32_t command, const void* input)
{
    return input != nullptr ? RunCameraCommand(command, input, nullptr) : kCameraFailed;
}

int RunGetter(uint32_t command, void* output)
{
    return output != nullptr ? RunCameraCommand(command, nullptr, output) : kCameraFailed;
}
