#include "tests/media/fakes.h"

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "camera/camera_commands.h"
#include "media/frame_source_state.h"
#include "protocol/connection_table.h"

namespace {

std::mutex g_logMutex;
FakeLog* g_log = nullptr;

void CountOne()
{
    if (CountAllocations::isOn)
        CountAllocations::counted++;
}

} // namespace

// What the linker puts in place of the wrapped functions.
#pragma GCC diagnostic ignored "-Wmissing-declarations"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wmismatched-new-delete" // new and delete are replaced together
extern "C" {
void __real__Z7SleepMsj(uint32_t milliseconds);
void __wrap__Z7SleepMsj(uint32_t milliseconds)
{
    if (FakeClock::active == nullptr)
        return __real__Z7SleepMsj(milliseconds);
    FakeClock::active->sleepsMs.push_back(milliseconds);
    FakeClock::active->onSleep();
}

int __wrap__Z8LogTracePKcz(const char* format, ...)
{
    const std::lock_guard lock(g_logMutex);
    if (g_log == nullptr)
        return 0;
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // The number stands behind the function's name, or at the end of a "Process" line.
    std::string line(text);
    const size_t from = line.rfind("Process ", 0) == 0 ? line.rfind(' ') + 1 : line.find(' ') + 1;
    line.replace(from, line.find_first_not_of("0123456789", from) - from, "#");
    g_log->lines.push_back(line);
    return 0;
}

uint32_t __real__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command);
uint32_t __wrap__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command)
{
    FakeHost* const host = FakeHost::active;
    if (host == nullptr)
        return __real__Z13QueryPositionijj(clientType, index, command);
    const size_t turn = host->commands.size();
    host->commands.push_back(command);
    return turn < host->positions.size() ? host->positions[turn] : host->positions.back();
}

int __real__Z14IsStreamWantedj(uint32_t index);
int __wrap__Z14IsStreamWantedj(uint32_t index)
{
    FakeWatch* const watch = FakeWatch::active;
    if (watch == nullptr)
        return __real__Z14IsStreamWantedj(index);
    watch->asked++;
    return watch->isWatched ? 1 : 0;
}

ssize_t __real_send(int fd, const void* data, size_t bytes, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t bytes, int flags)
{
    FakeSend* const fake = FakeSend::active;
    if (fake == nullptr)
        return __real_send(fd, data, bytes, flags);
    EXPECT_EQ(flags, MSG_DONTWAIT | MSG_NOSIGNAL);
    fake->pieces.push_back(bytes);
    if (fake->results.empty())
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
    return FakeTime::active == nullptr ? __real_time(out) : FakeTime::active->now;
}

void* __real_malloc(size_t bytes);
void* __wrap_malloc(size_t bytes)
{
    CountOne();
    return __real_malloc(bytes);
}
void* __real_calloc(size_t count, size_t bytes);
void* __wrap_calloc(size_t count, size_t bytes)
{
    CountOne();
    return __real_calloc(count, bytes);
}
void* __real_realloc(void* block, size_t bytes);
void* __wrap_realloc(void* block, size_t bytes)
{
    CountOne();
    return __real_realloc(block, bytes);
}
} // extern "C"

void* operator new(size_t bytes)
{
    void* const block = malloc(bytes);
    if (block == nullptr)
        abort();
    return block;
}
void operator delete(void* block) noexcept
{
    free(block);
}
void operator delete(void* block, size_t) noexcept
{
    free(block);
}

int CameraGetVideoEncoderConfig(VideoEncoderConfig* out)
{
    if (g_encoderAnswers.empty())
        return kCameraNotInitialized;
    for (StreamEncoderConfig& stream : out->stream)
        stream = g_encoderAnswers.front();
    if (g_encoderAnswers.size() > 1)
        g_encoderAnswers.erase(g_encoderAnswers.begin());
    return 0;
}

int CameraSetStreamCallback(uint32_t type, StreamCallback*)
{
    g_streamCallbackType = type;
    return 0;
}

std::map<uint32_t, int> FakeClock::Counts() const
{
    std::map<uint32_t, int> counts;
    for (const uint32_t span : sleepsMs)
        counts[span]++;
    return counts;
}

void FakeLog::Switch(FakeLog* log)
{
    const std::lock_guard lock(g_logMutex);
    g_log = log;
}
int FakeLog::Count(const std::string& text) const
{
    const std::lock_guard lock(g_logMutex);
    return static_cast<int>(std::count(lines.begin(), lines.end(), text));
}

TestRing::TestRing(uint32_t index, size_t bytes)
    : id_(shmget(kRings[index].key, bytes != 0 ? bytes : kRings[index].ulSegmentBytes, IPC_CREAT | 0600)),
      attachment_(id_)
{
    EXPECT_GE(id_, 0);
    gGetAVStreamSysInfo.StreamSharememID[index] = id_;
}
TestRing::~TestRing()
{
    shmctl(id_, IPC_RMID, nullptr);
}
void TestRing::Put(uint32_t position, const DataInfo& header, const std::vector<uint8_t>& payload)
{
    memcpy(attachment_.get() + position, &header, sizeof header);
    std::copy(payload.begin(), payload.end(), attachment_.get() + position + sizeof header);
}
DataInfo TestRing::At(uint32_t position) const
{
    DataInfo header;
    memcpy(&header, attachment_.get() + position, sizeof header);
    return header;
}

Watcher::Watcher(uint32_t sessionId, int32_t fdType)
{
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds_), 0);
    EXPECT_EQ(AddFd(fds_[0], "127.0.0.1", 0, sessionId), 0);
    SetFdType(fds_[0], fdType);
    SetSendVideoFlag(fds_[0], 1);
}
Watcher::~Watcher()
{
    RemoveFd(fds_[0]);
    close(fds_[1]);
}
std::vector<uint8_t> Watcher::Receive(size_t bytes) const
{
    std::vector<uint8_t> data(bytes);
    EXPECT_EQ(recv(fds_[1], data.data(), bytes, MSG_WAITALL), static_cast<ssize_t>(bytes));
    return data;
}
std::vector<uint8_t> Watcher::ReceiveAll() const
{
    std::vector<uint8_t> data(1 << 20);
    const ssize_t got = recv(fds_[1], data.data(), data.size(), MSG_DONTWAIT);
    data.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return data;
}
