// An encoder host that lies in its rings at full speed: the server outlives it and goes on passing on what
// could be a frame, and it is back at the first true key frame.

#include <atomic>
#include <future>

#include "tests/e2e/harness/camera_test.h"
#include "tests/hosts/clip.h"

namespace {

constexpr std::chrono::seconds kBackWithin{2};
constexpr int kTrueFrames = 20;

// Reads on until, once the host is true, a true key frame is followed by true video frames alone; returns
// when it had come.
Clock::time_point AwaitTruth(MediaReader& reader, const std::string& video, const std::atomic<bool>& isTrue)
{
    Clock::time_point keyFrameAt{};
    int lies = 0;
    for (int count = 0; count < kTrueFrames;) {
        const auto& [subHeader, frame] = reader.ReadFrame();
        if (subHeader.starts_with(kAudioMark))
            continue;
        const bool isLie = frame.size() < 8 || frame.compare(5, 3, "lie") == 0;
        if (isTrue && !isLie && count == 0 && subHeader.starts_with(kKeyFrameMark))
            keyFrameAt = Clock::now();
        count = isLie || keyFrameAt == Clock::time_point{} ? 0 : count + 1;
        lies += isLie ? 1 : 0;
        EXPECT_TRUE(isLie || video.find(frame) != std::string::npos)
            << "a frame of the clip with other bytes";
    }
    EXPECT_GT(lies, 0);
    return keyFrameAt;
}

class Lies : public Camera {
  protected:
    Lies()
    {
        media.reset();
        parameters.reset();
        camera.WaitForOutput("ready");
    }
    const Clip clip{50, 64};
    const ServerProcess camera{
        {"--main", clip.path(), "--second", clip.path(), "--lie", std::to_string(4 + 2 * Slowness()) + ",20"},
        VELMORA_BENCH_CAMERA};
};

TEST_F(Lies, WatchersGetFramesAndTheWholeTruthWithinTwoSeconds)
{
    StartServer();
    Watcher watcher;
    Watcher extra("Extra");
    MediaReader* const readers[] = {&watcher.media, &extra.media};
    std::ostringstream video;
    video << std::ifstream(clip.path(), std::ios::binary).rdbuf();
    std::atomic<bool> isTrue[2];
    std::future<Clock::time_point> backAt[2];
    for (int i = 0; i < 2; i++)
        backAt[i] = std::async(std::launch::async, AwaitTruth, std::ref(*readers[i]), video.str(),
                               std::cref(isTrue[i]));
    Clock::time_point truthAt[2];
    const char* const names[] = {"main stream tells", "second stream tells"};
    for (int i = 0; i < 2; i++) { // both at nearly the same time
        camera.WaitForOutput(names[i]);
        truthAt[i] = Clock::now();
        isTrue[i] = true;
    }
    for (int i = 0; i < 2; i++)
        EXPECT_LE(backAt[i].get() - truthAt[i], Patience(kBackWithin)) << "stream " << i;
}

} // namespace
