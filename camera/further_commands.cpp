#include "camera/further_commands.h"

#include "camera/camera_access.h"
#include "common/log.h"

int CameraReserved19()
{
    return RunCameraCommand(19, nullptr, nullptr);
}

int CameraSetResolution2(uint32_t stream, uint32_t width, uint32_t height)
{
    const StreamSize record{stream, width, height};
    return RunCameraCommand(21, &record, nullptr);
}

int CameraCmd28()
{
    return RunCameraCommand(28, nullptr, nullptr);
}

int CameraGetChannelEnable(ChannelEnable* out)
{
    return RunGetter(30, out);
}

int CameraReserved31()
{
    return RunCameraCommand(31, nullptr, nullptr);
}

int CameraReserved32()
{
    return RunCameraCommand(32, nullptr, nullptr);
}

int CameraReserved51(const void* in)
{
    return RunSetter(51, in);
}

int CameraReserved55(void* out)
{
    return RunGetter(55, out);
}

int CameraGetTestVideoFrame(uint32_t stream, TestVideoFrame* out)
{
    return out != nullptr ? RunCameraCommand(56, &stream, out) : kCameraFailed;
}

int CameraGetPtzPresets(PtzPresetList* out)
{
    return RunGetter(61, out);
}

int CameraCmd63(uint32_t* out)
{
    return RunGetter(63, out);
}

int CameraGetUpGradeFileSaveName(void* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunGetter(87, out);
}

int CameraSetMobilePort(const void* in)
{
    return RunSetter(89, in);
}

int CameraGetDateTimeProperty(void* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunGetter(95, out);
}

int CameraSetDateTimeProperty(const void* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(96, in);
}

int CameraReserved138()
{
    return RunCameraCommand(138, nullptr, nullptr);
}

int CameraCheckUpGradeFile(const void* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(139, in);
}

int CameraGetPlayBackQueryFiles(const void* in, void* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    if (in == nullptr || out == nullptr)
        return kCameraFailed;
    return RunCameraCommand(144, in, out);
}

int CameraSetPTZSerialProperty(const void* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(145, in);
}

int CameraGetPTZSerialProperty(void* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunGetter(146, out);
}

int CameraSetPTZ3DZoom(const void* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(161, in);
}

int CameraSetPreviewModeConfig(const void* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(170, in);
}
