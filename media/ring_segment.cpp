#include "media/ring_segment.h"

#include <sys/shm.h>

#include <utility>

#include "common/little_endian.h"
#include "common/log.h"
#include "media/frame_source_state.h"

namespace {

constexpr uint32_t kUnfinished = 0; // any end flag without a meaning

void CopyBytes(void* to, const uint8_t* from, size_t bytes)
{
    auto* const out = static_cast<uint8_t*>(to);
    for (size_t i = 0; i < bytes; i++)
        out[i] = __atomic_load_n(from + i, __ATOMIC_RELAXED);
}

uint32_t LoadEndFlag(const uint8_t* record)
{
    uint8_t byte[sizeof(uint32_t)];
    for (size_t i = 0; i < sizeof byte; i++)
        byte[i] = __atomic_load_n(record + offsetof(DataInfo, EndFlag) + i, __ATOMIC_ACQUIRE);
    return LoadLe<uint32_t>(byte);
}

} // namespace

bool AttachRing(uint32_t index, RingSegment* ring)
{
    const int id = gGetAVStreamSysInfo.StreamSharememID[index];
    const size_t bytes = IpcShareMemBytes(id);
    if (bytes == 0)
        return false;
    if (bytes < kRings[index].ulRingBytes) {
        LogTrace("%s %d: segment %d of stream %d has %zu bytes, less than its ring, refusing it\n", __func__,
                 __LINE__, id, static_cast<int>(index), bytes);
        return false;
    }
    ShmAttachment attachment(id);
    if (!attachment)
        return false;
    *ring = {.attachment = std::move(attachment), .id = id, .bytes = bytes};
    return true;
}

int LookUpRing(uint32_t index)
{
    const int id = shmget(kRings[index].key, 0, 0);
    if (id >= 0)
        gGetAVStreamSysInfo.StreamSharememID[index] = id;
    return id;
}

bool ReattachIfRecreated(uint32_t index, RingSegment* ring)
{
    const int id = LookUpRing(index);
    return id >= 0 && id != ring->id && AttachRing(index, ring);
}

bool IsInside(const RingSegment& ring, uint64_t position, uint64_t payloadBytes)
{
    return position + kRecordBytes + payloadBytes <= ring.bytes;
}

DataInfo CopyHeader(const RingSegment& ring, uint64_t position)
{
    const uint8_t* const record = ring.attachment.get() + position;
    const uint32_t endFlag = LoadEndFlag(record);
    DataInfo header;
    CopyBytes(&header, record, sizeof header);
    __sync_synchronize(); // the copy is older than the second look at the flag
    header.EndFlag = LoadEndFlag(record) == endFlag ? endFlag : kUnfinished;
    return header;
}

bool CopyPayloadStart(const RingSegment& ring, uint64_t position, PayloadStart* start)
{
    if (!IsInside(ring, position, sizeof start->byte))
        return false;
    CopyBytes(start->byte, ring.attachment.get() + position + kRecordBytes, sizeof start->byte);
    return true;
}

void StoreFirstHeader(const RingSegment& ring, const DataInfo& header)
{
    const auto* const from = reinterpret_cast<const uint8_t*>(&header);
    for (size_t i = 0; i < sizeof header; i++)
        __atomic_store_n(ring.attachment.get() + i, from[i], __ATOMIC_RELEASE);
}

bool IsRecordUnchanged(const uint8_t* payload, const DataInfo& copy)
{
    __sync_synchronize(); // the payload's bytes were read before the header is read again
    DataInfo now{};
    CopyBytes(&now, payload - kRecordBytes, offsetof(DataInfo, ucKeyFrame));
    return now.AVDataCheck == copy.AVDataCheck && now.SerialNumber == copy.SerialNumber &&
           now.AVDataLen == copy.AVDataLen && now.AVSource == copy.AVSource && now.EndFlag == copy.EndFlag &&
           now.TimeStamp == copy.TimeStamp;
}
