#include "camera/stream_callbacks.h"

#include <atomic>

namespace {

std::atomic<StreamCallback*> g_callbacks[kStreamCallbackTypes];

} // namespace

int Common_SetStreamCallback(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    const StreamRegistration& registration = *static_cast<const StreamRegistration*>(input);
    if (registration.ulType == kIgnoredStreamCallbackType)
        return kCameraOk;
    if (registration.ulType >= kStreamCallbackTypes)
        return kCameraFailed;
    g_callbacks[registration.ulType].store(registration.callback);
    return kCameraOk;
}

StreamCallback* GetStreamCallback(uint32_t type)
{
    return type < kStreamCallbackTypes ? g_callbacks[type].load() : nullptr;
}
