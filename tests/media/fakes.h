// Stand-ins for what lies below the media floor, each switched on for the life of a scope object; what
// is not switched on is the real thing. One object of a kind at a time.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "camera/camera_records.h"
#include "common/sysv_ipc.h"
#include "media/ring_layout.h"
#include "media/stream_buffers.h"
#include "protocol/send_mutex.h"

// Waits of the thread that made it cost no time and are written down; `onSleep` runs in each.
class FakeClock {
  public:
    FakeClock() { active = this; }
    ~FakeClock() { active = nullptr; }
    // How often each span was slept.
    [[nodiscard]] std::map<uint32_t, int> Counts() const;
    std::vector<uint32_t> sleepsMs;
    std::function<void()> onSleep = [] {};
    static inline thread_local FakeClock* active = nullptr;
};

// Collects trace lines of all threads, with "#" for the source line number.
class FakeLog {
  public:
    FakeLog() { Switch(this); }
    ~FakeLog() { Switch(nullptr); }
    [[nodiscard]] int Count(const std::string& text) const;
    std::vector<std::string> lines;

  private:
    static void Switch(FakeLog* log);
};

// Answers position queries, one answer each; the last one repeats.
class FakeHost {
  public:
    explicit FakeHost(std::vector<uint32_t> answers) : positions(std::move(answers)) { active = this; }
    ~FakeHost() { active = nullptr; }
    std::vector<uint32_t> positions;
    std::vector<uint32_t> commands; // asked so far
    static inline thread_local FakeHost* active = nullptr;
};

// Says whether streams are watched, and counts how often that is asked.
class FakeWatch {
  public:
    explicit FakeWatch(bool watched) : isWatched(watched) { active = this; }
    ~FakeWatch() { active = nullptr; }
    std::atomic<bool> isWatched;
    std::atomic<int> asked{0};
    static inline std::atomic<FakeWatch*> active{nullptr};
};

// Results of the next sends: so many bytes at most, or a negative error number. Then sends are real.
class FakeSend {
  public:
    explicit FakeSend(std::vector<int> scripted) : results(std::move(scripted)) { active = this; }
    ~FakeSend() { active = nullptr; }
    std::vector<int> results;
    std::vector<size_t> pieces; // asked to send so far
    static inline thread_local FakeSend* active = nullptr;
};

class FakeTime {
  public:
    explicit FakeTime(time_t seconds) : now(seconds) { active = this; }
    ~FakeTime() { active = nullptr; }
    const time_t now;
    static inline thread_local FakeTime* active = nullptr;
};

// Counts allocations of the whole process.
class CountAllocations {
  public:
    CountAllocations() { isOn = true; }
    ~CountAllocations() { isOn = false; }
    [[nodiscard]] static int count() { return counted; }
    static inline std::atomic<bool> isOn{false};
    static inline std::atomic<int> counted{0};
};

// Answers of command 15, one each; the last one repeats. Empty: the command fails.
inline std::vector<StreamEncoderConfig> g_encoderAnswers;
inline uint32_t g_streamCallbackType = 0;

// The video process without its threads, with empty buffers.
class RunningFanOut : public testing::Test {
  protected:
    RunningFanOut()
    {
        CreateStreamLocks();
        CreateSendMutex();
        EmptyStreamBuffers();
        SetVideoProcessRunning(true);
    }
    ~RunningFanOut() override { SetVideoProcessRunning(false); }
};

// A ring of its stream, in a segment of its own under the stream's key.
class TestRing {
  public:
    explicit TestRing(uint32_t index, size_t bytes = 0);
    ~TestRing();
    void Put(uint32_t position, const DataInfo& header, const std::vector<uint8_t>& payload = {});
    [[nodiscard]] DataInfo At(uint32_t position) const;
    [[nodiscard]] int id() const { return id_; }
    uint8_t* bytes() { return attachment_.get(); }

  private:
    int id_;
    ShmAttachment attachment_;
};

// A media connection of a session on one end of a socket pair; the other end receives. The table owns
// the first.
class Watcher {
  public:
    Watcher(uint32_t sessionId, int32_t fdType);
    ~Watcher();
    // Exactly so many bytes of what was sent.
    std::vector<uint8_t> Receive(size_t bytes) const;
    // Bytes that are there already.
    std::vector<uint8_t> ReceiveAll() const;
    [[nodiscard]] int fd() const { return fds_[0]; }

  private:
    int fds_[2];
};
