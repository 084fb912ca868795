// Stand-in for the encoder host: writes the rings record by record and answers position queries.
//
// What Publish writes becomes visible with one word, after all of it is written, and every ring always
// ends in an announced record. A reader that was late, or had lost its place while nothing came, finds
// the newest key frame at the start of what is published: no test depends on how fast it is.
#pragma once

#include <array>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "tests/e2e/harness/frames.h"

using Answer = std::optional<uint32_t>; // to a position query; none: it is taken and forgotten

class FakeMediaHost {
  public:
    explicit FakeMediaHost(uint32_t firstSerial = 1);
    ~FakeMediaHost(); // removes queue and segments
    FakeMediaHost(const FakeMediaHost&) = delete;
    FakeMediaHost& operator=(const FakeMediaHost&) = delete;

    // Appends the frames, wrapping to offset 0 where they do not fit before the ring's end.
    void Publish(uint32_t stream, const std::vector<Frame>& frames);
    // The same from this position on; whatever lies at the old position stays as it is.
    void PublishAt(uint32_t stream, uint32_t position, const std::vector<Frame>& frames);
    // Its two halves: writes everything but the first record's flag, and writes that flag.
    void Prepare(uint32_t stream, uint32_t position, const std::vector<Frame>& frames);
    void Release(uint32_t stream, uint32_t position);
    // Puts a record where the next one was announced, its flag last; the place stays the next one.
    void Put(uint32_t stream, const DataInfo& header, std::string_view payload = {});
    [[nodiscard]] DataInfo At(uint32_t stream, uint32_t position) const; // copy of the header there
    [[nodiscard]] uint32_t position(uint32_t stream) const { return rings_[stream].position; }
    [[nodiscard]] uint32_t serial(uint32_t stream) const { return rings_[stream].serial; }
    [[nodiscard]] uint32_t laps(uint32_t stream) const { return rings_[stream].laps; }

    // The next answers to this command for the main stream; then honest ones follow.
    void Script(uint32_t command, std::vector<Answer> answers);
    int CountQueries(uint32_t command, uint32_t stream);
    void WaitForQueries(uint32_t command, uint32_t stream, int count);

  private:
    struct Ring {
        int id = -1;
        ShmAttachment memory;
        uint32_t position = 0; // of the announced record; lock_ guards it against the other thread
        uint32_t serial = 0;   // of the last one published
        uint32_t laps = 0;
        uint32_t newestKey = 0; // guarded by lock_
    };
    void AnswerQueries();
    Answer ChooseAnswer(uint32_t command, uint32_t stream);

    std::array<Ring, 3> rings_;
    int queue_;
    std::mutex lock_; // guards the following
    std::map<uint32_t, std::deque<Answer>> script_;
    std::map<std::pair<uint32_t, uint32_t>, int> queries_; // by command and stream
    std::thread answering_;
};
