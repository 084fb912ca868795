#include "media/talk_reader.h"

#include "common/clock.h"
#include "common/log.h"
#include "media/frame_source_state.h"
#include "media/reader_steps.h"

namespace {

// The thread for which every line of this file logs.
constexpr char kThread[] = "AVStreamGetAudioTalkThread";

constexpr uint32_t kAttachRetryMs = 50;
constexpr uint32_t kStartRetryMs = 20;
constexpr uint32_t kPauseMs = 500;
constexpr uint32_t kRecordMs = 50;

void HandlePause(RingReader* place)
{
    if (!place->isPauseMarked) {
        LogTrace("%s %d: AV_RINGBUFFER_FLAG_PAUSE\n", kThread, __LINE__);
        StorePauseMark(*place);
    }
    place->VideoPos = 0;
    place->isPauseMarked = true;
    WaitInPlace(place, kPauseMs);
}

void HandleWrap(RingReader* place)
{
    LogTrace("%s %d: MsgAVType = %d  Index = %d Endflag == %d\n", kThread, __LINE__, place->clientType,
             static_cast<int>(place->index), static_cast<int>(place->header.EndFlag));
    const bool leadsNowhere = place->VideoPos == 0;
    place->VideoPos = 0;
    if (leadsNowhere)
        WaitInPlace(place, kRecordMs);
}

void Deliver(TalkReader* reader)
{
    RingReader& place = reader->place;
    const DataInfo& header = place.header;
    LogTrace("%s %d: pDataInfo->AVDataLen = %d, AVSource = %d\n", kThread, __LINE__, header.AVDataLen,
             static_cast<int>(header.AVSource));
    const uint8_t* const payload = place.ring.attachment.get() + place.VideoPos + kRecordBytes;
    if (FrameCallback* const frame = g_clients[place.clientType].frame)
        (void)frame(header.AVSource, place.index, payload, &header); // the reader goes on either way
    place.isPauseMarked = false;
    reader->timeStamp = header.TimeStamp;
    place.VideoPos += header.AVDataLen + static_cast<int32_t>(kRecordBytes);
}

// On a clock that starts again from 0 after 2^32 milliseconds of uptime, which are 50 days.
bool IsLater(uint32_t time, uint32_t than)
{
    return static_cast<int32_t>(time - than) > 0;
}

// A record that is not new, not complete yet or longer than any is waited on in place.
void HandleFrame(TalkReader* reader)
{
    RingReader& place = reader->place;
    const int32_t length = place.header.AVDataLen;
    const auto limit = static_cast<int32_t>(kRings[place.index].ulRingBytes);
    const auto position = static_cast<uint64_t>(place.VideoPos);
    if (place.header.EndFlag == kFlagFrame && IsLater(place.header.TimeStamp, reader->timeStamp)) {
        if (length >= limit) {
            LogTrace("%s %d: pDataInfo->AVDataLen = %d up to Max %d\n", kThread, __LINE__, length, limit);
        } else if (length >= 0 && IsInside(place.ring, position, static_cast<uint64_t>(length))) {
            Deliver(reader);
        } else {
            LogTrace("%s %d: VideoPos = %d AVDataLen = %d leaves the ring, asking anew\n", kThread, __LINE__,
                     place.VideoPos, length);
            place.VideoPos = kUnknownPosition;
        }
    }
    WaitInPlace(&place, kRecordMs);
}

} // namespace

void TalkReaderStep(TalkReader* reader)
{
    RingReader* const place = &reader->place;
    if (!AttachStep(kThread, kAttachRetryMs, place))
        return;
    if (place->VideoPos == kUnknownPosition)
        AskStartPosition(kThread, kStartRetryMs, place);
    if (CheckOutOfPos(place))
        return;
    place->header = CopyHeader(place->ring, static_cast<uint64_t>(place->VideoPos));
    if (place->header.EndFlag == kFlagPause)
        HandlePause(place);
    else if (place->header.EndFlag == kFlagWrap)
        HandleWrap(place);
    else
        HandleFrame(reader);
}

void* AVStreamGetAudioTalkThread(void* argument)
{
    const ReaderArgument own = *static_cast<const ReaderArgument*>(argument);
    if (!IsReadable(kThread, own))
        return nullptr;
    TalkReader reader{.place = {.clientType = own.clientType, .index = own.index},
                      .timeStamp = GetUptime() * 1000};
    LogTrace("%s %d timeStamp = %lu\n", kThread, __LINE__, static_cast<unsigned long>(reader.timeStamp));
    while (IsReaderRunning(own.clientType, own.index))
        TalkReaderStep(&reader);
    reader.place.ring.attachment.reset();
    LogTrace("%s %d: %s %d %d exit!\n", kThread, __LINE__, kThread, own.clientType,
             static_cast<int>(own.index));
    return nullptr;
}
