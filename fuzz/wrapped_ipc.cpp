// System V objects, files, commands and clocks of the machine, in place of the C library's.

#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "camera/parameter_fields.h"
#include "camera/shell_commands.h"
#include "common/thread.h"
#include "fuzz/machine_state.h"
#include "hosts/parameter_fields_table.h"
#include "server/network_state.h"

namespace {

constexpr int kParameterQueue = 1;
constexpr int kControlQueue = 2;
constexpr int kBlockSegment = 3;
constexpr int kDataSegment = 4;
constexpr int kSemaphore = 5;

template <typename Result> Result Fail(Result result, int error)
{
    errno = error;
    return result;
}

constexpr size_t kCodes = 512; // more than there are message codes

// The fields that message codes stand for, as their host knows them; null for codes that it only keeps.
const std::array<const FieldPlace*, kCodes>& PlacesByCode()
{
    static const auto kPlaces = [] {
        std::array<const FieldPlace*, kCodes> places{};
        for (const FieldPlace& place : FieldPlaces())
            if (const std::optional<int32_t> code = ParameterCode(place.ulField))
                places.at(static_cast<size_t>(*code)) = &place;
        return places;
    }();
    return kPlaces;
}

int AskParameterHost(const void* message, size_t bytes)
{
    if (Has(kHostGone))
        return Fail(-1, EIDRM);
    if (bytes != kParameterTextBytes)
        Violation("a parameter request of a wrong length");
    ParameterMessage request;
    memcpy(&request, message, sizeof request);
    const auto length = static_cast<size_t>(request.iLengthOrResult);
    if (request.lType != kParameterRequestType || request.iSource != kOwnProcess || request.iReserved != 0 ||
        static_cast<size_t>(request.iDataOffset) != ParameterSlotOffset(kOwnProcess) ||
        length > kParameterSlotBytes)
        Violation("a parameter request that its host must refuse");
    const FieldPlace* const place = PlacesByCode().at(static_cast<size_t>(request.iCode));
    const uint8_t* const value = g_machine.data + request.iDataOffset;
    if (place != nullptr && place->kind != FieldKind::kText && length != place->usWidth)
        Violation("a parameter of a wrong width");
    request.iLengthOrResult = -1;
    if (!Has(kHostRefuses))
        request.iLengthOrResult =
            place != nullptr ? g_machine.store->Apply(place->ulField, {value, length}) : 0;
    request.lType = kOwnProcess;
    g_machine.answer = request;
    g_machine.isAnswered = true;
    return 0;
}

ssize_t AnswerOfParameterHost(void* message, long type, int flags)
{
    if (Has(kHostGone) || Has(kHostDies)) {
        g_machine.isAnswered = false;
        return Fail<ssize_t>(-1, EIDRM);
    }
    if (type == kOwnProcess && g_machine.isAnswered) {
        memcpy(message, &g_machine.answer, sizeof(long) + kParameterTextBytes);
        g_machine.isAnswered = false;
        return kParameterTextBytes;
    }
    if ((flags & IPC_NOWAIT) == 0)
        Violation("a wait for an answer that nobody owes");
    return Fail<ssize_t>(-1, ENOMSG);
}

int OrderEncoder(const void* message, size_t bytes)
{
    if (Has(kEncoderGone))
        return Fail(-1, EIDRM);
    if (Has(kEncoderFull))
        return Fail(-1, EAGAIN);
    if (bytes != ControlMessage::kTextBytes)
        Violation("an order of a wrong length");
    memcpy(&g_machine.order, message, sizeof g_machine.order);
    g_machine.isOrdered = true;
    return 0;
}

ssize_t AnswerOfEncoder(void* message)
{
    if (Has(kEncoderGone))
        return Fail<ssize_t>(-1, EIDRM);
    if (Has(kEncoderSilent) || !g_machine.isOrdered)
        return Fail<ssize_t>(-1, ENOMSG);
    g_machine.order.type = kControlReplyType;
    if (Has(kEncoderLies))
        ++g_machine.order.word[kControlWordArgument];
    memcpy(message, &g_machine.order, sizeof g_machine.order);
    g_machine.isOrdered = false;
    return static_cast<ssize_t>(ControlMessage::kTextBytes);
}

struct FileText {
    const char* path;
    const char* text; // null: the file is not there
};
constexpr FileText kFiles[] = {
    {"/etc/resolv.conf", "nameserver 10.0.0.53\nnameserver  10.0.0.54 \n"},
    {"/proc/net/route", "Iface\tDestination\tGateway \tFlags\n"
                        "lo\t00000000\t00000000\t0001\n"
                        "eth0\t00000000\t0101A8C0\t0003\n"
                        "wlan0\t00000000\t00000000\t0003\nbroken\n"},
    {"/dev/upGradeFile.FLS", nullptr},
};

FILE* OpenText(const char* text)
{
    return text != nullptr && !Has(kNoFiles) ? fmemopen(const_cast<char*>(text), strlen(text), "r") : nullptr;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for the functions that it wraps
extern "C" {
FILE* __real_fopen(const char* path, const char* mode);
FILE* __real_popen(const char* command, const char* mode);
int __real_access(const char* path, int mode);
int __real_clock_gettime(clockid_t clock, timespec* time);
ssize_t __real_write(int fd, const void* bytes, size_t length);
int __wrap_fprintf(FILE* file, const char* format, ...) __attribute__((format(printf, 2, 3)));

int __wrap_msgget(key_t key, int)
{
    return key == kParameterKey ? kParameterQueue : key == kControlQueueKey ? kControlQueue : -1;
}

int __wrap_msgsnd(int queue, const void* message, size_t bytes, int)
{
    return queue == kParameterQueue ? AskParameterHost(message, bytes) : OrderEncoder(message, bytes);
}

ssize_t __wrap_msgrcv(int queue, void* message, size_t bytes, long type, int flags)
{
    if (bytes != (queue == kParameterQueue ? kParameterTextBytes : ControlMessage::kTextBytes))
        Violation("an answer of a wrong length is expected");
    return queue == kParameterQueue ? AnswerOfParameterHost(message, type, flags) : AnswerOfEncoder(message);
}

int __wrap_shmget(key_t key, size_t, int)
{
    if (key == kParameterKey && Has(kNoSegment))
        return Fail(-1, ENOENT);
    return key == kSysConfigKey ? kBlockSegment : key == kParameterKey ? kDataSegment : -1;
}

void* __wrap_shmat(int id, const void*, int)
{
    return id == kBlockSegment ? g_machine.block : g_machine.data;
}

int __wrap_shmdt(const void*)
{
    return 0;
}

int __wrap_shmctl(int id, int, shmid_ds* status)
{
    status->shm_segsz = id == kBlockSegment ? kSysConfigBytes : kParameterDataBytes;
    return 0;
}

int __wrap_semget(key_t, int, int)
{
    return kSemaphore;
}

FILE* __wrap_fopen(const char* path, const char* mode)
{
    for (const FileText& file : kFiles)
        if (strcmp(file.path, path) == 0)
            return OpenText(file.text);
    return __real_fopen(path, mode);
}

FILE* __wrap_popen(const char* command, const char* mode)
{
    if (strcmp(command, "ps -ef|grep RecHost|grep -v grep") == 0)
        return OpenText("12 RecHost\n");
    if (g_machine.isServing)
        Violation("a command that no request may run");
    return __real_popen(command, mode);
}

int __wrap_pclose(FILE* list)
{
    return fclose(list); // the list of processes above; nobody else opens one here
}

int __wrap_access(const char* path, int mode)
{
    if (strcmp(path, "/dev/mmcblk0p1") == 0 || strcmp(path, "/media/SDCard/") == 0)
        return Has(kNoFiles) ? -1 : 0;
    return __real_access(path, mode);
}

int __wrap__Z14Command_System12ShellCommand(ShellCommand command)
{
    if (strcmp(command.text(), "killall RecHost") != 0)
        Violation("a command that no request may run");
    return 0;
}

int __wrap__Z19StartDetachedThreadPKcPFPvS1_ES1_(const char*, ThreadBody*, void*)
{
    return EAGAIN;
}

int __wrap_clock_settime(clockid_t, const timespec*)
{
    return Has(kNoFiles) ? Fail(-1, EPERM) : 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    if (!g_machine.isServing || clock == CLOCK_REALTIME) // libFuzzer's
        return __real_clock_gettime(clock, time);
    *time = {.tv_sec = g_machine.nowUs / 1000000, .tv_nsec = g_machine.nowUs % 1000000 * 1000};
    return 0;
}

// The search thread's loop ends with its pause.
int __wrap_clock_nanosleep(clockid_t, int flags, const timespec* time, timespec*)
{
    const int64_t us = time->tv_sec * 1000000 + time->tv_nsec / 1000;
    g_machine.nowUs = (flags & TIMER_ABSTIME) != 0 ? std::max(us, g_machine.nowUs) : g_machine.nowUs + us;
    EndNetworkRun();
    return 0;
}

time_t __wrap_time(time_t* now)
{
    const time_t seconds = 1700000000 + g_machine.nowUs / 1000000;
    if (now != nullptr)
        *now = seconds;
    return seconds;
}

ssize_t __wrap_write(int fd, const void* bytes, size_t length)
{
    return fd == STDERR_FILENO && g_machine.isSilent ? static_cast<ssize_t>(length)
                                                     : __real_write(fd, bytes, length);
}

int __wrap_fprintf(FILE* file, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char text[512];
    const int length = file == stderr && g_machine.isSilent ? vsnprintf(text, sizeof text, format, arguments)
                                                            : vfprintf(file, format, arguments);
    va_end(arguments);
    return length;
}

void __wrap_perror(const char*) {}
}
// NOLINTEND(bugprone-reserved-identifier)
