#include "bench/soak_faults.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <iterator>

#include "bench/soak_child.h"
#include "common/clock.h"
#include "recorder/failure.h"
#include "recorder/live_view.h"

namespace {

constexpr uint16_t kConsolePort = 414;
constexpr int kStartSeconds = 120; // for a recorder beside a server that a fault holds up
constexpr milliseconds kRecorderTimeout{60'000};
constexpr milliseconds kMostSlowReaderTime{60'000};
// A reader whose socket holds no more than this stops the server's sends within seconds.
constexpr int kSlowReaderBytes = 4096;

void EndParameterHost(SoakWorld& world, const Round& round)
{
    world.scene.settingsUnsure = true;
    world.camera.EndParameterHost();
    SleepMs(round.faultMs);
    world.camera.StartParameterHost();
}

void AllowGaps(SoakWorld& world)
{
    for (SoakRecorder* recorder : world.recorders)
        recorder->watch().AllowGap();
}

void StopMediaHost(SoakWorld& world, const Round& round)
{
    AllowGaps(world);
    world.camera.StopMediaHost();
    SleepMs(round.faultMs);
    world.camera.ContinueMediaHost();
}

void KillMediaHost(SoakWorld& world, const Round& round)
{
    AllowGaps(world);
    world.camera.KillMediaHost();
    SleepMs(round.faultMs);
    world.camera.StartMediaHost();
}

void KillAlarmSource(SoakWorld& world, const Round& round)
{
    world.camera.KillAlarmSource();
    SleepMs(round.faultMs);
    world.camera.StartAlarmSource();
}

void LoseRecorder(SoakWorld& world, const Round& round)
{
    SoakChild recorder({world.program, "--vanishing", PrintHostPort(world.scene.camera)});
    recorder.WaitForLine(kStartSeconds);
    SleepMs(round.faultMs);
    recorder.Kill();
}

// A media connection whose receiver has next to no room: Connection would give it plenty.
UniqueFd OpenNarrowConnection(const HostPort& camera)
{
    UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    (void)setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &kSlowReaderBytes, sizeof kSlowReaderBytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(camera.port);
    if (inet_pton(AF_INET, camera.host.c_str(), &address.sin_addr) != 1 ||
        connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error(std::string("the slow reader cannot connect: ") + strerror(errno));
    return fd;
}

// Whether the server has given the connection up: its end arrives behind all that was never read, so only
// what the server says of itself shows it.
bool IsDropped(const SoakLog& log, uint64_t dropsBefore)
{
    return log.SlowReaders() > dropsBefore;
}

void ReadSlowly(SoakWorld& world, const Round&)
{
    const uint64_t dropsBefore = world.log.SlowReaders();
    Session session(world.scene.camera, kRecorderTimeout);
    session.Login();
    const UniqueFd media = OpenNarrowConnection(world.scene.camera);
    const std::string body =
        R"({"OPMonitor":{"Action":"Claim","Parameter":{"Channel":0,"StreamType":"Main"}}})";
    std::string claim(kHeaderBytes, '\0');
    WriteHeader(reinterpret_cast<uint8_t*>(claim.data()),
                {.ucHeadFlag = kHeadFlag,
                 .ucVersion = kVersion,
                 .ucReserved2 = {},
                 .ulSessionId = session.id(),
                 .ulSeqNum = 0,
                 .ucReserved12 = {},
                 .usMessageId = kMonitorClaim,
                 .ulBodyLength = static_cast<uint32_t>(body.size())});
    claim += body;
    char answer[1024];
    if (send(media.get(), claim.data(), claim.size(), MSG_NOSIGNAL) < 0 ||
        recv(media.get(), answer, sizeof answer, 0) <= 0)
        throw std::runtime_error("the slow reader's claim is not answered");
    session.Monitor("Start", FindStream("main"));
    const TimePoint deadline = Clock::now() + kMostSlowReaderTime;
    while (!IsDropped(world.log, dropsBefore) && Clock::now() < deadline)
        session.StayUntil(Clock::now() + milliseconds(50));
    if (!IsDropped(world.log, dropsBefore))
        world.verdict.Fail("a reader that takes nothing is not dropped");
}

void UseConsole(SoakWorld& world, const Round& round)
{
    const Connection console({world.scene.camera.host, kConsolePort}, Clock::now() + kRecorderTimeout);
    LogSource source;
    char text[65536];
    for (const TimePoint end = Clock::now() + milliseconds(round.faultMs); Clock::now() < end;) {
        pollfd readable{.fd = console.fd(), .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, PollTimeout(end)) <= 0)
            continue;
        const ssize_t got = recv(console.fd(), text, sizeof text, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            world.verdict.Fail("the console is closed by the camera");
            return;
        }
        if (got > 0)
            world.log.Add(source, {text, static_cast<size_t>(got)});
    }
}

struct FaultRow {
    void (*run)(SoakWorld&, const Round&);
    bool holdsUp; // answers, for as long as it lasts
};
constexpr FaultRow kFaults[] = {
    {[](SoakWorld&, const Round&) {}, false},
    {EndParameterHost, true},
    {StopMediaHost, true},
    {KillMediaHost, true},
    {KillAlarmSource, false},
    {LoseRecorder, false},
    {ReadSlowly, false},
    {UseConsole, false},
};
static_assert(std::size(kFaults) == static_cast<size_t>(Fault::kCount));

} // namespace

void RunFault(SoakWorld& world, const Round& round)
{
    const FaultRow& row = kFaults[static_cast<size_t>(round.fault)];
    SleepMs(round.faultDelayMs);
    const TimePoint begin = Clock::now();
    world.scene.disturbed = row.holdsUp;
    try {
        row.run(world, round);
        world.verdict.Count(std::string("fault: ") + NameOf(round.fault));
    } catch (const std::exception& failure) {
        world.verdict.Fail("%s: %s", NameOf(round.fault), failure.what());
    }
    if (row.holdsUp)
        world.scene.disturbedMs += std::chrono::ceil<milliseconds>(Clock::now() - begin).count();
    world.scene.disturbed = false;
}

int RunVanishingRecorder(const HostPort& camera)
{
    const Stream* const streams[] = {&FindStream("main")};
    LiveView view(camera, streams, kRecorderTimeout);
    view.Start();
    bool told = false;
    for (;;)
        view.Pass(Clock::now() + milliseconds(1000), {}, [&told](size_t, const Frame&, TimePoint) {
            if (!told) {
                printf("watching\n");
                fflush(stdout);
            }
            told = true;
        });
}
