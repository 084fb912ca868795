// Writer of one stream's ring: the encoder host's side of media/ring_layout.h (docs/ipc.md, "Rings").
//
// Readers share no lock with the writer; they find their way by magic, EndFlag and serial number. So
// that none of them ever loses its place:
//   - the place of the next record is announced before a record is published: a valid magic with an
//     unfinished EndFlag, on which readers wait five times as long as on a missing magic, and which
//     hides what the last lap left there;
//   - EndFlag is stored last, with release order, when header and payload stand;
//   - behind every record there is room for one more header and the first bytes of a payload, so that a
//     wrap or pause record always fits;
//   - serial numbers rise by one per record and are never 0. Their first value comes from the caller
//     and lies above all that an earlier life of the host gave out.
//
// Thread-safe: one thread puts records, others ask for positions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>

#include "media/ring_layout.h"

struct RingRecord {
    std::span<const uint8_t> payload;
    AVSourceKind source;
    bool keyFrame;
    uint32_t ulTimeStamp; // milliseconds of uptime
};

class RingWriter {
  public:
    // `ring` has `ringBytes`. Announces the record at offset 0. The name is that of the moments in the middle
    // of a frame (hosts/pause_point.h).
    RingWriter(uint8_t* ring, uint32_t ringBytes, uint32_t firstSerial, const char* name = "");

    // Publishes a record. Returns false, with nothing written, for a payload that is empty or larger
    // than MostPayload(). After Pause() the record appears at offset 0.
    bool Put(const RingRecord& record);

    // Publishes the pause mark. Readers then poll offset 0 until the next Put.
    void Pause();
    // Announces offset 0 after a pause, without a record yet. Best a moment before the next Put: a reader
    // that is interrupted while it copies its own pause mark there cannot mix it with that record then.
    void Resume();

    // Runs the function on the ring and its size while nothing is put there. What it writes is none of the
    // writer's records.
    void Spoil(const std::function<void(uint8_t* ring, uint32_t ringBytes)>& function);
    // Clears the ring and goes on at its start, as in a new life, with this serial number or a higher one.
    void Restart(uint32_t firstSerial);

    [[nodiscard]] uint32_t MostPayload() const { return ringBytes_ / 2 - 2 * kRecordBytes; }

    // Where a reader starts, or starts again after it lost its place: the newest key frame, so that the
    // first record it gets can be decoded at once. When the ring holds none (any more), the place of the
    // next record; while paused, the pause record.
    [[nodiscard]] uint32_t StartPlace() const;

  private:
    struct Extent {
        uint32_t place;
        uint32_t bytes;
    };

    void CopyPayload(uint32_t place, const RingRecord& record);
    void WriteUnfinished(uint32_t place, DataInfo header);
    void SetEndFlag(uint32_t place, uint32_t flag);
    void Announce(uint32_t place);
    void Wrap();
    void RepairFirstRecord();
    void GoOn();
    void ForgetOverwrittenKeyFrame(uint32_t place, uint32_t bytes);

    uint8_t* const ring_;
    const char* const name_;
    const uint32_t ringBytes_;
    mutable std::mutex mutex_; // guards all below, and the writing of the ring
    uint32_t place_ = 0;       // of the next record, announced; of the pause record while paused
    uint32_t serial_;          // of the next record
    bool paused_ = false;
    std::optional<Extent> keyFrame_; // the newest one, while the ring still holds it
    std::optional<DataInfo> first_;  // header published at offset 0 in this lap
};
