#include "camera/fixed_operations.h"

#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "camera/camera_records.h"
#include "camera/parameter_messages.h"
#include "common/unique_fd.h"

namespace {

constexpr int kNoTestFrame = -7;
constexpr uint32_t kTestFrames = 900;
constexpr float kPresetCoordinate = -50.0F;

// The canned frames of one stream, taken in turn by whoever asks.
struct TestFrameSource {
    const char* folder;
    std::atomic<uint32_t> next;
};
TestFrameSource g_testFrames[] = {{"VideoData720P", 0}, {"VideoData720P_Sub", 0}};

uint32_t TakeTestFrameNumber(TestFrameSource* source)
{
    uint32_t number = source->next.load();
    while (!source->next.compare_exchange_weak(number, (number + 1) % kTestFrames)) {
    }
    return number;
}

// Reads a whole file of at most the frame's capacity.
bool ReadFrame(int fd, TestVideoFrame* frame)
{
    uint32_t length = 0;
    for (;;) {
        uint8_t beyond; // tells a file that fits exactly from one that does not
        const bool isFull = length == frame->ulCapacity;
        const ssize_t count =
            read(fd, isFull ? &beyond : frame->pucData + length, isFull ? 1 : frame->ulCapacity - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 || (count > 0 && isFull))
            return false;
        if (count == 0)
            break;
        length += static_cast<uint32_t>(count);
    }
    frame->ulBytes = length;
    return true;
}

} // namespace

int Common_Reserved(const void*, void*)
{
    return kCameraOk;
}

int Common_Cmd28(const void*, void*)
{
    const uint8_t value = 0;
    (void)ControlSystemData(4400, &value, sizeof value); // the status does not depend on the host
    return kCameraOk;
}

int Common_GetChannelEnable(const void*, void* output)
{
    if (output == nullptr)
        return kCameraFailed;
    *static_cast<ChannelEnable*>(output) = {{1, 1, 1}};
    return kCameraOk;
}

int Common_Reserved51(const void* input, void*)
{
    return input != nullptr ? kCameraOk : kCameraFailed;
}

int Common_Reserved55(const void*, void* output)
{
    return output != nullptr ? kCameraOk : kCameraFailed;
}

int Common_GetTestVideoFrame(const void* input, void* output)
{
    auto* const frame = static_cast<TestVideoFrame*>(output);
    if (input == nullptr || frame == nullptr || frame->pucData == nullptr)
        return kCameraFailed;
    TestFrameSource& source = g_testFrames[*static_cast<const uint32_t*>(input) == 0 ? 0 : 1];
    char path[64];
    snprintf(path, sizeof path, "%s/Data%04d.txt", source.folder, TakeTestFrameNumber(&source));
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.isValid())
        return kNoTestFrame;
    return ReadFrame(fd.get(), frame) ? kCameraOk : kCameraFailed;
}

int Common_GetPtzPresets(const void*, void* output)
{
    if (output == nullptr)
        return kCameraFailed;
    auto& list = *static_cast<PtzPresetList*>(output);
    for (size_t i = 0; i < std::size(list.preset); i++) {
        PtzPreset& preset = list.preset[i];
        preset = {{}, kPresetCoordinate, kPresetCoordinate, kPresetCoordinate};
        snprintf(preset.szName, sizeof preset.szName, "PTZ%04d", static_cast<int>(i) + 1);
    }
    return kCameraOk;
}

int Common_Cmd63(const void*, void* output)
{
    if (output == nullptr)
        return kCameraFailed;
    *static_cast<uint32_t*>(output) = 1;
    return kCameraOk;
}

int Common_SetMobilePort(const void* input, void*)
{
    return input != nullptr ? kCameraOk : kCameraFailed;
}
