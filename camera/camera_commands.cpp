#include "camera/camera_commands.h"

#include "camera/camera_access.h"
#include "common/bounded_text.h"
#include "common/log.h"

namespace {

int RunStreamValue(uint32_t command, uint32_t stream, uint32_t value)
{
    const StreamValue record{stream, value, {}};
    return RunCameraCommand(command, &record, nullptr);
}

} // namespace

int CameraGetVideoEncoderConfig(VideoEncoderConfig* out)
{
    return RunGetter(15, out);
}

int CameraGetImageConfig(ImageConfig* out)
{
    return RunGetter(17, out);
}

int CameraSetImageConfig(ImageConfig* in)
{
    return RunSetter(18, in);
}

int CameraSetResolution(uint32_t stream, const char* name)
{
    if (name == nullptr)
        return kCameraFailed;
    StreamResolutionName record{stream, 0, {}};
    CopyBounded(record.szName, sizeof record.szName, name, strlen(name));
    return RunCameraCommand(20, &record, nullptr);
}

int CameraSetVideoQuality(uint32_t stream, uint32_t quality)
{
    return RunStreamValue(22, stream, quality);
}

int CameraSetFrameRate(uint32_t stream, uint32_t framesPerSecond)
{
    return RunStreamValue(23, stream, framesPerSecond);
}

int CameraSetBitRate(uint32_t stream, uint32_t kbps)
{
    return RunStreamValue(24, stream, kbps);
}

int CameraSetBitRateCtl(uint32_t stream, uint32_t control)
{
    return RunStreamValue(25, stream, control);
}

int CameraSetIFrameInterval(uint32_t stream, uint32_t frames)
{
    return RunStreamValue(26, stream, frames);
}

int CameraGetAudioConfig(AudioConfig* out)
{
    return RunGetter(27, out);
}

int CameraSetAlarmCallback(uint32_t type, AlarmCallback* callback)
{
    const AlarmRegistration record{type, callback};
    return RunCameraCommand(33, &record, nullptr);
}

int CameraSetStreamCallback(uint32_t type, StreamCallback* callback)
{
    const StreamRegistration record{type, callback};
    return RunCameraCommand(57, &record, nullptr);
}

int CameraGetResolutionsAvailable(uint32_t stream, ResolutionRecord* out)
{
    return out != nullptr ? RunCameraCommand(59, &stream, out) : kCameraFailed;
}

int CameraGetAudioProperty(AudioProperty* out)
{
    return RunGetter(80, out);
}

int CameraSetAudioProperty(AudioProperty* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(81, in);
}

int CameraGetEncodingScope(EncodingScope* out)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunGetter(100, out);
}

int CameraSetEncodingType(uint32_t stream, uint32_t encoding)
{
    return RunStreamValue(101, stream, encoding);
}

int CameraSetArgeementProperty(AgreementEntry* in)
{
    LogTrace("%s %d\n", __func__, __LINE__);
    return RunSetter(107, in);
}

int CameraGetArgeementProperty(AgreementEntry* selector, AgreementEntry* out)
{
    if (selector == nullptr || out == nullptr)
        return kCameraFailed;
    return RunCameraCommand(108, selector, out);
}

int CameraSetAudioConfig(AudioConfig* in)
{
    return RunSetter(127, in);
}

int CameraSetMotionDetectionExProperty(MotionDetectionEx* in)
{
    return RunSetter(132, in);
}

int CameraGetMotionDetectionExProperty(MotionDetectionEx* out)
{
    return RunGetter(133, out);
}
