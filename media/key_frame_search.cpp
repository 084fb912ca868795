#include "media/key_frame_search.h"

#include "common/clock.h"
#include "common/log.h"
#include "media/frame_source_state.h"
#include "media/position_query.h"
#include "media/ring_reader.h"

namespace {

constexpr uint32_t kRetryMs = 10;

constexpr uint8_t kH264Sps = 7;
constexpr uint8_t kH265Vps = 32;

// NAL unit types of H.264: slice and IDR slice (1 and 5), SPS and PPS. A byte with one of them is never
// taken for H.265.
bool IsH264Type(uint8_t nalHeader)
{
    const uint8_t type = nalHeader & 0x1F;
    return (nalHeader & 0x1B) == 1 || type == kH264Sps || type == 8;
}

struct Search {
    int32_t clientType;
    uint32_t index;
    uint32_t oldSerial;                  // 0: any serial number is newer
    int32_t position = kUnknownPosition; // last one obtained
    uint8_t nalHeader = 0;               // found there
    uint32_t refusedSerial = 0;          // of the last key frame that was not newer, 0: none
};

enum KeyFrame : uint8_t { kNoKeyFrame, kH264KeyFrame, kH265KeyFrame };

KeyFrame KeyFrameKind(const PayloadStart& start)
{
    const uint8_t nalHeader = start.nalHeader();
    if (!IsH264Type(nalHeader) && ((nalHeader >> 1) & 0x3F) == kH265Vps)
        return kH265KeyFrame;
    return start.hasStartCode() && (nalHeader & 0x1F) == kH264Sps ? kH264KeyFrame : kNoKeyFrame;
}

bool IsKeyFrame(const char* function, const Search& search, const PayloadStart& start)
{
    const KeyFrame kind = KeyFrameKind(start);
    if (kind == kH265KeyFrame)
        LogTrace("%s %d: 3516A nalu = 0x%02X\n", function, __LINE__, start.nalHeader());
    if (kind == kH264KeyFrame)
        LogTrace("%s %d: AVType = %d VideoIndex = %d VideoPos = %d\n", function, __LINE__, search.clientType,
                 static_cast<int>(search.index), search.position);
    return kind != kNoKeyFrame;
}

// A key frame that is not newer is not gone on at. While a host only has none yet, it stays the same one;
// when it makes way for another that is not newer either, the host counts anew, and any of its frames is new.
void Refuse(const char* function, const DataInfo& header, const PayloadStart& start, Search* search)
{
    const uint32_t serial = header.SerialNumber;
    LogTrace("%s %d: pDataInfo->SerialNumber %u <= oldsn %u\n", function, __LINE__, serial,
             search->oldSerial);
    if (header.AVDataCheck != kRecordMagic || header.EndFlag != kFlagFrame ||
        KeyFrameKind(start) == kNoKeyFrame)
        return;
    if (search->refusedSerial != 0 && search->refusedSerial != serial)
        search->oldSerial = 0;
    search->refusedSerial = serial;
}

// Asks once and looks at the record. True when a reader can go on there.
bool FindOnce(const char* function, const RingSegment& ring, Search* search)
{
    const uint32_t position = QueryPosition(search->clientType, search->index, kQueryKeyFrame);
    search->position = static_cast<int32_t>(position);
    PayloadStart start{};
    // In 64 bits: a place near the top of the numbers must not come around to a small one.
    if (uint64_t{position} + kRecordBytes + 4 >= kRings[search->index].ulRingBytes ||
        !CopyPayloadStart(ring, position, &start))
        return false;
    search->nalHeader = start.nalHeader();
    if (start.isJpeg())
        return true;
    const DataInfo header = CopyHeader(ring, position);
    if (search->oldSerial == 0 || header.SerialNumber > search->oldSerial)
        return IsKeyFrame(function, *search, start);
    Refuse(function, header, start, search);
    return false;
}

} // namespace

int32_t GetLastIFrame(RingSegment* ring, int32_t clientType, uint32_t index, uint32_t oldSerial)
{
    Search search{.clientType = clientType, .index = index, .oldSerial = oldSerial};
    while (IsReaderRunning(clientType, index)) {
        if (ReattachIfRecreated(index, ring))
            search.oldSerial = 0;
        if (FindOnce(__func__, *ring, &search))
            return search.position;
        SleepMs(kRetryMs);
    }
    LogTrace("%s %d: VideoPos = %d nalu = 0x%02X\n", __func__, __LINE__, search.position, search.nalHeader);
    return search.position;
}
