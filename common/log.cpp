#include "common/log.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

std::atomic<bool> g_enabled{false};

[[gnu::format(printf, 2, 0)]] int WriteLine(std::string_view prefix, const char* format, va_list arguments)
{
    if (!g_enabled.load(std::memory_order_relaxed))
        return 0;
    char line[16 + kLogTextBytes];
    memcpy(line, prefix.data(), prefix.size());
    const int length = vsnprintf(line + prefix.size(), kLogTextBytes, format, arguments);
    if (length < 0)
        return 0;
    const size_t textBytes =
        static_cast<size_t>(length) < kLogTextBytes ? static_cast<size_t>(length) : kLogTextBytes - 1;
    ssize_t written;
    do
        written = write(STDERR_FILENO, line, prefix.size() + textBytes);
    while (written < 0 && errno == EINTR); // anything else: there is no one left to tell
    return 0;
}

} // namespace

void LogInit(const char*, int)
{
    g_enabled.store(true, std::memory_order_relaxed);
}

// One call per level, which differ in their prefix alone.
#define DEFINE_LOG_CALL(name, prefix)                                                                        \
    int name(const char* format, ...)                                                                        \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        const int result = WriteLine(prefix, format, arguments);                                             \
        va_end(arguments);                                                                                   \
        return result;                                                                                       \
    }

DEFINE_LOG_CALL(LogTrace, "[Trace]: ")
DEFINE_LOG_CALL(LogError, "[Error]: ")
DEFINE_LOG_CALL(LogWarn, "[Warn]: ")
DEFINE_LOG_CALL(LogInfo, "[Info]: ")
DEFINE_LOG_CALL(LogDebug, "[Debug]: ")
