#include "tests/server/fakes.h"

#include <sys/select.h>

#include <cstring>

#include "config/server_identity.h"
#include "media/monitor_requests.h"
#include "media/stream_fanout.h"

std::vector<std::string> g_calls;
std::atomic<int64_t> g_selectTimeoutUs{0};

std::atomic<uint16_t> g_port_server{0};

namespace {

std::string g_interfaceName = "eth0";
std::atomic<int64_t> g_uptime{-1}; // below 0: the real one

int Record(const char* handler, int fd, int requestLen, int* replyLen)
{
    g_calls.push_back(std::string(handler) + " " + std::to_string(fd) + " " + std::to_string(requestLen));
    *replyLen = 0;
    return 0;
}

} // namespace

// The linker's names for the functions that it wraps.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout);
uint32_t __real__Z9GetUptimev();
uint32_t __wrap__Z9GetUptimev();

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout)
{
    g_selectTimeoutUs = static_cast<int64_t>(timeout->tv_sec) * 1000000 + timeout->tv_usec;
    return __real_select(count, readable, writable, exceptional, timeout);
}

uint32_t __wrap__Z9GetUptimev()
{
    const int64_t uptime = g_uptime;
    return uptime >= 0 ? static_cast<uint32_t>(uptime) : __real__Z9GetUptimev();
}
// NOLINTEND(bugprone-reserved-identifier)
}

FakeUptime::~FakeUptime()
{
    g_uptime = -1;
}

void FakeUptime::Set(uint32_t seconds)
{
    g_uptime = seconds;
}

void SetInterfaceName(const char* name)
{
    g_interfaceName = name;
}

void GetInterfaceName(char* name)
{
    strcpy(name, g_interfaceName.c_str());
}

int StartVideoProcess()
{
    g_calls.emplace_back("StartVideoProcess");
    return 0;
}

int StopVideoProcess()
{
    g_calls.emplace_back("StopVideoProcess");
    return 0;
}

int ProcessMonitorReq(int fd, const uint8_t*, int requestLen, uint8_t*, int* replyLen)
{
    return Record("ProcessMonitorReq", fd, requestLen, replyLen);
}

int ProcessMonitorClaim(int fd, const uint8_t*, int requestLen, uint8_t*, int* replyLen)
{
    return Record("ProcessMonitorClaim", fd, requestLen, replyLen);
}
