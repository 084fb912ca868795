// Restart, hard reset, shell and upgrade. Runs in the sandbox with an SD card: reboot, sync and killall
// only write down that they were called, and /param, /dev and /media are its own.
#include "camera/system_operations.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <fstream>
#include <iterator>
#include <thread>

#include "camera/device_commands.h"
#include "camera/shell_commands.h"
#include "tests/camera/camera_setup.h"
#include "tests/captured_output.h"

// Steps of the restart countdown take no time; the first waits for the test.
namespace {

constexpr long kStepNanoseconds = 200000000;
std::atomic<int> g_steps{0};
std::atomic<bool> g_mayCount{true};

} // namespace

extern "C" {
int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest);
}
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest)
{
    if (time->tv_sec != 0 || time->tv_nsec != kStepNanoseconds)
        return __real_clock_nanosleep(clock, flags, time, rest);
    g_steps++;
    EXPECT_TRUE(WaitUntil([] { return g_mayCount.load(); }));
    return 0;
}

namespace {

using std::string_literals::operator""s;

// What the sandbox's stand-ins wrote since the last call.
std::string TakeCalls()
{
    std::ifstream file("/sandbox/calls");
    const std::string calls{std::istreambuf_iterator<char>(file), {}};
    std::ofstream("/sandbox/calls", std::ios::trunc).flush();
    return calls;
}

void Touch(const char* path)
{
    std::ofstream(path, std::ios::app).flush();
}

TEST(Reboot, TellsTheRecordingProcessOnlyWhenItUsesACard)
{
    ASSERT_EQ(access("/media/SDCard", F_OK), 0) << "run through tests/sandbox.sh --sdcard";
    Host().Take();
    const auto reboot = [] {
        EXPECT_EQ(CameraReboot(), 0);
        EXPECT_EQ(Host().Take(), std::vector{SentByte(244, 1)});
        return TakeCalls();
    };
    EXPECT_EQ(CheckRecHostStatus(), 0);
    EXPECT_EQ(reboot(), "");

    FILE* const recHost = popen("read end # RecHost", "w"); // so the process listing has one
    EXPECT_EQ(CheckRecHostStatus(), 32) << "the listing is longer";
    EXPECT_EQ(reboot(), "killall RecHost\n");
    ASSERT_EQ(rmdir("/media/SDCard"), 0);
    EXPECT_EQ(reboot(), "");
    ASSERT_EQ(mkdir("/media/SDCard", 0755), 0);
    ASSERT_EQ(unlink("/dev/mmcblk0p1"), 0);
    EXPECT_EQ(reboot(), "");
    Touch("/dev/mmcblk0p1");
    pclose(recHost);
}

TEST(HardReset, RemovesTheSettingsAndRestartsOnceAfterTheLastCall)
{
    const char* const files[] = {"sysenv.cfg", "sysenvcopy.cfg", "logfile.log",
                                 "onvif.cfg",  "sysenv_ex.cfg",  "kept.cfg"};
    for (const int round : {1, 2}) { // the second needs a thread of its own
        for (const char* file : files)
            Touch(("/param/"s + file).c_str());
        Host().Take();
        g_steps = 0;
        g_mayCount = false;
        const CapturedOutput output({STDOUT_FILENO});
        EXPECT_EQ(CameraFactoryDefault(0), 0);
        for (const char* file : files)
            EXPECT_EQ(access(("/param/"s + file).c_str(), F_OK) == 0, file == "kept.cfg"s) << file;
        ASSERT_TRUE(WaitUntil([] { return g_steps == 1; }));
        std::vector<std::jthread> callers;
        for (int i = 0; i < 4; i++)
            callers.emplace_back(ParamChangeToRestart);
        callers.clear(); // all have returned
        EXPECT_EQ(TakeCalls(), "");
        g_mayCount = true;
        ASSERT_TRUE(WaitUntil([&] { return output.Text().find(", reboot end\n") != std::string::npos; }));
        EXPECT_EQ(g_steps, 21) << "one before the other calls, four seconds after them";
        EXPECT_EQ(TakeCalls(), "sync \nreboot -f\n") << round;
        EXPECT_EQ(Host().Take(), std::vector<Request>{});
    }
}

TEST(Shell, WaitsForItsOwnChildAlone)
{
    EXPECT_EQ(Command_System(nullptr), -1);
    EXPECT_EQ(Common_DoSystem(nullptr), -1);
    const pid_t other = fork();
    if (other == 0)
        _exit(7);
    siginfo_t ended{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(Command_System("exit 1"), 0);
    EXPECT_EQ(Common_DoSystem("exit 3"), 3 << 8);
    EXPECT_EQ(Common_DoSystem("kill -9 $$"), 9);
    EXPECT_EQ(Common_DoSystem("no-such-command 2>/dev/null"), 127 << 8);
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other) << "its status is still there";
    EXPECT_EQ(status, 7 << 8);
}

TEST(Upgrade, TakesPackagesForThisCameraOnly)
{
    const std::string good = "Q7RTN\0\0\0OS05A10\0\1\0\0\0\1\0\0\0"s;
    const std::tuple<const char*, std::string> refused[] = {
        {"open /dev/upGradeFile.FLS error", "no file"},
        {"read upgrate header error return is 23", good.substr(0, 23)},
        {"ic type is Q7RTN,sensor man is OS05A10 ", good.substr(0, 20) + "\0\0\0\0"s},
        {"Device type or DeviceManufacturers error", good.substr(0, 16) + "\0\0\0\0\1\0\0\0"s},
        {"ic type is Q7RTNxyz,sensor man is OS05A10x", "Q7RTNxyzOS05A10x\1\0\0\0\1\0\0\0"s},
    };
    ASSERT_EQ(mount("tmpfs", "/opt", "tmpfs", 0, nullptr), 0);
    ASSERT_EQ(mkdir("/opt/app", 0755) + mkdir("/opt/app/bin", 0755), 0);
    std::ofstream("/opt/app/bin/Keeper") << "#!/bin/sh\necho Keeper >> /sandbox/calls\n";
    ASSERT_EQ(chmod("/opt/app/bin/Keeper", 0755), 0);
    for (const auto& [log, package] : refused) {
        Touch("/param/onvif.cfg");
        if (package != "no file")
            std::ofstream("/dev/upGradeFile.FLS") << package;
        const std::string output = ErrorOutputOf([] { EXPECT_EQ(CameraUpgrade("now"), -1); });
        EXPECT_NE(output.find(log), std::string::npos) << output;
        EXPECT_NE(output.find("]:  Common_CheckPackageIs3516D error!!!\n"), std::string::npos) << output;
        for (const char* removed : {"/dev/upGradeFile.FLS", "/param/onvif.cfg"})
            EXPECT_NE(access(removed, F_OK), 0) << removed;
        std::string calls;
        EXPECT_TRUE(WaitUntil([&] { return (calls += TakeCalls()) == "Keeper\n"; })) << calls;
    }
    std::ofstream("/dev/upGradeFile.FLS") << good << "and the firmware";
    ASSERT_EQ(symlink("/bin/sh", "/opt/MainHost"), 0); // so the process listing has one
    FILE* const mainHost = popen("exec /opt/MainHost", "w");
    fputs("echo > /opt/started; read end\n", mainHost);
    fflush(mainHost);
    EXPECT_TRUE(WaitUntil([] { return access("/opt/started", F_OK) == 0; }));
    EXPECT_EQ(CameraUpgrade("now"), 0);
    EXPECT_EQ(access("/dev/upGradeFile.FLS", F_OK), 0);
    EXPECT_EQ(pclose(mainHost), SIGUSR2) << "what ended it";
    EXPECT_EQ(TakeCalls(), "");
    ASSERT_EQ(umount("/opt"), 0);
}

} // namespace
