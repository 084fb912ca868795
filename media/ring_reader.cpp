#include "media/ring_reader.h"

#include "common/log.h"
#include "common/shared_wait.h"
#include "media/frame_source_state.h"
#include "media/key_frame_search.h"
#include "media/reader_steps.h"

namespace {

// The thread for which every line of this file logs.
constexpr char kThread[] = "AVStreamGetAVDataThread";

constexpr uint32_t kAttachRetryMs = 20;
constexpr uint32_t kStartRetryMs = 1;

constexpr uint32_t kMostStatusFailures = 99;
constexpr uint32_t kStatusMs = 50;
constexpr uint32_t kMostMagicFailures = 100;
constexpr uint32_t kMagicMs = 1;
constexpr uint32_t kPauseMs = 500;
constexpr uint32_t kMostFlagWaits = 50;
constexpr uint32_t kFlagMs = 5;
constexpr uint32_t kLengthMs = 5;
constexpr uint32_t kMostOlderWaits = 50;
constexpr uint32_t kOlderMs = 8;
constexpr uint32_t kMostLargeGaps = 10;
constexpr uint32_t kLargeGapMs = 5;
constexpr uint32_t kLargestGap = 30; // beyond it the writer has overtaken the reader

// Rests that only a ring which leads nowhere causes: a wrap record at its start, or records that send
// the reader round without a new frame.
constexpr uint32_t kWrapAtStartMs = 10;
constexpr uint32_t kMostRestlessPasses = 32;
constexpr uint32_t kRestlessMs = 10;

int Index(const RingReader& reader)
{
    return static_cast<int>(reader.index);
}

// The reader has lost its place: goes to the newest key frame above the old serial number.
void Resynchronise(RingReader* reader, uint32_t oldSerial)
{
    const int id = reader->ring.id;
    reader->VideoPos = GetLastIFrame(&reader->ring, reader->clientType, reader->index, oldSerial);
    if (reader->ring.id != id)
        reader->lastSerial = 0; // a ring created anew counts from its own start
}

// Whether the status callback says that the stream is off; the reader then starts afresh later.
bool IsOff(RingReader* reader)
{
    StatusCallback* const status = g_clients[reader->clientType].status;
    if (status == nullptr || status(reader->index) > 0)
        return false;
    if (++reader->statusFailures > kMostStatusFailures) {
        LogTrace("%s %d: gTransFormStatusFunc[%d](%d) == %d\n", kThread, __LINE__, reader->clientType,
                 Index(*reader), status(reader->index));
        reader->statusFailures = 0;
    }
    reader->lastSerial = 0;
    reader->VideoPos = kUnknownPosition;
    Rest(reader, kStatusMs);
    return true;
}

bool IsFinished(const DataInfo& header)
{
    return header.EndFlag == kFlagPause || header.EndFlag == kFlagWrap || header.EndFlag == kFlagFrame;
}

// Whether the next pass would do more than find the same record missing, or still unfinished.
bool HasChanged(const RingReader& reader, bool isSame)
{
    StatusCallback* const status = g_clients[reader.clientType].status;
    return !isSame || !IsReaderRunning(reader.clientType, reader.index) ||
           (status != nullptr && status(reader.index) <= 0);
}

DataInfo PresentHeader(const RingReader& reader)
{
    return CopyHeader(reader.ring, static_cast<uint64_t>(reader.VideoPos));
}

bool HasRecordCome(void* argument)
{
    const RingReader& reader = *static_cast<const RingReader*>(argument);
    return HasChanged(reader, PresentHeader(reader).AVDataCheck != kRecordMagic);
}

bool HasRecordEnded(void* argument)
{
    const RingReader& reader = *static_cast<const RingReader*>(argument);
    const DataInfo header = PresentHeader(reader);
    return HasChanged(reader, header.AVDataCheck == kRecordMagic && !IsFinished(header));
}

// Passes that would only count: each look is one, and the last is made again by the loop.
void WaitForWriter(RingReader* reader, uint32_t periodMs, uint32_t most, Look* look, uint32_t* count)
{
    reader->restlessPasses = 0;
    *count += LookEvery(periodMs, most, look, reader) - 1;
}

void HandleNoRecord(RingReader* reader)
{
    if (++reader->magicFailures <= kMostMagicFailures) {
        WaitForWriter(reader, kMagicMs, kMostMagicFailures + 1 - reader->magicFailures, HasRecordCome,
                      &reader->magicFailures);
        return;
    }
    LogTrace("%s %d: VideoIndex = %d VideoPos = %d AVDataCheck == %d\n", kThread, __LINE__, Index(*reader),
             reader->VideoPos, static_cast<int>(reader->header.AVDataCheck));
    Resynchronise(reader, reader->lastSerial);
    reader->lastSerial = 0;
    reader->magicFailures = 0;
}

void HandlePause(RingReader* reader)
{
    if (!reader->isPauseMarked) {
        LogTrace("%s %d: Endflag == %d\n", kThread, __LINE__, static_cast<int>(reader->header.EndFlag));
        StorePauseMark(*reader);
        if (reader->index == kMainStream)
            LogTrace("%s %d: VideoPos = %d\n", kThread, __LINE__, 0);
    }
    reader->magicFailures = 0;
    reader->lastSerial = 0;
    reader->VideoPos = 0;
    reader->isPauseMarked = true;
    WaitInPlace(reader, kPauseMs);
}

void HandleWrap(RingReader* reader)
{
    LogTrace("%s %d: MsgAVType = %d  Index = %d Endflag == %d\n", kThread, __LINE__, reader->clientType,
             Index(*reader), static_cast<int>(reader->header.EndFlag));
    reader->magicFailures = 0;
    const bool leadsNowhere = reader->VideoPos == 0;
    reader->VideoPos = 0;
    if (reader->index == kMainStream)
        LogTrace("%s %d: VideoPos = %d\n", kThread, __LINE__, reader->VideoPos);
    if (leadsNowhere)
        WaitInPlace(reader, kWrapAtStartMs);
}

void HandleUnfinished(RingReader* reader)
{
    if (++reader->unknownFlagWaits < kMostFlagWaits) {
        WaitForWriter(reader, kFlagMs, kMostFlagWaits - reader->unknownFlagWaits, HasRecordEnded,
                      &reader->unknownFlagWaits);
        reader->magicFailures = 0;
        return;
    }
    Rest(reader, kFlagMs);
    LogTrace("%s %d: VideoIndex = %d VideoPos = %d Endflag == %d\n", kThread, __LINE__, Index(*reader),
             reader->VideoPos, static_cast<int>(reader->header.EndFlag));
    Resynchronise(reader, reader->lastSerial);
    reader->unknownFlagWaits = 0;
    reader->lastSerial = 0;
}

// Whether the record's length lets it be read. One above the limit is waited on, one that leads out of
// the segment makes this a lost place.
bool IsLengthGood(RingReader* reader)
{
    const int32_t length = reader->header.AVDataLen;
    const auto limit = static_cast<int32_t>(kRings[reader->index].ulRingBytes);
    const auto position = static_cast<uint64_t>(reader->VideoPos);
    if (length >= 0 && length < limit && IsInside(reader->ring, position, static_cast<uint64_t>(length)))
        return true;
    reader->magicFailures = 0;
    if (length >= limit) {
        WaitInPlace(reader, kLengthMs);
        LogTrace("%s %d: pDataInfo->AVDataLen = %d up to Max %d\n", kThread, __LINE__, length, limit);
        return false;
    }
    Rest(reader, kLengthMs);
    LogTrace("%s %d: VideoIndex = %d VideoPos = %d AVDataLen = %d leaves the ring, searching anew\n", kThread,
             __LINE__, Index(*reader), reader->VideoPos, length);
    Resynchronise(reader, reader->lastSerial);
    reader->lastSerial = 0;
    return false;
}

// Each of the waits below keeps its own count and forgets the others'.
void ClearCounts(RingReader* reader)
{
    reader->magicFailures = 0;
    reader->unknownFlagWaits = 0;
}

// The record was delivered before: goes on behind it if a frame begins there.
void HandleRepeated(RingReader* reader)
{
    const DataInfo& header = reader->header;
    LogTrace("%s %d: VideoIndex = %d pos = %d pDataInfo->SerialNumber %d oldSerialNumber %d\n", kThread,
             __LINE__, Index(*reader), reader->VideoPos, static_cast<int>(header.SerialNumber),
             static_cast<int>(reader->lastSerial));
    const int32_t next = reader->VideoPos + header.AVDataLen + static_cast<int32_t>(kRecordBytes);
    PayloadStart start{};
    const bool isFrameNext = CopyPayloadStart(reader->ring, static_cast<uint64_t>(next), &start) &&
                             start.hasStartCode() &&
                             ((start.nalHeader() & 0x1F) == 7 || (start.nalHeader() & 0x1F) == 1);
    if (isFrameNext)
        reader->VideoPos = next;
    else
        Resynchronise(reader, header.SerialNumber);
    reader->isPauseMarked = false;
    ClearCounts(reader);
}

// The record is the last lap's: the reader is ahead of the writer.
void HandleOlder(RingReader* reader)
{
    ++reader->olderSerialWaits;
    Rest(reader, kOlderMs);
    if (reader->olderSerialWaits < kMostOlderWaits) {
        reader->isPauseMarked = false;
        ClearCounts(reader);
        return;
    }
    LogTrace("%s %d: VideoIndex = %d VideoPos = %d Endflag == %d\n", kThread, __LINE__, Index(*reader),
             reader->VideoPos, static_cast<int>(reader->header.EndFlag));
    Resynchronise(reader, reader->lastSerial);
    reader->lastSerial = 0;
    reader->olderSerialWaits = 0;
    ClearCounts(reader);
}

void HandleLargeGap(RingReader* reader, uint32_t gap)
{
    if (++reader->largeGaps <= kMostLargeGaps) {
        reader->isPauseMarked = false;
        reader->olderSerialWaits = 0;
        ClearCounts(reader);
        return;
    }
    LogTrace("%s %d: MsgAVType = %d index = %d sub = %u - %u = %u pos = %u \n", kThread, __LINE__,
             reader->clientType, Index(*reader), reader->header.SerialNumber, reader->lastSerial, gap,
             static_cast<unsigned>(reader->VideoPos));
    Resynchronise(reader, reader->lastSerial);
    LogTrace("%s %d: VideoPos = %d\n", kThread, __LINE__, reader->VideoPos);
    reader->lastSerial = 0;
    reader->olderSerialWaits = 0;
    ClearCounts(reader);
    Rest(reader, kLargeGapMs);
}

void Deliver(RingReader* reader)
{
    const DataInfo& header = reader->header;
    const uint8_t* const payload = reader->ring.attachment.get() + reader->VideoPos + kRecordBytes;
    if (FrameCallback* const frame = g_clients[reader->clientType].frame)
        (void)frame(header.AVSource, reader->index, payload, &header); // the reader goes on either way
    reader->isPauseMarked = false;
    if (reader->lastSerial != header.SerialNumber)
        reader->restlessPasses = 0;
    reader->lastSerial = header.SerialNumber;
    reader->VideoPos += header.AVDataLen + static_cast<int32_t>(kRecordBytes);
    reader->olderSerialWaits = 0;
    reader->largeGaps = 0;
    ClearCounts(reader);
}

void HandleFrame(RingReader* reader)
{
    if (!IsLengthGood(reader))
        return;
    const uint32_t serial = reader->header.SerialNumber;
    const uint32_t last = reader->lastSerial;
    if (last == 0) // before all else: a first record may carry any serial number, 0 too
        return Deliver(reader);
    if (serial == last)
        return HandleRepeated(reader);
    if (last > serial)
        return HandleOlder(reader);
    const uint32_t step = serial - last;
    const uint32_t gap = static_cast<int32_t>(step) < 0 ? 0U - step : step;
    if (gap > kLargestGap)
        return HandleLargeGap(reader, gap);
    if (gap >= 2)
        LogTrace("%s %d:MsgAVType = %d VideoIndex = %d sub = %u - %u = %u pos = %u \n", kThread, __LINE__,
                 reader->clientType, Index(*reader), serial, last, gap,
                 static_cast<unsigned>(reader->VideoPos));
    Deliver(reader);
}

void HandleRecord(RingReader* reader)
{
    switch (reader->header.EndFlag) {
    case kFlagPause:
        return HandlePause(reader);
    case kFlagWrap:
        return HandleWrap(reader);
    case kFlagFrame:
        return HandleFrame(reader);
    default:
        return HandleUnfinished(reader);
    }
}

} // namespace

