#include "camera/upgrade_operation.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "camera/camera_records.h"
#include "camera/shell_commands.h"
#include "common/log.h"

namespace {

constexpr char kPackage[] = "/dev/upGradeFile.FLS";
constexpr char kListMainHost[] = "ps | grep MainHost";

struct PackageHeader {
    char szChip[8];
    char szSensor[8];
    uint32_t ulWord[2];
};
static_assert(sizeof(PackageHeader) == 24);

std::string_view TextOf(const char (&text)[8])
{
    return {text, strnlen(text, sizeof text)};
}

bool ReadHeader(PackageHeader* header)
{
    FILE* const file = fopen(kPackage, "re");
    if (file == nullptr) {
        LogTrace("open %s error\n", kPackage);
        return false;
    }
    const size_t length = fread(header, 1, sizeof *header, file);
    (void)fclose(file); // only read
    if (length == sizeof *header)
        return true;
    LogTrace("read upgrate header error return is %d\n", static_cast<int>(length));
    return false;
}

bool IsForThisCamera(const PackageHeader& header)
{
    const std::string_view chip = TextOf(header.szChip);
    const std::string_view sensor = TextOf(header.szSensor);
    LogTrace("ic type is %.*s,sensor man is %.*s \n", static_cast<int>(chip.size()), chip.data(),
             static_cast<int>(sensor.size()), sensor.data());
    if (chip == "Q7RTN" && sensor == "OS05A10" && header.ulWord[0] != 0 && header.ulWord[1] != 0)
        return true;
    LogTrace("Device type or DeviceManufacturers error\n");
    return false;
}

// The number at the start of a line; 0 for none. Cut to a process id, a larger one might mean everybody.
pid_t ReadPid(const char* line)
{
    return static_cast<pid_t>(std::clamp(strtol(line, nullptr, 10), 0L, long{INT_MAX}));
}

void SignalMainHost()
{
    LogTrace("before Get Pid By Name\n");
    FILE* const list = OpenShell(kListMainHost);
    if (list == nullptr)
        return;
    char line[256];
    bool isStart = true; // a long line comes in pieces, and only the first one begins with its number
    while (fgets(line, sizeof line, list) != nullptr) {
        const pid_t pid = isStart ? ReadPid(line) : 0;
        isStart = strchr(line, '\n') != nullptr;
        if (pid <= 1) // a line without a number must not signal everybody
            continue;
        LogTrace("pidNum: %d \n", pid);
        (void)kill(pid, SIGUSR2); // it may have ended meanwhile
    }
    CloseShell(list);
}

} // namespace

int Common_Upgrade(const void* input, void*)
{
    if (input == nullptr)
        return kCameraFailed;
    (void)Command_System("rm /param/onvif.cfg");
    PackageHeader header{};
    if (ReadHeader(&header) && IsForThisCamera(header)) {
        SignalMainHost();
        return kCameraOk;
    }
    LogTrace(" Common_CheckPackageIs3516D error!!!\n");
    (void)unlink(kPackage); // a missing one is as well
    (void)Command_System("/opt/app/bin/Keeper&");
    return kCameraFailed;
}
