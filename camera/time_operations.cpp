#include "camera/time_operations.h"

#include <cstring>
#include <ctime>

#include "camera/camera_records.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/clock.h"
#include "common/log.h"

namespace {

constexpr uint32_t kFieldTimeZone = 4300;
constexpr uint32_t kFieldClockSet = 4302;
constexpr uint32_t kFieldTimeMode = 4402;
constexpr int kNoBlock = -7;

constexpr uint8_t kUtcIndex = 24;
constexpr uint8_t kLastIndex = 48;
constexpr int kSecondsAnIndex = 1800;

bool IsTimeLocked(const SysInfo* config)
{
    return BlockField<uint8_t>(config, block::kTimeLock) != 0;
}

void SendByte(uint32_t field, uint8_t value)
{
    (void)ControlSystemData(field, &value, sizeof value);
}

// In the zone of this process, as if there were no summer time.
time_t ToSeconds(const CameraDateTime& time)
{
    tm fields{};
    fields.tm_year = time.ulYear > 1900 ? static_cast<int>(time.ulYear - 1900) : 0;
    fields.tm_mon = time.ulMonth > 1 ? static_cast<int>(time.ulMonth - 1) : 0;
    fields.tm_mday = static_cast<int>(time.ulDay);
    fields.tm_hour = static_cast<int>(time.ulHour);
    fields.tm_min = static_cast<int>(time.ulMinute);
    fields.tm_sec = static_cast<int>(time.ulSecond);
    return mktime(&fields);
}

} // namespace

int Common_SetDateTime(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    CameraDateTime time;
    memcpy(&time, input, sizeof time);
    LogTrace("%s %d: %04d-%02d-%02d %02d:%02d:%02d\n", __func__, __LINE__, time.ulYear, time.ulMonth,
             time.ulDay, time.ulHour, time.ulMinute, time.ulSecond);
    const SysInfo* const config = GetSysConfig();
    if (config == nullptr)
        return kNoBlock;
    const auto index = BlockField<uint8_t>(config, block::kTimeZone);
    const time_t seconds = ToSeconds(time);
    if (index > kLastIndex || seconds < 0)
        return kCameraFailed;
    if (IsTimeLocked(config))
        return kCameraOk;
    SetSystemClock(seconds + time_t{index - kUtcIndex} * kSecondsAnIndex);
    SendByte(kFieldClockSet, 1); // also when the system refused: the parameter host is to look at the clock
    return kCameraOk;
}

int Common_GetTimeZone(const void*, void* index)
{
    const SysInfo* const config = GetSysConfig();
    if (index == nullptr || config == nullptr)
        return kCameraFailed;
    *static_cast<uint8_t*>(index) = BlockField<uint8_t>(config, block::kTimeZone);
    return kCameraOk;
}

int Common_SetTimeZone(const void* input, void*)
{
    const SysInfo* const config = GetSysConfig();
    if (input == nullptr || config == nullptr)
        return kCameraFailed;
    if (IsTimeLocked(config))
        return kCameraOk;
    TimeZoneSetting setting;
    memcpy(&setting, input, sizeof setting);
    SendByte(kFieldTimeMode, setting.ulFlag != 0 ? 2 : 0);
    SendByte(kFieldTimeZone, static_cast<uint8_t>(setting.ulIndex));
    return kCameraOk;
}
