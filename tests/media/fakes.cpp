#include "tests/media/fakes.h"

#include <gtest/gtest.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "camera/camera_commands.h"
#include "media/frame_source_state.h"
#include "protocol/connection_table.h"

namespace {

std::mutex g_mutex; // guards the log and the allocation count's scope
FakeClock* g_clock = nullptr;
std::thread::id g_clockThread;
FakeLog* g_log = nullptr;
FakeHost* g_host = nullptr;
std::atomic<FakeWatch*> g_watch{nullptr};
FakeSend* g_send = nullptr;
FakeTime* g_time = nullptr;
std::atomic<bool> g_isCounting{false};
std::atomic<int> g_allocations{0};

void CountOne()
{
    if (g_isCounting)
        g_allocations++;
}

} // namespace

// What the linker puts in place of the wrapped functions.
#pragma GCC diagnostic ignored "-Wmissing-declarations"
#pragma GCC diagnostic ignored "-Wmismatched-new-delete" // new and delete are replaced together
extern "C" {
void __real__Z7SleepMsj(uint32_t milliseconds);
void __wrap__Z7SleepMsj(uint32_t milliseconds)
{
    {
        const std::lock_guard lock(g_mutex);
        if (g_clock == nullptr || g_clockThread != std::this_thread::get_id()) {
            // Falls out of the scope: a real sleep holds no lock.
        } else {
            g_clock->sleepsMs.push_back(milliseconds);
            milliseconds = UINT32_MAX;
        }
    }
    if (milliseconds == UINT32_MAX)
        g_clock->onSleep();
    else
        __real__Z7SleepMsj(milliseconds);
}

int __wrap__Z8LogTracePKcz(const char* format, ...)
{
    const std::lock_guard lock(g_mutex);
    if (g_log == nullptr)
        return 0;
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::string line(text);
    const size_t from = line.find_first_of(
        "0123456789", line.rfind(".c ") == std::string::npos ? line.find(' ') : line.rfind(' '));
    const size_t to = line.find_first_not_of("0123456789", from);
    if (from != std::string::npos)
        line.replace(from, to - from, "#");
    g_log->lines.push_back(line);
    return 0;
}

uint32_t __real__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command);
uint32_t __wrap__Z13QueryPositionijj(int32_t clientType, uint32_t index, uint32_t command)
{
    if (g_host == nullptr)
        return __real__Z13QueryPositionijj(clientType, index, command);
    g_host->onQuery();
    const size_t turn = g_host->commands.size();
    g_host->commands.push_back(command);
    return turn < g_host->positions.size() ? g_host->positions[turn] : g_host->positions.back();
}

int __real__Z14IsStreamWantedj(uint32_t index);
int __wrap__Z14IsStreamWantedj(uint32_t index)
{
    FakeWatch* const watch = g_watch;
    if (watch == nullptr)
        return __real__Z14IsStreamWantedj(index);
    watch->asked++;
    return watch->isWatched ? 1 : 0;
}

ssize_t __real_send(int fd, const void* data, size_t bytes, int flags);
ssize_t __wrap_send(int fd, const void* data, size_t bytes, int flags)
{
    if (g_send == nullptr)
        return __real_send(fd, data, bytes, flags);
    EXPECT_EQ(flags, MSG_DONTWAIT | MSG_NOSIGNAL);
    g_send->pieces.push_back(bytes);
    if (g_send->results.empty())
        return __real_send(fd, data, bytes, flags);
    const int result = g_send->results.front();
    g_send->results.erase(g_send->results.begin());
    if (result > 0)
        return __real_send(fd, data, std::min(bytes, static_cast<size_t>(result)), flags);
    errno = -result;
    return -1;
}

time_t __real_time(time_t* out);
time_t __wrap_time(time_t* out)
{
    return g_time == nullptr ? __real_time(out) : g_time->now;
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

FakeClock::FakeClock()
{
    const std::lock_guard lock(g_mutex);
    g_clock = this;
    g_clockThread = std::this_thread::get_id();
}
FakeClock::~FakeClock()
{
    const std::lock_guard lock(g_mutex);
    g_clock = nullptr;
}
std::map<uint32_t, int> FakeClock::Counts() const
{
    std::map<uint32_t, int> counts;
    for (const uint32_t span : sleepsMs)
        counts[span]++;
    return counts;
}

FakeLog::FakeLog()
{
    const std::lock_guard lock(g_mutex);
    g_log = this;
}
FakeLog::~FakeLog()
{
    const std::lock_guard lock(g_mutex);
    g_log = nullptr;
}
int FakeLog::Count(const std::string& text) const
{
    const std::lock_guard lock(g_mutex);
    return static_cast<int>(std::count(lines.begin(), lines.end(), text));
}

FakeHost::FakeHost(std::vector<uint32_t> answers) : positions(std::move(answers))
{
    g_host = this;
}
FakeHost::~FakeHost()
{
    g_host = nullptr;
}
FakeWatch::FakeWatch(bool watched) : isWatched(watched)
{
    g_watch = this;
}
FakeWatch::~FakeWatch()
{
    g_watch = nullptr;
}
FakeSend::FakeSend(std::vector<int> scripted) : results(std::move(scripted))
{
    g_send = this;
}
FakeSend::~FakeSend()
{
    g_send = nullptr;
}
FakeTime::FakeTime(time_t seconds) : now(seconds)
{
    g_time = this;
}
FakeTime::~FakeTime()
{
    g_time = nullptr;
}
CountAllocations::CountAllocations()
{
    g_allocations = 0;
    g_isCounting = true;
}
CountAllocations::~CountAllocations()
{
    g_isCounting = false;
}
int CountAllocations::count() const
{
    return g_allocations;
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
