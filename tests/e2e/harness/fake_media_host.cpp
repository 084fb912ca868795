#include "tests/e2e/harness/fake_media_host.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <atomic>
#include <cstring>
#include <stdexcept>

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

void StoreWord(uint8_t* at, uint32_t value)
{
    __atomic_store_n(reinterpret_cast<uint32_t*>(at), value, __ATOMIC_RELEASE);
}

void SetFlag(uint8_t* record, uint32_t flag)
{
    StoreWord(record + offsetof(DataInfo, EndFlag), flag);
}

bool IsSyncPoint(const Frame& frame)
{
    return frame.bytes.starts_with(kKey264) || frame.bytes.starts_with(kKey265) ||
           frame.bytes.starts_with(kJpeg.substr(0, 2));
}

} // namespace

FakeMediaHost::FakeMediaHost(uint32_t firstSerial) : queue_(IpcMsgInit(kPositionQueueKey, kPositionQueueMode))
{
    for (uint32_t stream = 0; stream < rings_.size(); stream++) {
        Ring& ring = rings_[stream];
        ring.id = IpcShareMemInit(kRings[stream].key, kRings[stream].ulSegmentBytes, kRingMode);
        ring.memory = ShmAttachment(ring.id);
        if (!ring.memory || queue_ < 0)
            throw std::runtime_error("no ring; run in tests/sandbox.sh");
        memset(ring.memory.get(), 0, kRings[stream].ulSegmentBytes);
        ring.serial = firstSerial - 1;
        Write(ring, 0, Header(firstSerial, kUnfinished), {});
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

// The flag is written last: until then the place keeps the flag that it had.
void FakeMediaHost::Write(Ring& ring, uint32_t position, const DataInfo& header, std::string_view payload)
{
    uint8_t* const record = ring.memory.get() + position;
    if (!payload.empty())
        memcpy(record + kRecordBytes, payload.data(), payload.size());
    memcpy(record, &header, offsetof(DataInfo, EndFlag));
    memcpy(record + offsetof(DataInfo, TimeStamp), &header.TimeStamp,
           sizeof header - offsetof(DataInfo, TimeStamp));
    SetFlag(record, header.EndFlag);
}

void FakeMediaHost::Publish(uint32_t stream, const std::vector<Frame>& frames)
{
    Ring& ring = rings_[stream];
    uint32_t bytes = 2 * kRecordBytes; // the announced record, and room for its end
    for (const Frame& frame : frames)
        bytes += kRecordBytes + static_cast<uint32_t>(frame.bytes.size());
    const uint32_t from = ring.position;
    if (from + bytes <= kRings[stream].ulRingBytes)
        return PublishAt(stream, from, frames);
    PublishAt(stream, 0, frames);
    ring.laps++;
    SetFlag(ring.memory.get() + from, kFlagWrap);
}

void FakeMediaHost::PublishAt(uint32_t stream, uint32_t position, const std::vector<Frame>& frames)
{
    Prepare(stream, position, frames);
    Release(stream, position);
}

void FakeMediaHost::Prepare(uint32_t stream, uint32_t position, const std::vector<Frame>& frames)
{
    Ring& ring = rings_[stream];
    // The first record has a flag that holds readers back until the rest is there.
    const uint32_t held = At(stream, position).EndFlag == kFlagPause ? kFlagPause : kUnfinished;
    uint32_t at = position;
    uint32_t key = position;
    for (const Frame& frame : frames) {
        ring.serial = frame.serial != 0 ? frame.serial : ring.serial + 1;
        Write(ring, at,
              Header(ring.serial, at == position ? held : kFlagFrame, frame.bytes.size(), frame.source),
              frame.bytes);
        key = IsSyncPoint(frame) ? at : key;
        at += kRecordBytes + static_cast<uint32_t>(frame.bytes.size());
    }
    Write(ring, at, Header(ring.serial + 1, kUnfinished), {});
    const std::lock_guard locked(lock_);
    ring.position = at;
    ring.newestKey = key;
}

void FakeMediaHost::Release(uint32_t stream, uint32_t position)
{
    SetFlag(rings_[stream].memory.get() + position, kFlagFrame);
}

void FakeMediaHost::Put(uint32_t stream, const DataInfo& header)
{
    Write(rings_[stream], rings_[stream].position, header, {});
}

DataInfo FakeMediaHost::At(uint32_t stream, uint32_t position)
{
    std::atomic_thread_fence(std::memory_order_acquire);
    return LoadLe<DataInfo>(rings_[stream].memory.get() + position);
}

void FakeMediaHost::Script(uint32_t command, std::vector<Answer> answers)
{
    const std::lock_guard locked(lock_);
    script_[command].assign(answers.begin(), answers.end());
}

void FakeMediaHost::Insist(uint32_t command, std::optional<uint32_t> position)
{
    const std::lock_guard locked(lock_);
    insisted_.erase(command);
    if (position)
        insisted_[command] = *position;
}

int FakeMediaHost::CountQueries(uint32_t command, uint32_t stream)
{
    const std::lock_guard locked(lock_);
    return queries_[{command, stream}];
}

void FakeMediaHost::WaitForQueries(uint32_t command, uint32_t stream, int count)
{
    std::unique_lock locked(lock_);
    if (!asked_.wait_until(locked, Clock::now() + Patience(), [&] {
            return queries_[{command, stream}] >= count;
        }))
        throw std::runtime_error("the server does not ask for a position");
}

uint32_t FakeMediaHost::lastClientType()
{
    const std::lock_guard locked(lock_);
    return lastClientType_;
}

void FakeMediaHost::AnswerQueries()
{
    PositionMessage message{};
    while (msgrcv(queue_, &message, PositionMessage::kTextBytes, kPositionRequestType, 0) >= 0)
        AnswerOne(message);
}

void FakeMediaHost::AnswerOne(PositionMessage message)
{
    const uint32_t command = message.word[kWordCommand];
    const uint32_t stream = message.word[kWordStream];
    Answer answer;
    {
        const std::lock_guard locked(lock_);
        queries_[{command, stream}]++;
        lastClientType_ = message.word[kWordClientType];
        if (stream >= rings_.size())
            return;
        message.word[kWordResult] =
            command == kQueryKeyFrame ? rings_[stream].newestKey : rings_[stream].position;
        auto& script = script_[command];
        if (stream == kMainStream && !script.empty()) {
            answer = script.front();
            script.pop_front();
        } else if (stream == kMainStream && insisted_.contains(command)) {
            answer.position = insisted_[command];
        }
        asked_.notify_all();
    }
    message.type = static_cast<long>(message.word[kWordClientType]);
    if (answer.foreignFirst) {
        PositionMessage foreign = message;
        foreign.word[kWordStream] = kThirdStream;
        foreign.word[kWordResult] = kRecordBytes;
        msgsnd(queue_, &foreign, PositionMessage::kTextBytes, 0);
    }
    message.word[kWordResult] = answer.position.value_or(message.word[kWordResult]);
    if (answer.withoutNaming)
        message.word[kWordCommand] = message.word[kWordStream] = message.word[kWordClientType] = 0;
    if (!answer.silent)
        msgsnd(queue_, &message, PositionMessage::kTextBytes, 0);
}
