#include "tests/e2e/harness/fake_media_host.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <cstring>

#include "common/little_endian.h"
#include "tests/e2e/harness/patience.h"

namespace {

constexpr uint32_t kUnfinished = 0;

DataInfo Header(uint32_t serial, uint32_t flag, size_t bytes = 0, uint32_t source = kSourceVideo)
{
    DataInfo header{};
    header.AVDataCheck = kRecordMagic;
    header.SerialNumber = serial;
    header.AVDataLen = static_cast<int32_t>(bytes);
    header.AVSource = source;
    header.EndFlag = flag;
    return header;
}

void SetFlag(uint8_t* record, uint32_t flag)
{
    __atomic_store_n(reinterpret_cast<uint32_t*>(record + offsetof(DataInfo, EndFlag)), flag,
                     __ATOMIC_RELEASE);
}

// The flag is written last: until then the place keeps the flag that it had.
void Write(uint8_t* record, DataInfo header, std::string_view payload = {})
{
    const uint32_t flag = header.EndFlag;
    header.EndFlag = LoadLe<DataInfo>(record).EndFlag;
    memcpy(record, &header, sizeof header);
    payload.copy(reinterpret_cast<char*>(record) + sizeof header, payload.size());
    SetFlag(record, flag);
}

} // namespace

FakeMediaHost::FakeMediaHost() : queue_(IpcMsgInit(kPositionQueueKey, kPositionQueueMode))
{
    for (uint32_t stream = 0; stream < rings_.size(); stream++) {
        Ring& ring = rings_[stream];
        ring.id = IpcShareMemInit(kRings[stream].key, kRings[stream].ulSegmentBytes, kRingMode);
        ring.memory = ShmAttachment(ring.id);
        if (!ring.memory || queue_ < 0)
            throw std::runtime_error("no ring; run in tests/sandbox.sh");
        memset(ring.memory.get(), 0, kRings[stream].ulSegmentBytes);
        Write(ring.memory.get(), Header(1, kUnfinished));
    }
    answering_ = std::thread(&FakeMediaHost::AnswerQueries, this);
}

FakeMediaHost::~FakeMediaHost()
{
    msgctl(queue_, IPC_RMID, nullptr); // which also ends the thread
    answering_.join();
    for (Ring& ring : rings_)
        shmctl(ring.id, IPC_RMID, nullptr);
}

void FakeMediaHost::Publish(uint32_t stream, const std::vector<Frame>& frames)
{
    Ring& ring = rings_[stream];
    size_t bytes = 2 * kRecordBytes; // the announced record, and room for its end
    for (const Frame& frame : frames)
        bytes += kRecordBytes + frame.bytes.size();
    const uint32_t from = ring.position;
    if (from + bytes <= kRings[stream].ulRingBytes)
        return PublishAt(stream, from, frames);
    PublishAt(stream, 0, frames);
    SetFlag(ring.memory.get() + from, kFlagWrap);
}

void FakeMediaHost::PublishAt(uint32_t stream, uint32_t position, const std::vector<Frame>& frames)
{
    Ring& ring = rings_[stream];
    // The first record has a flag that holds readers back until the rest is there.
    uint32_t flag = At(stream, position).EndFlag == kFlagPause ? kFlagPause : kUnfinished;
    uint32_t at = position;
    uint32_t key = position;
    for (const Frame& frame : frames) {
        Write(ring.memory.get() + at, Header(++ring.serial, flag, frame.bytes.size(), frame.source),
              frame.bytes);
        flag = kFlagFrame;
        key = IsKeyFrame(frame) ? at : key;
        at += kRecordBytes + static_cast<uint32_t>(frame.bytes.size());
    }
    Write(ring.memory.get() + at, Header(ring.serial + 1, kUnfinished));
    ring.position = at;
    ring.newestKey = key;
    SetFlag(ring.memory.get() + position, kFlagFrame);
}

void FakeMediaHost::Put(uint32_t stream, const DataInfo& header)
{
    Write(rings_[stream].memory.get() + rings_[stream].position, header);
}

DataInfo FakeMediaHost::At(uint32_t stream, uint32_t position) const
{
    __sync_synchronize();
    return LoadLe<DataInfo>(rings_[stream].memory.get() + position);
}

void FakeMediaHost::WaitForQueries() const
{
    WaitUntil("both readers' queries", [&] { return rings_[0].hasQueried && rings_[1].hasQueried; });
}

void FakeMediaHost::AnswerQueries()
{
    PositionMessage message{};
    while (msgrcv(queue_, &message, PositionMessage::kTextBytes, kPositionRequestType, 0) >= 0) {
        Ring& ring = rings_.at(message.word[kWordStream]);
        message.type = static_cast<long>(message.word[kWordClientType]);
        message.word[kWordResult] =
            message.word[kWordCommand] == kQueryKeyFrame ? ring.newestKey : ring.position;
        ring.hasQueried = true;
        msgsnd(queue_, &message, PositionMessage::kTextBytes, 0);
    }
}
