// Stand-ins for what lies below the media floor, each switched on for the life of a scope object; what
// is not switched on is the real thing. One object of a kind at a time.
#pragma once

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "camera/camera_records.h"
#include "common/sysv_ipc.h"
#include "media/frame_source_state.h"
#include "media/stream_buffers.h"
#include "protocol/connection_table.h"
#include "protocol/send_mutex.h"
#include "tests/captured_output.h"
#include "tests/exchange.h"

// Switched on for the thread that made it.
template <typename Fake> struct Active {
    Active() { active = static_cast<Fake*>(this); }
    ~Active() { active = nullptr; }
    static inline thread_local Fake* active = nullptr;
};

// Waits cost no time but on this clock, and are counted by their spans; `onSleep` runs in each.
using Sleeps = std::map<uint32_t, int>;
struct FakeClock : Active<FakeClock> {
    Sleeps sleeps;
    int64_t nowMs = 0;
    std::function<void()> onSleep = [] {};
};

// The other end of a queue that the media floor writes to.
using Words = std::vector<uint32_t>;
struct QueueEnd {
    explicit QueueEnd(key_t key) : id(msgget(key, IPC_CREAT | 0600)) {}
    ~QueueEnd() { msgctl(id, IPC_RMID, nullptr); }
    // The next request, or nothing.
    [[nodiscard]] Words Take() const
    {
        QueueMessage<20> message{};
        const ssize_t bytes = msgrcv(id, &message, sizeof message.word, 1, IPC_NOWAIT);
        return Words(message.word, message.word + std::max<ssize_t>(bytes, 0) / 4);
    }
    void Send(int32_t type, const Words& words, size_t bytes) const
    {
        QueueMessage<20> message{.type = type, .word = {}};
        std::copy(words.begin(), words.end(), message.word);
        EXPECT_EQ(msgsnd(id, &message, bytes, 0), 0);
    }
    [[nodiscard]] size_t Messages() const
    {
        msqid_ds status{};
        return msgctl(id, IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
    }
    const int id;
};

// Answers position queries, one answer each; the last one repeats.
struct FakeHost : Active<FakeHost> {
    explicit FakeHost(std::vector<uint32_t> answers) : positions(std::move(answers)) {}
    std::vector<uint32_t> positions;
    std::vector<uint32_t> commands = {}; // asked so far
};

// Results of the next sends: so many bytes at most, or a negative error number. Then sends are real.
struct FakeSend : Active<FakeSend> {
    explicit FakeSend(std::vector<int> scripted) : results(std::move(scripted)) {}
    std::vector<int> results;
};

// Collects trace lines of all threads, with N for the source line number.
struct FakeLog : CapturedOutput {
    // How many lines begin so.
    [[nodiscard]] int Count(const std::string& line) const
    {
        return CapturedOutput::Count("[Trace]: " + line);
    }
};

// Whether streams are watched (-1: as the table says), and how often that was asked.
inline std::atomic<int> g_watched{-1}, g_asked{0};
inline time_t g_now = 0; // 0: the real time
// Answers of command 15, one each; the last one repeats. Empty: the command fails.
inline std::vector<StreamEncoderConfig> g_encoderAnswers;

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
    ~RunningFanOut() override
    {
        SetVideoProcessRunning(false);
        g_watched = -1;
    }
};

// A ring of its stream, in a segment of its own under the stream's key.
struct TestRing {
    explicit TestRing(uint32_t index)
        : id(shmget(kRings[index].key, kRings[index].ulSegmentBytes, IPC_CREAT | 0600)), attachment(id)
    {
        gGetAVStreamSysInfo.StreamSharememID[index] = id;
    }
    ~TestRing() { shmctl(id, IPC_RMID, nullptr); }
    void Put(uint32_t position, const DataInfo& header, const std::vector<uint8_t>& payload = {})
    {
        memcpy(attachment.get() + position, &header, sizeof header);
        std::copy(payload.begin(), payload.end(), attachment.get() + position + sizeof header);
    }
    const int id;
    ShmAttachment attachment;
};

// A media connection of a session whose stream flows.
struct Watcher : TestConnection {
    Watcher(uint32_t sessionId, int32_t fdType) : TestConnection(sessionId, fdType)
    {
        SetSendVideoFlag(fd(), 1);
    }
    // What is there already.
    [[nodiscard]] std::vector<uint8_t> Receive() const
    {
        std::vector<uint8_t> data(1 << 20);
        data.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(peer(), data.data(), data.size(), 0))));
        return data;
    }
};
