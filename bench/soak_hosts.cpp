#include "bench/soak_hosts.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "bench/soak_frames.h"
#include "camera/parameter_block_layout.h"
#include "common/little_endian.h"
#include "common/log.h"
#include "hosts/alarm_source.h"
#include "hosts/ipc_objects.h"
#include "hosts/parameter_host.h"
#include "hosts/queue_server.h"
#include "hosts/ring_writer.h"
#include "media/ring_layout.h"

namespace {

constexpr char kMediaName[] = "soak media host";
constexpr int64_t kSecondNs = 1'000'000'000;
// Readers wait a quarter of a second for a frame that is announced.
constexpr int64_t kLateNs = kSecondNs / 5;
constexpr uint32_t kFramesPerSecond = kSoakPatterns[0].framesPerSecond;
// Numbers rise faster than frames are made, so that a host that starts again goes on above the life before.
constexpr uint64_t kNumbersPerSecond = 10 * kFramesPerSecond;

void TellReady()
{
    printf("ready\n");
    fflush(stdout);
}

void SleepForEver()
{
    for (;;)
        pause();
}

int64_t UptimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<int64_t>(now.tv_sec) * kSecondNs + now.tv_nsec;
}

class MediaWriter {
  public:
    MediaWriter()
        : positions_("soak pos", "position", kPositionQueueKey, kPositionQueueMode, kPositionRequestType,
                     PositionMessage::kTextBytes, [this](QueueText& message) { return Position(message); }),
          control_("soak ctrl", "order", kControlQueueKey, kControlQueueMode, kControlRequestType,
                   ControlMessage::kTextBytes, Control)
    {
        AdoptQueue(kMediaName, kPositionQueueKey, kPositionQueueMode, kPositionRequestType);
        AdoptQueue(kMediaName, kControlQueueKey, kControlQueueMode, kControlRequestType);
        number_ = static_cast<uint64_t>(UptimeNs()) / (kSecondNs / kNumbersPerSecond);
        number_ -= number_ % kSoakPatterns[0].gopFrames;
        epoch_ = number_;
        for (uint32_t i = 0; i < kSoakStreams; ++i) {
            segments_[i] = std::make_unique<HostSegment>(kMediaName, kRings[i].key, kRings[i].ulSegmentBytes,
                                                         kRingMode, Contents::kClear);
            writers_[i] = std::make_unique<RingWriter>(segments_[i]->get(), kRings[i].ulRingBytes,
                                                       static_cast<uint32_t>(2 * number_));
        }
    }

    // A moment that was missed because the process stood still is not made up for.
    void Run()
    {
        positions_.Start();
        control_.Start();
        TellReady();
        constexpr int64_t kFrameNs = kSecondNs / kFramesPerSecond;
        for (int64_t due = MonotonicNs(), published = due;; ++number_) {
            for (uint32_t i = 0; i < kSoakStreams; ++i)
                Publish(i);
            // Counted by the next frames: a frame that was late itself is lost to nobody.
            if (MonotonicNs() - published > kLateNs)
                ++epoch_;
            published = MonotonicNs();
            due = std::max(due + kFrameNs, MonotonicNs());
            const timespec until{.tv_sec = due / kSecondNs, .tv_nsec = due % kSecondNs};
            while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
            }
        }
    }

  private:
    void Publish(uint32_t stream)
    {
        const FrameMark mark{number_, epoch_};
        const auto uptimeMs = static_cast<uint32_t>(UptimeNs() / 1'000'000);
        writers_[stream]->Put({.payload = MakePicture(stream, mark),
                               .source = kSourceVideo,
                               .keyFrame = IsKeyFrame(kSoakPatterns[stream], number_),
                               .ulTimeStamp = uptimeMs});
        writers_[stream]->Put({.payload = MakeSound(stream, mark),
                               .source = kSourceAudio,
                               .keyFrame = false,
                               .ulTimeStamp = uptimeMs});
    }

    std::optional<long> Position(QueueText& message)
    {
        const uint32_t stream = message.word[kWordStream];
        message.word[kWordResult] = stream < kSoakStreams ? writers_[stream]->StartPlace() : 0;
        return static_cast<long>(message.word[kWordClientType]);
    }

    static std::optional<long> Control(QueueText& message)
    {
        message.word[kControlWordResult] = 0;
        return kControlReplyType;
    }

    std::unique_ptr<HostSegment> segments_[kSoakStreams];
    std::unique_ptr<RingWriter> writers_[kSoakStreams];
    uint64_t number_ = 0, epoch_ = 0; // of the next frame
    QueueServer positions_, control_;
};

void SignalSet(sigset_t* set)
{
    sigemptyset(set);
    sigaddset(set, SIGTERM);
}

int RunParameters(const std::string& stateFile)
{
    sigset_t end;
    SignalSet(&end);
    sigprocmask(SIG_BLOCK, &end, nullptr); // before the threads are made
    ParameterHost host(stateFile, [] {});
    for (uint32_t i = 0; i < kSoakStreams; ++i)
        host.store().SetStream(i, {.codec = kCodecH265,
                                   .usWidth = static_cast<uint16_t>(i == 0 ? 1920 : 704),
                                   .usHeight = static_cast<uint16_t>(i == 0 ? 1080 : 480),
                                   .iFrameRate = kFramesPerSecond,
                                   .iBitRate = static_cast<int32_t>(kSoakPatterns[i].bitsPerSecond),
                                   .iIFrameInterval = static_cast<int32_t>(kSoakPatterns[i].gopFrames)});
    host.Start();
    TellReady();
    int number = 0;
    sigwait(&end, &number);
    host.Stop();
    return 0;
}

int RunAlarms()
{
    AlarmSource source(MotionSchedule{.every = std::chrono::seconds(6), .duration = std::chrono::seconds(2)});
    source.Start();
    TellReady();
    SleepForEver();
    return 0;
}

} // namespace

int RunSoakHost(const std::string& name, const std::string& stateFile)
{
    LogInit(kMediaName, 0);
    if (name == "parameters")
        return RunParameters(stateFile);
    if (name == "media")
        MediaWriter().Run();
    if (name == "alarms")
        return RunAlarms();
    return 2;
}
