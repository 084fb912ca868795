#include "tests/media/fakes.h"

#include <cerrno>

#include "camera/camera_commands.h"
#include "common/clock.h"
#include "common/shared_wait.h"

// What the linker puts in place of the wrapped functions.
#pragma GCC diagnostic ignored "-Wmissing-declarations"
extern "C" {
void __real__Z7SleepMsj(uint32_t milliseconds);
void __wrap__Z7SleepMsj(uint32_t milliseconds)
{
    if (FakeClock::active == nullptr)
        return __real__Z7SleepMsj(milliseconds);
    FakeClock::active->sleeps[milliseconds]++;
    FakeClock::active->nowMs += milliseconds;
    FakeClock::active->onSleep();
}

int64_t __real__Z11MonotonicMsv();
int64_t __wrap__Z11MonotonicMsv()
{
    return FakeClock::active != nullptr ? FakeClock::active->nowMs : __real__Z11MonotonicMsv();
}

uint32_t __real__Z9LookEveryjjPFbPvES_(uint32_t periodMs, uint32_t most, Look* look, void* argument);
uint32_t __wrap__Z9LookEveryjjPFbPvES_(uint32_t periodMs, uint32_t most, Look* look, void* argument)
{
    if (FakeClock::active == nullptr)
        return __real__Z9LookEveryjjPFbPvES_(periodMs, most, look, argument);
    for (uint32_t made = 1;; made++) {
        SleepMs(periodMs);
        if (look(argument) || made == most)
            return made;
    }
}

uint32_t __real__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command);
uint32_t __wrap__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command)
{
    FakeHost* const host = FakeHost::active;
    if (host == nullptr)
        return __real__Z13QueryPositionijj(clientType, index, command);
    const size_t turn = host->commands.size();
    host->commands.push_back(command);
    return host->positions[std::min(turn, host->positions.size() - 1)];
}

int __real__Z14IsStreamWantedj(uint32_t index);
int __wrap__Z14IsStreamWantedj(uint32_t index)
{
    g_asked++;
    return g_watched < 0 ? __real__Z14IsStreamWantedj(index) : g_watched.load();
}

ssize_t __real_send(int fd, const void* data, size_t bytes, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t bytes, int flags)
{
    EXPECT_EQ(flags, MSG_DONTWAIT | MSG_NOSIGNAL);
    FakeSend* const fake = FakeSend::active;
    if (fake == nullptr || fake->results.empty())
        return __real_send(fd, data, bytes, flags);
    const int result = fake->results.front();
    fake->results.erase(fake->results.begin());
    if (result > 0)
        return __real_send(fd, data, std::min(bytes, static_cast<size_t>(result)), flags);
    errno = -result;
    return -1;
}

time_t __real_time(time_t* out);
time_t __wrap_time(time_t* out)
{
    return g_now == 0 ? __real_time(out) : g_now;
}
} // extern "C"

int CameraGetVideoEncoderConfig(VideoEncoderConfig* out)
{
    if (g_encoderAnswers.empty())
        return kCameraNotInitialized;
    std::fill(std::begin(out->stream), std::end(out->stream), g_encoderAnswers.front());
    if (g_encoderAnswers.size() > 1)
        g_encoderAnswers.erase(g_encoderAnswers.begin());
    return 0;
}

int CameraSetStreamCallback(uint32_t type, StreamCallback*)
{
    EXPECT_EQ(type, 4U);
    return 0;
}
