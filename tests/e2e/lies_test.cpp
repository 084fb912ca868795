// An encoder host that lies in its rings at full speed: the server outlives it, what it passes on are whole
// frames, and it is back at the first true key frame.

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>

#include "hosts/process_runner.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/hosts/clip.h"

namespace {

constexpr std::chrono::seconds kBackWithin{2};
constexpr int kTrueFrames = 20;

// Reads on until, once the host is true, a true key frame is followed by true video frames alone; returns
// when it had come.
Clock::time_point AwaitTruth(MediaReader& reader, const std::atomic<bool>& isTrue)
{
    Clock::time_point keyFrameAt{};
    for (int count = 0; count < kTrueFrames;) {
        const auto& [subHeader, frame] = reader.ReadFrame();
        if (subHeader.starts_with(kAudioMark))
            continue;
        const bool isLie = frame.size() < 8 || frame.compare(5, 3, "lie") == 0;
        if (isTrue && !isLie && count == 0 && subHeader.starts_with(kKeyFrameMark))
            keyFrameAt = Clock::now();
        count = isLie || keyFrameAt == Clock::time_point{} ? 0 : count + 1;
    }
    return keyFrameAt;
}

class Lies : public Camera {
  protected:
    Lies()
    {
        media.reset();
        parameters.reset();
        camera_.Start();
        WaitForOutput("ready");
    }
    void WaitForOutput(const std::string& text)
    {
        WaitUntil("the bench camera to write '" + text + "'", [&] {
            std::stringstream output;
            output << std::ifstream(output_).rdbuf();
            return output.str().find(text) != std::string::npos;
        });
    }

    const Clip clip_{50, 64};
    const std::string output_ = clip_.path() + ".output";
    ProcessRunner camera_{"/bin/sh",
                          {"sh", "-c",
                           "exec " VELMORA_BENCH_CAMERA " --main " + clip_.path() + " --second " +
                               clip_.path() + " --lie " + std::to_string(4 + 2 * Slowness()) + ",20 > " +
                               output_},
                          AtEnd::kLeave};
};

TEST_F(Lies, WatchersGetWholeFramesAndTheTruthWithinTwoSeconds)
{
    StartServer();
    Watcher watcher;
    Watcher extra("Extra");
    MediaReader* const readers[] = {&watcher.media, &extra.media};
    Clock::time_point backAt[2];
    std::string failure[2];
    std::atomic<bool> isTrue[2];
    std::thread threads[2];
    for (int i = 0; i < 2; i++)
        threads[i] = std::thread([&, i] {
            try {
                backAt[i] = AwaitTruth(*readers[i], isTrue[i]);
            } catch (const std::runtime_error& error) {
                failure[i] = error.what();
            }
        });
    Clock::time_point truthAt[2];
    const char* const names[] = {"main stream tells", "second stream tells"};
    for (int i = 0; i < 2; i++) { // both at nearly the same time
        WaitForOutput(names[i]);
        truthAt[i] = Clock::now();
        isTrue[i] = true;
    }
    for (int i = 0; i < 2; i++) {
        threads[i].join();
        EXPECT_EQ(failure[i], "") << "stream " << i;
        EXPECT_LE(backAt[i] - truthAt[i], Patience(kBackWithin)) << "stream " << i;
    }
}

} // namespace