void ReaderStep(RingReader* reader)
{
    if (++reader->restlessPasses > kMostRestlessPasses)
        WaitInPlace(reader, kRestlessMs);
    if (!AttachStep(kThread, kAttachRetryMs, reader) || IsOff(reader))
        return;
    if (reader->VideoPos == kUnknownPosition)
        AskStartPosition(kThread, kStartRetryMs, reader);
    if (reader->VideoPos < 0)
        LogTrace("%s %d VideoPos = %d\n", kThread, __LINE__, reader->VideoPos);
    if (CheckOutOfPos(reader))
        return;
    reader->header = CopyHeader(reader->ring, static_cast<uint64_t>(reader->VideoPos));
    if (reader->header.AVDataCheck != kRecordMagic)
        HandleNoRecord(reader);
    else
        HandleRecord(reader);
}

void* AVStreamGetAVDataThread(void* argument)
{
    const ReaderArgument own = *static_cast<const ReaderArgument*>(argument);
    if (!IsReadable(kThread, own))
        return nullptr;
    RingReader reader{.clientType = own.clientType, .index = own.index};
    while (IsReaderRunning(own.clientType, own.index))
        ReaderStep(&reader);
    reader.ring.attachment.reset();
    LogTrace("%s %d: %s %d %d exit!\n", kThread, __LINE__, kThread, own.clientType, Index(reader));
    return nullptr;
}
