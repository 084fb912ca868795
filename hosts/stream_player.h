// Plays one file into one ring in real time, or a test picture beside the file's sound as long as that is
// asked for or the stream is set to something else than the file has: a thread takes each video frame when it
// is due, another one each sound record. The sound does not wait for a frame that takes long to encode, so
// the ring is never silent for as long as readers need to give up their place in it.
//
// Due times are counted from the start of play, so nothing drifts. When play falls a second behind, the
// clock starts again from there; when that happens again soon, fewer frames are encoded. While the file
// cannot be played the stream is paused and the file opened again once a second.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "hosts/audio_source.h"
#include "hosts/motors.h"
#include "hosts/ring_writer.h"
#include "hosts/stream_facts.h"
#include "hosts/video_source.h"

class StreamPlayer {
  public:
    using FactsFunction = std::function<void(const StreamFacts& facts)>;

    // Opens the file; throws std::runtime_error when it cannot be played. Frames may have `frameLimit`
    // bytes. The thread is named after the stream.
    StreamPlayer(const char* name, std::string path, size_t frameLimit, int32_t bitRate);
    ~StreamPlayer() { Stop(); }
    StreamPlayer(const StreamPlayer&) = delete;
    StreamPlayer& operator=(const StreamPlayer&) = delete;

    // Whose position the test picture shows, from before the start until after the end.
    void Film(Motors* head) { head_ = head; }
    // Plays into the ring; reports what the file gives now and whenever that changes, with no lock held.
    // Returns when the first record stands in the ring.
    void Start(RingWriter* ring, FactsFunction report);
    // Ends with a pause record in the ring.
    void Stop();

    // What the stream is set to. It is played, from a key frame on, once nothing has changed for a quarter
    // of a second, so that settings that come one by one are taken together. What cannot be encoded is
    // logged, and all goes on as before. Any thread; also from inside a report.
    void Configure(const StreamFacts& settings);
    // Whether a test picture is shown also while the settings are those of the file. Any thread; also from
    // inside a report.
    void ShowTestPicture(bool always);
    // The next frame is to be a key frame. Any thread.
    void ForceKeyFrame();
    // Any thread. A stream that goes on does so with a key frame.
    void SetPaused(bool paused);

  private:
    using Clock = std::chrono::steady_clock;
    enum class Wake { kDue, kConfigured, kInterrupted };

    void Run();
    void PlayUntilInterrupted();
    void WaitWhilePaused();
    void Reopen();
    void OpenFile();
    VideoSource& Playing() { return picture_ ? *picture_ : *file_; }
    void ReadSettings();
    void GoOver(std::unique_ptr<VideoSource> picture);
    Wake WaitUntil(int64_t playUs);
    void PutVideo();
    void RunSound();
    void PutSound();
    void Silence();
    void KeepUp(int64_t playUs);

    const char* const name_;
    const std::string path_;
    const size_t frameLimit_;
    const int32_t bitRate_;
    Motors* head_ = nullptr;
    RingWriter* ring_ = nullptr;
    FactsFunction report_;
    std::latch started_{1};

    // Only the video thread.
    std::unique_ptr<VideoSource> file_;
    StreamFacts fileFacts_;                // when it was opened
    std::unique_ptr<VideoSource> picture_; // while it is played instead
    StreamFacts pictureSettings_;
    bool hasStarted_ = false;
    bool keyFrameNext_ = true;
    std::optional<int64_t> lateUs_; // play time at which it was last too late

    std::mutex mutex_;          // guards all below
    Clock::time_point start_{}; // play time 0
    FrameTime lastFrame_{};     // the sound goes on from here
    std::unique_ptr<AudioSource> audio_;
    bool sounding_ = false; // from the first frame on, until the stream pauses
    int64_t audioUs_ = 0;   // play time of the next sound record
    std::condition_variable changed_;
    bool stopping_ = false;
    bool paused_ = false;
    bool keyFrameWanted_ = false;
    StreamFacts settings_{};        // the latest
    bool pictureAlways_ = false;    // whatever the settings are
    bool hasChanged_ = false;       // the two above, since they were looked at
    Clock::time_point settledAt_{}; // when they are looked at
    std::thread thread_;
    std::thread soundThread_;
};
