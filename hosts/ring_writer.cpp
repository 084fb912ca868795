#include "hosts/ring_writer.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "hosts/pause_point.h"

namespace {

constexpr uint32_t kUnfinished = 0; // any EndFlag but the known three
// Payload bytes cleared behind an announced header: readers look at the first five of them to tell
// frames apart, and what the last lap left there must not pass for one.
constexpr uint32_t kClearedBytes = 8;
// A reader may be interrupted while it copies a header and get the front of the announcement with the
// flag of the record. Readers wait in place on a length that no ring has room for.
constexpr int32_t kLengthToWaitOn = 0x7FFFFFFF;
constexpr uint32_t kAnnouncedBytes = kRecordBytes + kClearedBytes;

} // namespace

RingWriter::RingWriter(uint8_t* ring, uint32_t ringBytes, uint32_t firstSerial, const char* name)
    : ring_(ring), name_(name), ringBytes_(ringBytes), serial_(firstSerial == 0 ? 1 : firstSerial)
{
    Announce(0);
}

// Records begin at any byte, so a 32-bit store could be torn. All flags differ in their low byte alone,
// and one byte is stored whole everywhere.
void RingWriter::SetEndFlag(uint32_t place, uint32_t flag)
{
    uint8_t& low = ring_[place + offsetof(DataInfo, EndFlag)];
    std::atomic_ref<uint8_t>(low).store(static_cast<uint8_t>(flag), std::memory_order_release);
}

void RingWriter::WriteUnfinished(uint32_t place, DataInfo header)
{
    header.EndFlag = kUnfinished;
    memcpy(ring_ + place, &header, sizeof header);
}

void RingWriter::CopyPayload(uint32_t place, const RingRecord& record)
{
    uint8_t* const to = ring_ + place + kRecordBytes;
    const size_t half = record.payload.size() / 2;
    memcpy(to, record.payload.data(), half);
    if (record.source == kSourceVideo)
        ReachMoment(name_, "mid-frame");
    memcpy(to + half, record.payload.data() + half, record.payload.size() - half);
}

void RingWriter::Announce(uint32_t place)
{
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.AVDataLen = kLengthToWaitOn;
    WriteUnfinished(place, header);
    memset(ring_ + place + kRecordBytes, 0, kClearedBytes);
}

void RingWriter::ForgetOverwrittenKeyFrame(uint32_t place, uint32_t bytes)
{
    // Some way ahead of the writing counts as overwritten too: a reader needs time to get there.
    const uint32_t end = place + bytes + ringBytes_ / 16;
    if (keyFrame_ && keyFrame_->place < end && keyFrame_->place + keyFrame_->bytes > place)
        keyFrame_.reset();
}

// A reader that saw the last pause record late writes its pause mark over offset 0 when the stream
// has already gone on there. The payload is untouched, so putting the header back mends the record.
void RingWriter::RepairFirstRecord()
{
    if (first_ && memcmp(ring_, &*first_, sizeof *first_) != 0) {
        WriteUnfinished(0, *first_);
        SetEndFlag(0, first_->EndFlag);
    }
}

void RingWriter::Wrap()
{
    const uint32_t wrapPlace = place_;
    ForgetOverwrittenKeyFrame(0, kAnnouncedBytes);
    // What lies behind the wrap record is an older lap's, which this one did not reach to overwrite.
    ForgetOverwrittenKeyFrame(wrapPlace, ringBytes_ - wrapPlace);
    first_.reset();
    Announce(0);
    place_ = 0;
    SetEndFlag(wrapPlace, kFlagWrap);
}

bool RingWriter::Put(const RingRecord& record)
{
    if (record.payload.empty() || record.payload.size() > MostPayload())
        return false;
    const auto payloadBytes = static_cast<uint32_t>(record.payload.size());
    const std::lock_guard lock(mutex_);
    GoOn();
    RepairFirstRecord();
    if (place_ + kRecordBytes + payloadBytes + kAnnouncedBytes > ringBytes_)
        Wrap();

    const uint32_t place = place_;
    const uint32_t next = place + kRecordBytes + payloadBytes;
    ForgetOverwrittenKeyFrame(place, kRecordBytes + payloadBytes + kAnnouncedBytes);
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = serial_;
    header.AVDataLen = static_cast<int32_t>(payloadBytes);
    header.AVSource = record.source;
    header.TimeStamp = record.ulTimeStamp;
    header.ucKeyFrame = record.keyFrame;
    WriteUnfinished(place, header);
    CopyPayload(place, record);
    Announce(next);
    SetEndFlag(place, kFlagFrame);

    if (place == 0) {
        header.EndFlag = kFlagFrame;
        first_ = header;
    }
    if (record.keyFrame)
        keyFrame_ = Extent{place, kRecordBytes + payloadBytes};
    place_ = next;
    serial_ = serial_ + 1 == 0 ? 1 : serial_ + 1;
    return true;
}

void RingWriter::Pause()
{
    const std::lock_guard lock(mutex_);
    if (paused_)
        return;
    SetEndFlag(place_, kFlagPause);
    first_.reset();
    keyFrame_.reset();
    paused_ = true;
}

void RingWriter::GoOn()
{
    if (!paused_)
        return;
    Announce(0);
    place_ = 0;
    paused_ = false;
}

void RingWriter::Resume()
{
    const std::lock_guard lock(mutex_);
    GoOn();
}

void RingWriter::Spoil(const std::function<void(uint8_t* ring, uint32_t ringBytes)>& function)
{
    const std::lock_guard lock(mutex_);
    function(ring_, ringBytes_);
}

void RingWriter::Restart(uint32_t firstSerial)
{
    const std::lock_guard lock(mutex_);
    memset(ring_, 0, ringBytes_);
    keyFrame_.reset();
    first_.reset();
    Announce(0);
    place_ = 0;
    serial_ = std::max(serial_, firstSerial);
    if (paused_)
        SetEndFlag(0, kFlagPause);
}

uint32_t RingWriter::StartPlace() const
{
    const std::lock_guard lock(mutex_);
    return keyFrame_ ? keyFrame_->place : place_;
}
