#include "camera/ptz_commands.h"

#include "camera/camera_access.h"
#include "common/log.h"

int CameraControlPtz(PtzControl control)
{
    return RunCameraCommand(60, &control, nullptr);
}

int CameraSetPTZProperty(const PtzProperty* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(104, in);
}

int CameraSetCruiseLineProperty(const CruiseLine* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(155, in);
}

int CameraGetCruiseLineProperty(const CruiseLine* selector, CruiseLine* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    if (selector == nullptr || out == nullptr)
        return kCameraFailed;
    return RunCameraCommand(156, selector, out);
}
