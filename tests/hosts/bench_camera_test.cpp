// The whole program, with a shell as its server: what it must keep when it loses everything.

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "camera/parameter_fields.h"
#include "tests/hosts/clip.h"
#include "tests/hosts/queue_client.h"

namespace {

constexpr uint32_t kHttpPort = 4101;
constexpr uint32_t kPtz = 4334;
constexpr uint32_t kReboot = 4396;

std::string TextOf(const std::string& path)
{
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Until the file holds the text so many times; the test's time limit ends it.
void WaitFor(const std::string& path, const std::string& what, int times = 1)
{
    for (int count = 0; count < times; usleep(1000)) {
        const std::string text = TextOf(path);
        count = 0;
        for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            ++count;
    }
}

// The process that others find by this name, in both places where they look; 0 when there is none.
pid_t FindProcess(const std::string& name)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc"))
        if (TextOf(entry.path() / "comm") == name + "\n" && TextOf(entry.path() / "cmdline") == name + '\0')
            return std::stoi(entry.path().filename());
    return 0;
}

void Set(uint32_t field, const std::vector<uint8_t>& value)
{
    SendValue(static_cast<uint32_t>(*ParameterCode(field)), value);
    EXPECT_EQ(ReceiveWords(kParameterQueue, 7).at(3), 0U) << "of the one reply";
}

TEST(BenchCamera, LosesNothingAtARebootButTheHeadsPosition)
{
    const TemporaryDirectory directory;
    const std::string output = directory.File("output");
    const std::string log = directory.File("log");
    const std::string server = "echo start >> " + directory.File("server") + "; exec sleep 1000";
    const Clip clip(25, 64);
    const pid_t camera = fork();
    if (camera == 0) {
        (void)!freopen(output.c_str(), "w", stdout);
        (void)!freopen(log.c_str(), "w", stderr);
        execl(VELMORA_BENCH_CAMERA, VELMORA_BENCH_CAMERA, "--main", clip.path().c_str(), "--second",
              clip.path().c_str(), "--reboot-pause", "0.1", "--rechost", "--server", "/bin/sh", "--", "-c",
              server.c_str(), nullptr);
        _exit(127);
    }
    for (int life = 1; life <= 2; ++life) {
        SCOPED_TRACE(life);
        WaitFor(output, "ready\n", life);
        WaitFor(directory.File("server"), "start\n", life);
        EXPECT_EQ(HttpPort(), life == 1 ? 80 : 8080);
        Set(kHttpPort, {0x90, 0x1F});
        if (life == 1) {
            Set(kPtz, {1, 2, 0, 0, 0});
            WaitFor(log, "second stream: a test picture");
            WaitFor(log, "main stream: a test picture");
            Set(kPtz, {1, 16, 0, 0, 3});
        }
        kill(camera, SIGUSR2);
        WaitFor(log, "motion begins", life);
        pid_t recorder = 0;
        while ((recorder = FindProcess("RecHost")) == 0)
            usleep(1000);
        Set(kReboot, {1});
        if (life == 1)
            kill(recorder, SIGTERM); // as the server does then
        WaitFor(output, "RecHost: told to stop, its files are closed\n", life);
    }
    WaitFor(output, "ready\n", 3);
    Set(kPtz, {1, 18, 0, 0, 3});
    WaitFor(log, "action 18, value 3, at pan 0.00 tilt 0.00 zoom 1.00"); // it was at home
    kill(camera, SIGTERM);
    int status = 0;
    waitpid(camera, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_LT(msgget(kParameterQueue, 0), 0) << "its objects are gone";
}

} // namespace
