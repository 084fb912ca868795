#include "hosts/stream_player.h"

#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "common/log.h"
#include "hosts/test_picture.h"

namespace {

constexpr std::chrono::seconds kReopenEvery{1};
constexpr std::chrono::seconds kTooLate{1};
constexpr std::chrono::milliseconds kResumeLead{10}; // from the announcement to the first record
constexpr std::chrono::milliseconds kSettle{250};
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
    settings_ = fileFacts_;
}

void StreamPlayer::OpenFile()
{
    file_ = OpenVideo(path_, frameLimit_, bitRate_);
    fileFacts_ = file_->facts();
    audio_ = std::make_unique<AudioSource>(path_, file_->OriginUs());
}

void StreamPlayer::Start(RingWriter* ring, FactsFunction report)
{
    ring_ = ring;
    report_ = std::move(report);
    report_(fileFacts_);
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
            if (!file_)
                Reopen();
            WaitWhilePaused();
            PlayUntilInterrupted();
        } catch (const std::exception& error) {
            LogError("%s: the stream is interrupted: %s\n", name_, error.what());
            picture_.reset();
            file_.reset();
            Silence();
        }
        if (!std::exchange(hasStarted_, true))
            started_.count_down();
        lock.lock();
        if (!file_)
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
    report_(fileFacts_);
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
    const int64_t playUs = Playing().Peek().playUs;
    keyFrameNext_ = true;
    audioUs_ = playUs;
    start_ = Clock::now() + kResumeLead - std::chrono::microseconds(playUs);
}

void StreamPlayer::PlayUntilInterrupted()
{
    for (;;) {
        const Wake wake = WaitUntil(Playing().Peek().playUs);
        if (wake == Wake::kInterrupted)
            return;
        if (wake == Wake::kConfigured) {
            ReadSettings();
            continue;
        }
        PutVideo();
        if (!std::exchange(hasStarted_, true))
            started_.count_down();
    }
}

StreamPlayer::Wake StreamPlayer::WaitUntil(int64_t playUs)
{
    std::unique_lock lock(mutex_);
    const auto due = start_ + std::chrono::microseconds(playUs);
    for (;;) {
        const auto now = Clock::now();
        if (stopping_ || paused_)
            return Wake::kInterrupted;
        if (hasChanged_ && now >= settledAt_)
            return Wake::kConfigured;
        if (now >= due)
            break;
        changed_.wait_until(lock, hasChanged_ ? std::min(due, settledAt_) : due);
    }
    keyFrameNext_ = keyFrameNext_ || std::exchange(keyFrameWanted_, false);
    return Wake::kDue;
}

void StreamPlayer::Configure(const StreamFacts& settings)
{
    {
        const std::lock_guard lock(mutex_);
        settings_ = settings;
        hasChanged_ = true;
        // Before the first frame there is nothing that could change too often.
        settledAt_ = Clock::now() + (sounding_ ? kSettle : kSettle.zero());
    }
    changed_.notify_all();
}

void StreamPlayer::ShowTestPicture(bool always)
{
    {
        const std::lock_guard lock(mutex_);
        if (pictureAlways_ == always)
            return;
        pictureAlways_ = always;
        // Settings that are still coming one by one are waited for.
        settledAt_ = hasChanged_ ? settledAt_ : Clock::now();
        hasChanged_ = true;
    }
    changed_.notify_all();
}

void StreamPlayer::ReadSettings()
{
    StreamFacts settings;
    bool pictureAlways = false;
    {
        const std::lock_guard lock(mutex_);
        settings = settings_;
        pictureAlways = pictureAlways_;
        hasChanged_ = false;
    }
    // A file that is encoded at a lower rate than it has is still the file.
    const bool isFile =
        !pictureAlways && (AreOfFile(settings, fileFacts_) || AreOfFile(settings, file_->facts()));
    if (isFile ? !picture_ : picture_ && settings == pictureSettings_)
        return;
    try {
        std::unique_ptr<VideoSource> picture;
        if (!isFile)
            picture = OpenTestPicture(settings, frameLimit_, audio_->LengthUs(), head_);
        pictureSettings_ = settings;
        GoOver(std::move(picture));
        LogFacts(name_, isFile ? "the file again" : "a test picture", Playing().facts());
    } catch (const std::exception& error) {
        LogWarn("%s: the settings are not followed: %s\n", name_, error.what());
    }
}

// The next frame comes at once, while the sound keeps its pace.
void StreamPlayer::GoOver(std::unique_ptr<VideoSource> picture)
{
    picture_ = std::move(picture);
    keyFrameNext_ = true;
    lateUs_.reset();
    const std::lock_guard lock(mutex_);
    lastFrame_ = Playing().Peek();
    const auto start = Clock::now() - std::chrono::microseconds(lastFrame_.playUs);
    audioUs_ += std::chrono::duration_cast<std::chrono::microseconds>(start_ - start).count();
    start_ = start;
}

void StreamPlayer::PutVideo()
{
    FrameTime time{};
    const AccessUnit frame = Playing().Take(keyFrameNext_, &time);
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
    const bool lowered = again && Playing().LowerRate();
    LogWarn("%s: the machine did not keep up, %s %d frames a second\n", name_,
            lowered ? "going on with" : "staying at", Playing().facts().iFrameRate);
    // What was set for the test picture stays as it was set.
    if (lowered && !picture_)
        report_(file_->facts());
}
