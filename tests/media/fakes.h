// Stand-ins for what lies below the media floor, each switched on for the life of a scope object; what
// is not switched on is the real thing. One object of a kind at a time.
#pragma once

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

// Waits of this thread cost no time and are written down; `onSleep` runs in each.
class FakeClock {
  public:
    FakeClock();
    ~FakeClock();
    std::vector<uint32_t> sleepsMs;
    std::function<void()> onSleep = [] {};
    // How often each span was slept.
    [[nodiscard]] std::map<uint32_t, int> Counts() const;
};

// Collects trace lines, with "#" for the source line number.
class FakeLog {
  public:
    FakeLog();
    ~FakeLog();
    std::vector<std::string> lines;
    [[nodiscard]] int Count(const std::string& text) const;
};

// Answers position queries, one answer each; the last one repeats.
class FakeHost {
  public:
    explicit FakeHost(std::vector<uint32_t> positions);
    ~FakeHost();
    std::vector<uint32_t> positions;
    std::vector<uint32_t> commands; // asked so far
    std::function<void()> onQuery = [] {};
};

// Says whether streams are watched, and counts how often that is asked.
class FakeWatch {
  public:
    explicit FakeWatch(bool isWatched);
    ~FakeWatch();
    std::atomic<bool> isWatched;
    std::atomic<int> asked{0};
};

// Results of the next sends: so many bytes at most, or a negative error number. Then sends are real.
class FakeSend {
  public:
    explicit FakeSend(std::vector<int> results);
    ~FakeSend();
    std::vector<int> results;
    std::vector<size_t> pieces; // asked to send so far
};

class FakeTime {
  public:
    explicit FakeTime(time_t now);
    ~FakeTime();
    const time_t now;
};

// Counts allocations of the whole process.
class CountAllocations {
  public:
    CountAllocations();
    ~CountAllocations();
    [[nodiscard]] int count() const;
};

// Answers of command 15, one each; the last one repeats. Empty: the command fails.
inline std::vector<StreamEncoderConfig> g_encoderAnswers;
inline uint32_t g_streamCallbackType = 0;

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
