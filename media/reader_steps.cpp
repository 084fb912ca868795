#include "media/reader_steps.h"

#include "common/clock.h"
#include "common/log.h"
#include "media/frame_source_state.h"
#include "media/position_query.h"

namespace {

// A host that keeps naming a place outside its ring is asked this often.
constexpr uint32_t kOutOfPosMs = 10;

void LogVideoPos(const char* thread, int line, const RingReader& reader)
{
    if (reader.index == kMainStream)
        LogTrace("%s %d: VideoPos = %d\n", thread, line, reader.VideoPos);
}

} // namespace

bool IsReadable(const char* thread, const ReaderArgument& argument)
{
    const auto& [clientType, index] = argument;
    LogTrace("%s %d: type = %d index = %d\n", thread, __LINE__, clientType, static_cast<int>(index));
    const bool isIndexGood = index < kRingCount;
    if (!isIndexGood)
        LogTrace("%s %d: VideoIndex %d is out of range!\n", thread, __LINE__, static_cast<int>(index));
    else if (!IsClientType(clientType))
        LogTrace("%s %d: MsgAVType %d is out of range!\n", thread, __LINE__, clientType);
    if (!isIndexGood || !IsClientType(clientType)) {
        LogTrace("%s %d: %s %d %d exit!\n", thread, __LINE__, thread, clientType, static_cast<int>(index));
        return false;
    }
    const int32_t id = gGetAVStreamSysInfo.StreamSharememID[index];
    if (id < 0) {
        LogTrace("%s %d: StreamSysInfo->StreamSharememID[%d] %d < 0\n", thread, __LINE__,
                 static_cast<int>(index), id);
        return false;
    }
    return true;
}

bool AttachStep(const char* thread, uint32_t retryMs, RingReader* reader)
{
    if (reader->ring.attachment || AttachRing(reader->index, &reader->ring))
        return true;
    LogTrace("%s %d: pAVData = NULL\n", thread, __LINE__);
    Rest(reader, retryMs);
    (void)LookUpRing(reader->index); // the next pass attaches what it finds
    return false;
}

void AskStartPosition(const char* thread, uint32_t retryMs, RingReader* reader)
{
    for (;;) {
        LogTrace("%s %d: MsgAVType = %d VideoIndex = %d\n", thread, __LINE__, reader->clientType,
                 static_cast<int>(reader->index));
        const uint32_t position = QueryPosition(reader->clientType, reader->index, kQueryStart);
        if (position <= kRings[reader->index].ulRingBytes) {
            reader->VideoPos = static_cast<int32_t>(position);
            LogVideoPos(thread, __LINE__, *reader);
            return;
        }
        LogTrace("%s %d: VideoIndex = %d\n", thread, __LINE__, static_cast<int>(reader->index));
        Rest(reader, retryMs);
    }
}

bool CheckOutOfPos(RingReader* reader)
{
    // A negative position is beyond every ring when it is read as unsigned.
    const auto position = static_cast<uint32_t>(reader->VideoPos);
    if (position < kRings[reader->index].ulRingBytes && IsInside(reader->ring, position, 0))
        return false;
    LogTrace("%s %d iVideoIndex = %d VideoPos = %d\n", __func__, __LINE__, static_cast<int>(reader->index),
             reader->VideoPos);
    reader->VideoPos = kUnknownPosition;
    Rest(reader, kOutOfPosMs);
    return true;
}

void StorePauseMark(const RingReader& reader)
{
    DataInfo mark = reader.header;
    mark.SerialNumber = 0;
    mark.AVDataLen = 0;
    mark.ulReserved12 = 0;
    StoreFirstHeader(reader.ring, mark);
}

void Rest(RingReader* reader, uint32_t milliseconds)
{
    reader->restlessPasses = 0;
    SleepMs(milliseconds);
}

void WaitInPlace(RingReader* reader, uint32_t milliseconds)
{
    Rest(reader, milliseconds);
    if (!ReattachIfRecreated(reader->index, &reader->ring))
        return;
    reader->VideoPos = kUnknownPosition;
    reader->lastSerial = 0;
    reader->isPauseMarked = false;
}
