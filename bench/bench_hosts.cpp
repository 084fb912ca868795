#include "bench/bench_hosts.h"

#include <sys/msg.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>

#include "camera/parameter_block_layout.h"
#include "camera/parameter_message.h"
#include "common/little_endian.h"
#include "media/ring_layout.h"

namespace {

constexpr uint8_t kEncodingH265 = 3;

int Created(int id, const char* what)
{
    if (id < 0)
        throw std::runtime_error(std::string("cannot create ") + what + ": " + strerror(errno) +
                                 " (the benchmark needs namespaces of its own: tests/isolated.sh)");
    return id;
}

// Prepares the place of the record that comes next.
void PrepareRecord(const RingWriter& writer, uint32_t position)
{
    DataInfo record{};
    if (writer.nextRecord == NextRecord::Announced)
        record.AVDataCheck = kRecordMagic; // EndFlag 0: not complete yet
    memcpy(writer.ring.get() + position, &record, sizeof record);
}

// Makes a prepared record valid by one last store, which no earlier one may pass.
void CompleteRecord(const RingWriter& writer, uint32_t position, const DataInfo& record)
{
    const bool announced = writer.nextRecord == NextRecord::Announced;
    DataInfo incomplete = record;
    (announced ? incomplete.EndFlag : incomplete.AVDataCheck) = 0;
    memcpy(writer.ring.get() + position, &incomplete, sizeof incomplete);
    const size_t last = announced ? offsetof(DataInfo, EndFlag) : offsetof(DataInfo, AVDataCheck);
    const uint32_t value = announced ? record.EndFlag : record.AVDataCheck;
    // Frames are a multiple of four bytes long, so every record is aligned.
    auto* const word = reinterpret_cast<uint32_t*>(static_cast<void*>(writer.ring.get() + position + last));
    std::atomic_ref(*word).store(value, std::memory_order_release);
}

uint32_t UptimeMs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

void SetUpRing(RingWriter& writer, VideoIndex index, std::vector<int>& segments)
{
    const RingShape& shape = kRings[index];
    segments.push_back(
        Created(shmget(shape.key, shape.ulSegmentBytes, IPC_CREAT | IPC_EXCL | kRingMode), "a ring"));
    writer.ring = ShmAttachment(segments.back());
    writer.ringBytes = shape.ulRingBytes;
    PrepareRecord(writer, 0);
}

void FillParameters(uint8_t* parameters, const FramePattern& mainStream, const FramePattern& secondStream)
{
    const FramePattern* const patterns[] = {&mainStream, &secondStream};
    constexpr uint16_t kSizes[2][2] = {{1920, 1080}, {720, 480}};
    StoreLe<uint16_t>(parameters + block::kVelmoraPort, kServerPort);
    parameters[block::kVelmoraEnable] = 1;
    parameters[block::kStreamMode] = 1; // two streams
    for (size_t stream = 0; stream < 2; ++stream) {
        parameters[block::kEncoding(stream)] = kEncodingH265;
        StoreLe<uint32_t>(parameters + block::kFrameRate(stream), patterns[stream]->framesPerSecond);
        StoreLe<uint32_t>(parameters + block::kBitRate(stream), patterns[stream]->bitsPerSecond);
        StoreLe<uint32_t>(parameters + block::kIFrameInterval(stream), patterns[stream]->gopFrames);
        StoreLe<uint16_t>(parameters + block::kWidth(stream), kSizes[stream][0]);
        StoreLe<uint16_t>(parameters + block::kHeight(stream), kSizes[stream][1]);
    }
}

} // namespace

void PublishFrame(RingWriter& writer)
{
    const uint32_t position = writer.position;
    const uint32_t length = FrameBytes(writer.pattern, writer.number);
    const uint32_t next = position + kRecordBytes + length;
    // After the next frame a wrap record must still find room.
    const bool wraps =
        next + kRecordBytes + FrameBytes(writer.pattern, writer.number + 1) + kRecordBytes > writer.ringBytes;
    PrepareRecord(writer, wraps ? 0 : next);
    DataInfo record{};
    record.AVDataCheck = kRecordMagic;
    record.EndFlag = kFlagWrap;
    record.SerialNumber = static_cast<uint32_t>(writer.number) + 1; // readers take 0 for none
    if (wraps)
        CompleteRecord(writer, next, record);

    uint8_t* const payload = writer.ring.get() + position + kRecordBytes;
    memcpy(payload + sizeof(FramePrefix), FrameTail(writer.number, sizeof(FramePrefix)),
           length - sizeof(FramePrefix));
    record.EndFlag = kFlagFrame;
    record.AVDataLen = static_cast<int32_t>(length);
    record.AVSource = kSourceVideo;
    record.TimeStamp = UptimeMs();
    record.ucKeyFrame = IsKeyFrame(writer.pattern, writer.number);
    const FramePrefix prefix = MakePrefix(writer.pattern, writer.number, MonotonicNs());
    memcpy(payload, &prefix, sizeof prefix);
    CompleteRecord(writer, position, record);

    if (record.ucKeyFrame != 0)
        writer.keyPosition = position;
    writer.position = wraps ? 0 : next;
    ++writer.number;
}

