#include "camera/system_operations.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "camera/camera_records.h"
#include "camera/custom_tools.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "camera/shell_commands.h"
#include "common/clock.h"
#include "common/inifile.h"
#include "common/log.h"
#include "common/mutex.h"
#include "common/thread.h"

namespace {

constexpr uint32_t kFieldFactoryDefault = 4395;
constexpr uint32_t kFieldReboot = 4396;

constexpr uint8_t kInformationConstant = 214;
constexpr char kChip[] = "Q7RTN";
constexpr char kSensor[] = "OS05A10";

constexpr char kCardDevice[] = "/dev/mmcblk0p1";
constexpr char kCardFolder[] = "/media/SDCard/";
constexpr char kListRecHost[] = "ps -ef|grep RecHost|grep -v grep";

// What a hard reset runs, in this order.
constexpr ShellCommand kResetCommands[] = {
    "rm /param/sysenv.cfg", "rm /param/sysenvcopy.cfg", "rm /param/logfile.log",
    "rm /param/onvif.cfg",  "rm /param/sysenv_ex.cfg",
};

constexpr int kRestartSteps = 20;
constexpr uint32_t kRestartStepMs = 200;

// Shared by those who ask for the restart and by its thread.
Mutex g_restartMutex;
int g_restartCount GUARDED_BY(g_restartMutex) = 0;
bool g_isRestartThreadRunning GUARDED_BY(g_restartMutex) = false;

void FillText(const SysInfo* config, size_t offset, char (&text)[128])
{
    BlockText(config, offset, block::kIdentityBytes, text, sizeof text);
}

// Counts one step down; false when the time has come.
bool CountDown()
{
    const Locked lock(g_restartMutex);
    if (g_restartCount <= 0)
        return false;
    --g_restartCount;
    LogTrace("reboot_count = %d\n", g_restartCount);
    return true;
}

// Ends the thread's work, unless somebody asked again while the device did not go down.
bool IsRestartDone()
{
    const Locked lock(g_restartMutex);
    g_isRestartThreadRunning = g_restartCount > 0;
    return !g_isRestartThreadRunning;
}

void* ParamChangeToRestartThread(void*)
{
    do {
        while (CountDown())
            SleepMs(kRestartStepMs);
        (void)Command_System("sync;reboot -f");
    } while (!IsRestartDone());
    printf("%s %d, reboot end\n", __func__, __LINE__);
    return nullptr;
}

} // namespace

int Common_GetDeviceInformation(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    auto* const information = static_cast<DeviceInformation*>(output);
    *information = {};
    read_profile_string(kCustomToolsSection, "CustomCompanyName", information->szManufacturer,
                        sizeof information->szManufacturer, "Corvane", kCustomToolsFile);
    FillText(config, block::kDeviceName, information->szModel);
    FillText(config, block::kFirmwareVersion, information->szFirmwareVersion);
    FillText(config, block::kSerialNumber, information->szSerialNumber);
    FillText(config, block::kHardwareId, information->szHardwareId);
    information->ucConstant = kInformationConstant;
    memcpy(information->szChip, kChip, sizeof kChip);
    memcpy(information->szSensor, kSensor, sizeof kSensor);
    return kCameraOk;
}

int CheckRecHostStatus()
{
    FILE* const list = OpenShell(kListRecHost);
    if (list == nullptr) {
        printf("%s %d: Cmd %s is fail\n", __func__, __LINE__, kListRecHost);
        return -1;
    }
    char text[32];
    const size_t length = fread(text, 1, sizeof text, list);
    CloseShell(list);
    return static_cast<int>(length);
}

int CheckSendSignal()
{
    if (access(kCardDevice, F_OK) != 0) {
        LogTrace("%s %d: /dev/mmcblk0p1 not exist\n", __func__, __LINE__);
        return -1;
    }
    if (access(kCardFolder, F_OK) != 0) {
        LogTrace("%s %d %s not exist\n", __func__, __LINE__, kCardFolder);
        return -1;
    }
    if (CheckRecHostStatus() == 0) {
        LogTrace("%s %d RecHost not run \n", __func__, __LINE__);
        return -1;
    }
    return 0;
}

int Common_Reboot(const void*, void*)
{
    LogTrace("%s %d: SDCard Device Common_Reboot \n", __func__, __LINE__);
    constexpr uint8_t kNow = 1;
    (void)ControlSystemData(kFieldReboot, &kNow, sizeof kNow);
    if (CheckSendSignal() == 0)
        (void)Command_System("killall RecHost"); // so that it closes its files
    return kCameraOk;
}

int Common_FactoryDefault(const void* mode, void*)
{
    LogTrace("%s %d: Common_FactoryDefault\n", __func__, __LINE__);
    if (mode == nullptr)
        return kCameraFailed;
    if (*static_cast<const uint8_t*>(mode) != 0) {
        constexpr uint8_t kNow = 1;
        (void)ControlSystemData(kFieldFactoryDefault, &kNow, sizeof kNow);
        return kCameraOk;
    }
    for (const ShellCommand command : kResetCommands)
        (void)Command_System(command);
    ParamChangeToRestart();
    return kCameraOk;
}

void ParamChangeToRestart()
{
    printf("%s %d\n", __func__, __LINE__);
    const Locked lock(g_restartMutex);
    g_restartCount = kRestartSteps;
    if (g_isRestartThreadRunning)
        return;
    const int error = StartDetachedThread("ParamRestart", ParamChangeToRestartThread, nullptr);
    if (error != 0)
        printf("%s %d errno %s\n", __func__, __LINE__, strerrordesc_np(error));
    g_isRestartThreadRunning = error == 0;
}
