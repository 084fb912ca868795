#include "hosts/stream_player.h"

#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "common/log.h"

namespace {

constexpr std::chrono::seconds kReopenEvery{1};
constexpr std::chrono::seconds kTooLate{1};
constexpr std::chrono::milliseconds kResumeLead{10}; // from the announcement to the first record
constexpr int64_t kSoonUs = 10'000'000;

uint32_t UptimeMs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

} // namespace

StreamPlayer::StreamPlayer(const char* name, std::string path, size_t frameLimit, int32_t bitRate)
    : name_(name), path_(std::move(path)), frameLimit_(frameLimit), bitRate_(bitRate)
{
    OpenFile();
}

void StreamPlayer::OpenFile()
{
    video_ = OpenVideo(path_, frameLimit_, bitRate_);
    audio_ = std::make_unique<AudioSource>(path_, video_->OriginUs());
}

void StreamPlayer::Start(RingWriter* ring, FactsFunction report)
{
    ring_ = ring;
    report_ = std::move(report);
    report_(video_->facts());
    soundThread_ = std::thread([this] { RunSound(); });
    thread_ = std::thread([this] { Run(); });
    started_.wait();
}

void StreamPlayer::Stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    for (std::thread* const thread : {&soundThread_, &thread_})
        if (thread->joinable())
            thread->join();
}

void StreamPlayer::ForceKeyFrame()
{
    const std::lock_guard lock(mutex_);
    keyFrameWanted_ = true;
}

void StreamPlayer::SetPaused(bool paused)
{
    {
        const std::lock_guard lock(mutex_);
        paused_ = paused;
    }
    changed_.notify_all();
}

void StreamPlayer::Run()
{
    pthread_setname_np(pthread_self(), name_);
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        lock.unlock();
        try {
            if (!video_)
                Reopen();
            WaitWhilePaused();
            PlayUntilInterrupted();
        } catch (const std::exception& error) {
            LogError("%s: the stream is interrupted: %s\n", name_, error.what());
            video_.reset();
            Silence();
        }
        if (!std::exchange(hasStarted_, true))
            started_.count_down();
        lock.lock();
        if (!video_)
            changed_.wait_for(lock, kReopenEvery, [this] { return stopping_; });
    }
    lock.unlock();
    Silence();
}

// A sound record after the pause record would end the pause.
void StreamPlayer::Silence()
{
    const std::lock_guard lock(mutex_);
    sounding_ = false;
    ring_->Pause();
}

// No sound is playing; its thread looks at nothing here until the first frame.
void StreamPlayer::Reopen()
{
    OpenFile();
    report_(video_->facts());
    lateUs_.reset();
}

void StreamPlayer::WaitWhilePaused()
{
    std::unique_lock lock(mutex_);
    if (paused_) {
        sounding_ = false;
        ring_->Pause();
        LogInfo("%s: paused\n", name_);
        changed_.wait(lock, [this] { return stopping_ || !paused_; });
        LogInfo("%s: going on\n", name_);
    }
    ring_->Resume();
    // From here on as from the start: a key frame first, and its sound after it.
    const int64_t playUs = video_->Peek().playUs;
    keyFrameNext_ = true;
    audioUs_ = playUs;
    start_ = Clock::now() + kResumeLead - std::chrono::microseconds(playUs);
}

void StreamPlayer::PlayUntilInterrupted()
{
    while (WaitUntil(video_->Peek().playUs) == Wake::kDue) {
        PutVideo();
        if (!std::exchange(hasStarted_, true))
            started_.count_down();
    }
}

StreamPlayer::Wake StreamPlayer::WaitUntil(int64_t playUs)
{
    std::unique_lock lock(mutex_);
    const auto interrupted = [this] { return stopping_ || paused_; };
    const bool woken = changed_.wait_until(lock, start_ + std::chrono::microseconds(playUs), interrupted);
    keyFrameNext_ = keyFrameNext_ || std::exchange(keyFrameWanted_, false);
    return woken ? Wake::kInterrupted : Wake::kDue;
}

void StreamPlayer::PutVideo()
{
    FrameTime time{};
    const AccessUnit frame = video_->Take(keyFrameNext_, &time);
    if (frame.problem != nullptr) {
        LogWarn("%s: a frame is left out: %s\n", name_, frame.problem);
    } else {
        ring_->Put({.payload = frame.bytes,
                    .source = kSourceVideo,
                    .keyFrame = frame.keyFrame,
                    .ulTimeStamp = UptimeMs()});
        keyFrameNext_ = false;
        const std::lock_guard lock(mutex_);
        lastFrame_ = time;
        sounding_ = true;
        changed_.notify_all();
    }
    KeepUp(time.playUs);
}

void StreamPlayer::RunSound()
{
    pthread_setname_np(pthread_self(), "sound");
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        const auto due = start_ + std::chrono::microseconds(audioUs_);
        if (!sounding_)
            changed_.wait(lock, [this] { return stopping_ || sounding_; });
        else if (!changed_.wait_until(lock, due, [this] { return stopping_ || !sounding_; }))
            PutSound();
    }
}

void StreamPlayer::PutSound()
{
    const AudioRecord record = audio_->At(lastFrame_.mediaUs + audioUs_ - lastFrame_.playUs);
    ring_->Put({.payload = record, .source = kSourceAudio, .keyFrame = false, .ulTimeStamp = UptimeMs()});
    audioUs_ += kAudioRecordUs;
}

void StreamPlayer::KeepUp(int64_t playUs)
{
    {
        const std::lock_guard lock(mutex_);
        const auto late = Clock::now() - (start_ + std::chrono::microseconds(playUs));
        if (late < kTooLate)
            return;
        // The sound's next record stays due when it was: it came in time all along.
        start_ += late;
        audioUs_ -= std::chrono::duration_cast<std::chrono::microseconds>(late).count();
    }
    // Once may be an accident; soon again is not.
    const bool again = lateUs_ && playUs - *lateUs_ < kSoonUs;
    lateUs_ = playUs;
    const bool lowered = again && video_->LowerRate();
    const int32_t rate = video_->facts().iFrameRate;
    LogWarn("%s: the machine did not keep up, %s %d frames a second\n", name_,
            lowered ? "going on with" : "staying at", rate);
    if (lowered)
        report_(video_->facts());
}