BenchHosts::BenchHosts(const FramePattern& mainStream, const FramePattern& secondStream,
                       NextRecord nextRecord)
    : main_{.pattern = mainStream, .nextRecord = nextRecord}, second_{.pattern = secondStream,
                                                                      .nextRecord = nextRecord}
{
    constexpr int kNew = IPC_CREAT | IPC_EXCL;
    SetUpRing(main_, kMainStream, segments_);
    SetUpRing(second_, kSecondStream, segments_);
    segments_.push_back(
        Created(shmget(kSysConfigKey, kSysConfigBytes, kNew | kSysConfigMode), "the parameter block"));
    FillParameters(ShmAttachment(segments_.back()).get(), mainStream, secondStream);
    segments_.push_back(Created(shmget(kParameterKey, kParameterDataBytes, kNew | kParameterDataMode),
                                "the parameter data segment"));
    positionQueue_ = Created(msgget(kPositionQueueKey, kNew | kPositionQueueMode), "the position queue");
    controlQueue_ = Created(msgget(kControlQueueKey, kNew | kControlQueueMode), "the control queue");
    parameterQueue_ = Created(msgget(kParameterKey, kNew | kParameterQueueMode), "the parameter queue");
    startNs_ = MonotonicNs();
    threads_.emplace_back([this] { Publish(); });
    threads_.emplace_back([this] { AnswerPositions(); });
    threads_.emplace_back([this] { AnswerControl(); });
    threads_.emplace_back([this] { AnswerParameters(); });
}

BenchHosts::~BenchHosts()
{
    stop_ = true;
    for (const int queue : {positionQueue_, controlQueue_, parameterQueue_})
        msgctl(queue, IPC_RMID, nullptr); // ends the wait of the thread that answers it
    threads_.clear();
    for (const int segment : segments_)
        shmctl(segment, IPC_RMID, nullptr);
}

void BenchHosts::Publish()
{
    const FrameClock clock = Clock();
    while (!stop_) {
        const int64_t due = clock.DueNs(main_.number);
        SleepUntilNs(due);
        PublishFrame(main_);
        SleepUntilNs((due + clock.DueNs(main_.number)) / 2);
        PublishFrame(second_);
    }
}

void BenchHosts::AnswerPositions() const
{
    PositionMessage message;
    while (msgrcv(positionQueue_, &message, PositionMessage::kTextBytes, kPositionRequestType, 0) >= 0) {
        const RingWriter& writer = message.word[kWordStream] == kMainStream ? main_ : second_;
        const bool key = message.word[kWordCommand] == kQueryKeyFrame;
        message.type = static_cast<long>(message.word[kWordClientType]);
        message.word[kWordResult] = key ? writer.keyPosition : writer.position;
        (void)msgsnd(positionQueue_, &message, PositionMessage::kTextBytes, 0); // fails only once removed
    }
}

void BenchHosts::AnswerControl() const
{
    ControlMessage message;
    while (msgrcv(controlQueue_, &message, ControlMessage::kTextBytes, kControlRequestType, 0) >= 0) {
        message.type = kControlReplyType;
        message.word[kControlWordResult] = 0;
        (void)msgsnd(controlQueue_, &message, ControlMessage::kTextBytes, 0);
    }
}

void BenchHosts::AnswerParameters() const
{
    ParameterMessage message;
    while (msgrcv(parameterQueue_, &message, kParameterTextBytes, kParameterRequestType, 0) >= 0) {
        message.lType = message.iSource;
        message.iLengthOrResult = 0;
        (void)msgsnd(parameterQueue_, &message, kParameterTextBytes, 0);
    }
}
