// Stand-in for the encoder host: writes the rings record by record and answers position queries.
//
// What Publish writes becomes visible with one word, after all of it is written, and every ring always
// ends in an announced record. A reader that was late, or had lost its place while nothing came, finds
// the newest key frame at the start of what is published: no test depends on how fast it is.
#pragma once

#include <array>
#include <atomic>
#include <thread>

#include "tests/e2e/harness/frames.h"

class FakeMediaHost {
  public:
    FakeMediaHost();
    ~FakeMediaHost(); // removes queue and segments
    FakeMediaHost(const FakeMediaHost&) = delete;
    FakeMediaHost& operator=(const FakeMediaHost&) = delete;

    // Appends the frames, wrapping to offset 0 where they do not fit before the ring's end.
    void Publish(uint32_t stream, const std::vector<Frame>& frames);
    // The same from this position on; whatever lies at the old position stays as it is.
    void PublishAt(uint32_t stream, uint32_t position, const std::vector<Frame>& frames);
    // Puts a record where the next one was announced, its flag last; the place stays the next one.
    void Put(uint32_t stream, const DataInfo& header);
    [[nodiscard]] DataInfo At(uint32_t stream, uint32_t position) const; // copy of the header there
    [[nodiscard]] uint32_t position(uint32_t stream) const { return rings_[stream].position; }
    void WaitForQueries() const; // until the readers of both streams have asked

  private:
    struct Ring {
        int id = -1;
        ShmAttachment memory;
        std::atomic<uint32_t> position = 0; // of the announced record
        uint32_t serial = 0;                // of the last one published
        std::atomic<uint32_t> newestKey = 0;
        std::atomic<bool> hasQueried = false; // its reader, since this host runs
    };
    void AnswerQueries();

    std::array<Ring, 3> rings_;
    int queue_;
    std::thread answering_;
};
