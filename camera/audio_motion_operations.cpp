#include "camera/audio_motion_operations.h"

#include <cstring>
#include <iterator>

#include "camera/camera_records.h"
#include "camera/parameter_block.h"
#include "camera/parameter_messages.h"
#include "common/log.h"

namespace {

constexpr uint32_t kAudioBitRate = 64000;
constexpr uint32_t kAudioSampleRate = 8000;
constexpr uint8_t kMotionDelimitType = 33;

void LogAudioProperty(const char* caller, int line, const AudioProperty& property)
{
    LogTrace("%s %d:pAudioProperty->ucCn           = %d\n", caller, line, property.ucCn);
    LogTrace("%s %d:pAudioProperty->ucEnable       = %d\n", caller, line, property.ucEnable);
    LogTrace("%s %d:pAudioProperty->ucOutputVolume = %d\n", caller, line, property.ucOutputVolume);
    LogTrace("%s %d:pAudioProperty->ucInputVolume  = %d\n", caller, line, property.ucInputVolume);
    LogTrace("%s %d:pAudioProperty->ucInputModel   = %d\n", caller, line, property.ucInputModel);
    LogTrace("%s %d:pAudioProperty->ucOutputModel  = %d\n", caller, line, property.ucOutputModel);
}

void LogMotionDetection(const char* caller, int line, const MotionDetectionEx& motion)
{
    LogTrace("%s %d: pMDProperty->ucEnable = %d\n", caller, line, motion.ucEnable);
    LogTrace("%s %d: pMDProperty->ucSensitivity = %d\n", caller, line, motion.ucSensitivity);
    LogTrace("%s %d: pMDProperty->ucDelimitType = %d\n", caller, line, motion.ucDelimitType);
    LogTrace("%s %d: pMDProperty->ucRecStreamType = %d\n", caller, line, motion.ucRecStreamType);
    for (size_t row = 0; row < std::size(motion.ulBlock); row++)
        LogTrace("%s %d: pMDProperty->ucBlock[%d] = 0x%08X\n", caller, line, static_cast<int>(row),
                 motion.ulBlock[row]);
    LogTrace("%s %d: sizeof(ulBlock[32]) = %d\n", caller, line, static_cast<int>(sizeof motion.ulBlock));
}

void SendByte(uint32_t field, uint8_t value)
{
    (void)ControlSystemData(field, &value, sizeof value); // setters ignore the host's result
}

void SendWord(uint32_t field, uint32_t value)
{
    (void)ControlSystemData(field, &value, sizeof value);
}

} // namespace

int Common_GetAudioConfig(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    const AudioConfig record = {
        .ulEncoding = BlockField<uint8_t>(config, block::kAudioEncoding),
        .ulReserved1 = 0,
        .ulBitRate2 = kAudioBitRate,
        .ulBitRate = kAudioSampleRate,
        .ulReserved4 = 0,
        .ulBitRate5 = kAudioBitRate,
        .ulSampleRate = kAudioSampleRate,
    };
    memcpy(output, &record, sizeof record);
    return kCameraOk;
}

int Common_SetAudioConfig(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& audio = *static_cast<const AudioConfig*>(input);
    LogTrace("%s %d: iEncoding = %d iBitrate = %d, iSamplerate = %d\n", __func__, __LINE__, audio.ulEncoding,
             audio.ulBitRate, audio.ulSampleRate);
    SendByte(4254, static_cast<uint8_t>(audio.ulEncoding));
    SendWord(4257, audio.ulBitRate); // not an accepted field: the host keeps its bit rate
    SendWord(4255, audio.ulSampleRate);
    return kCameraOk;
}

int Common_GetAudioProperty(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    auto& property = *static_cast<AudioProperty*>(output);
    property.ucEnable = BlockField<uint8_t>(config, block::kAudioEnable);
    property.ucOutputVolume = BlockField<uint8_t>(config, block::kAudioOutputVolume);
    property.ucInputVolume = BlockField<uint8_t>(config, block::kAudioInputVolume);
    property.ucInputModel = BlockField<uint8_t>(config, block::kAudioInputMode);
    property.ucOutputModel = BlockField<uint8_t>(config, block::kAudioOutputMode);
    LogAudioProperty(__func__, __LINE__, property);
    return kCameraOk;
}

int Common_SetAudioProperty(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& property = *static_cast<const AudioProperty*>(input);
    LogAudioProperty(__func__, __LINE__, property);
    SendByte(4253, property.ucEnable);
    SendByte(4259, property.ucOutputVolume);
    SendByte(4258, property.ucInputVolume);
    SendByte(4260, property.ucInputModel);
    SendByte(4261, property.ucOutputModel);
    return kCameraOk;
}

int Common_SetMotionDetectionExProperty(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const auto& motion = *static_cast<const MotionDetectionEx*>(input);
    LogMotionDetection(__func__, __LINE__, motion);
    SendByte(4212, motion.ucEnable);
    SendByte(4214, motion.ucSensitivity);
    (void)ControlSystemData(4217, motion.ulBlock, sizeof motion.ulBlock);
    SendByte(4218, motion.ucRecStreamType);
    if (motion.ucFlag == 1)
        SendByte(4313, 1);
    return kCameraOk;
}

int Common_GetMotionDetectionExProperty(const void*, void* output)
{
    const SysInfo* const config = GetSysConfig();
    if (output == nullptr || config == nullptr)
        return kCameraFailed;
    MotionDetectionEx motion{};
    motion.ucEnable = BlockField<uint8_t>(config, block::kMotionEnable);
    motion.ucSensitivity = BlockField<uint8_t>(config, block::kMotionSensitivity);
    motion.ucDelimitType = kMotionDelimitType;
    motion.ucRecStreamType = BlockField<uint8_t>(config, block::kMotionRecStream);
    for (size_t row = 0; row < std::size(motion.ulBlock); row++)
        motion.ulBlock[row] = BlockField<uint32_t>(config, block::kMotionGrid + row * sizeof(uint32_t));
    memcpy(output, &motion, sizeof motion);
    return kCameraOk;
}
