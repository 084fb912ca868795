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
    int32_t position = kUnknownPosition; // last one obtained
    uint8_t nalHeader = 0;               // found there
};

bool IsKeyFrame(const char* function, const Search& search, const PayloadStart& start)
{
    const uint8_t nalHeader = start.nalHeader();
    if (!IsH264Type(nalHeader) && ((nalHeader >> 1) & 0x3F) == kH265Vps) {
        LogTrace("%s %d: 3516A nalu = 0x%02X\n", function, __LINE__, nalHeader);
        return true;
    }
    if (start.hasStartCode() && (nalHeader & 0x1F) == kH264Sps) {
        LogTrace("%s %d: AVType = %d VideoIndex = %d VideoPos = %d\n", function, __LINE__, search.clientType,
                 static_cast<int>(search.index), search.position);
        return true;
    }
    return false;
}

// Asks once and looks at the record. True when a reader can go on there.
bool FindOnce(const char* function, const RingSegment& ring, uint32_t oldSerial, Search* search)
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
    const uint32_t serial = CopyHeader(ring, position).SerialNumber;
    if (oldSerial != 0 && serial <= oldSerial) {
        LogTrace("%s %d: pDataInfo->SerialNumber %u <= oldsn %u\n", function, __LINE__, serial, oldSerial);
        return false;
    }
    return IsKeyFrame(function, *search, start);
}

} // namespace

int32_t GetLastIFrame(RingSegment* ring, int32_t clientType, uint32_t index, uint32_t oldSerial)
{
    Search search{.clientType = clientType, .index = index};
    while (IsReaderRunning(clientType, index)) {
        if (ReattachIfRecreated(index, ring))
            oldSerial = 0;
        if (FindOnce(__func__, *ring, oldSerial, &search))
            return search.position;
        SleepMs(kRetryMs);
    }
    LogTrace("%s %d: VideoPos = %d nalu = 0x%02X\n", __func__, __LINE__, search.position, search.nalHeader);
    return search.position;
}
