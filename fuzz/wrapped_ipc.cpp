// Queues, files and commands of the machine, in place of the C library's.

#include <sys/msg.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "camera/alarm_block.h"
#include "camera/parameter_fields.h"
#include "camera/shell_commands.h"
#include "common/keeper_block.h"
#include "fuzz/machine.h"
#include "hosts/parameter_fields_table.h"
#include "server/network_state.h"

namespace {

constexpr int kParameterQueue = 1;
constexpr int kControlQueue = 2;

std::optional<uint32_t> FieldOfCode(int32_t code)
{
    for (const auto& [first, last, firstCode] : kParameterFields)
        if (code >= firstCode && code - firstCode <= static_cast<int32_t>(last - first))
            return first + static_cast<uint32_t>(code - firstCode);
    return std::nullopt;
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
    const std::optional<uint32_t> field = FieldOfCode(request.iCode);
    const FieldPlace* const place = field ? FindFieldPlace(*field) : nullptr;
    if (!field || (place != nullptr && place->kind != FieldKind::kText && length != place->usWidth))
        Violation("a parameter of no field, or of a wrong width");
    const uint8_t* const value = g_segments[kParameterData].base() + request.iDataOffset;
    request.iLengthOrResult = Has(kHostRefuses) ? -1 : g_store->Apply(*field, {value, length});
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

int IdOfKey(key_t key)
{
    constexpr key_t kKeys[] = {kSysConfigKey, kParameterKey, kAlarmKey, kKeeperKey};
    const auto* const found = std::find(std::begin(kKeys), std::end(kKeys), key);
    if (found == std::end(kKeys) || (key == kParameterKey && Has(kNoSegment)))
        return -1;
    return g_segments[found - std::begin(kKeys)].id;
}

// The search thread's loop ends with its pause.
void AfterSleep(int64_t)
{
    EndNetworkRun();
}

WRAPPED(int, msgget, key_t key, int)
{
    return key == kParameterKey ? kParameterQueue : key == kControlQueueKey ? kControlQueue : -1;
}

WRAPPED(int, msgsnd, int queue, const void* message, size_t bytes, int)
{
    return queue == kParameterQueue ? AskParameterHost(message, bytes) : OrderEncoder(message, bytes);
}

WRAPPED(ssize_t, msgrcv, int queue, void* message, size_t bytes, long type, int flags)
{
    if (queue == kParameterQueue && bytes == 0 && type == kParameterRequestType) { // is one left? none is
        errno = ENOMSG;
        return -1;
    }
    if (bytes != (queue == kParameterQueue ? kParameterTextBytes : ControlMessage::kTextBytes))
        Violation("an answer of a wrong length is expected");
    return queue == kParameterQueue ? AnswerOfParameterHost(message, type, flags) : AnswerOfEncoder(message);
}

WRAPPED(FILE*, fopen, const char* path, const char* mode)
{
    for (const FileText& file : kFiles)
        if (strcmp(file.path, path) == 0)
            return OpenText(file.text);
    return __real_fopen(path, mode);
}

WRAPPED(FILE*, popen, const char* command, const char* mode)
{
    if (strcmp(command, "ps -ef|grep RecHost|grep -v grep") == 0)
        return OpenText("12 RecHost\n");
    if (g_isServing)
        Violation("a command that no request may run");
    return __real_popen(command, mode);
}

WRAPPED(int, pclose, FILE* list)
{
    return fclose(list); // the list of processes above; nobody else opens one here
}

WRAPPED(int, access, const char*, int)
{
    return Has(kNoFiles) ? -1 : 0; // the memory card
}

WRAPPED(int, _Z14Command_System12ShellCommand, ShellCommand command)
{
    if (strcmp(command.text(), "killall RecHost") != 0)
        Violation("a command that no request may run");
    return 0;
}

WRAPPED(int, clock_settime, clockid_t, const timespec*)
{
    return Has(kNoFiles) ? Fail(-1, EPERM) : 0;
}

WRAPPED(time_t, time, time_t* now)
{
    const time_t seconds = 1700000000 + g_nowUs / 1000000;
    if (now != nullptr)
        *now = seconds;
    return seconds;
}

WRAPPED(ssize_t, write, int fd, const void* bytes, size_t length)
{
    const bool isLost = fd == STDERR_FILENO && IsSilent();
    return isLost ? static_cast<ssize_t>(length) : __real_write(fd, bytes, length);
}
