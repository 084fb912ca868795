// The floor program: from the rings to the sockets. See floor.h.
#include <sys/msg.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>

#include "bench/floor.h"
#include "camera/parameter_block_layout.h"
#include "common/clock.h"
#include "common/little_endian.h"
#include "common/sysv_ipc.h"
#include "media/media_layout.h"
#include "media/ring_layout.h"
#include "protocol/message.h"

namespace {

constexpr size_t kFrameSlots = 4;

// Frames on their way from a stream's reader to its sender. The lengths are atomic because both sides
// test them under a condition's mutex, which is only ever taken after the lock.
struct FloorStream {
    uint8_t* slot[kFrameSlots];
    std::atomic<int32_t> length[kFrameSlots] = {-1, -1, -1, -1};
    uint32_t kind[kFrameSlots] = {};
    size_t writeSlot = kFrameSlots - 1;
    size_t readSlot = 0;
    std::mutex lock; // of all of the above
    std::mutex dataMutex, spaceMutex;
    std::condition_variable data, space;
};

uint8_t g_mainSlots[kFrameSlots][kMainFrameBytes];
uint8_t g_secondSlots[kFrameSlots][kExtraFrameBytes];
FloorStream g_streams[2];
uint32_t g_indices[2] = {kMainStream, kSecondStream};
std::mutex g_sendMutex;
std::mutex g_queryLock;
int32_t g_clientType;
const uint8_t* g_parameters;

bool IsWatcher(const FloorSlot& slot, uint32_t stream)
{
    return slot.sendVideo && slot.type == static_cast<int>(stream) + 1;
}

bool IsWatched(uint32_t stream)
{
    for (const FloorSlot& slot : g_floorSlots)
        if (IsWatcher(slot, stream))
            return true;
    return false;
}

bool IsFilled(const FloorStream& stream, size_t slot)
{
    return stream.length[slot] > 0;
}

void Signal(std::mutex& mutex, std::condition_variable& condition)
{
    const std::lock_guard hold(mutex);
    condition.notify_one();
}

void TakeFromRing(uint32_t index, const uint8_t* payload, const DataInfo& record)
{
    FloorStream& stream = g_streams[index];
    if (!IsWatched(index)) {
        SleepMs(3);
        return;
    }
    stream.writeSlot = (stream.writeSlot + 1) % kFrameSlots;
    {
        std::unique_lock hold(stream.spaceMutex);
        stream.space.wait(hold, [&] { return !IsFilled(stream, stream.writeSlot); });
    }
    const std::lock_guard hold(stream.lock);
    memcpy(stream.slot[stream.writeSlot], payload, static_cast<size_t>(record.AVDataLen));
    stream.length[stream.writeSlot] = record.AVDataLen;
    stream.kind[stream.writeSlot] = record.AVSource;
    Signal(stream.dataMutex, stream.data);
}

uint32_t AskPosition(uint32_t index, uint32_t command)
{
    static const int queue = IpcMsgInit(kPositionQueueKey, kPositionQueueMode);
    const std::lock_guard hold(g_queryLock);
    PositionMessage message{.type = kPositionRequestType,
                            .word = {static_cast<uint32_t>(g_clientType), command, index}};
    (void)msgsnd(queue, &message, PositionMessage::kTextBytes, 0);
    (void)msgrcv(queue, &message, PositionMessage::kTextBytes, g_clientType, 0);
    return message.word[kWordResult];
}

// A reader's place in its ring, and how often it has waited there.
struct Place {
    const uint8_t* ring;
    uint32_t index;
    uint32_t position;
    uint32_t lastSerial = 0;
    uint32_t badMagic = 0, unfinished = 0, older = 0;
};

void ForgetWaits(Place& place)
{
    place.badMagic = place.unfinished = place.older = 0;
}

void FindKeyFrame(Place& place)
{
    DataInfo record;
    for (;;) {
        place.position = AskPosition(place.index, kQueryKeyFrame);
        memcpy(&record, place.ring + place.position, sizeof record);
        if (place.lastSerial == 0 || record.SerialNumber > place.lastSerial)
            break;
        SleepMs(10);
    }
    place.lastSerial = 0;
    ForgetWaits(place);
}

void ReadFrame(Place& place, const DataInfo& record)
{
    if (record.SerialNumber == place.lastSerial) {
        FindKeyFrame(place);
        return;
    }
    if (place.lastSerial > record.SerialNumber) { // the last lap's record still stands here
        SleepMs(8);
        if (++place.older == 50)
            FindKeyFrame(place);
        return;
    }
    TakeFromRing(place.index, place.ring + place.position + kRecordBytes, record);
    place.lastSerial = record.SerialNumber;
    place.position += kRecordBytes + static_cast<uint32_t>(record.AVDataLen);
    ForgetWaits(place);
}

void WaitForRecord(Place& place, uint32_t& waits, uint32_t limit, uint32_t milliseconds)
{
    if (++waits >= limit)
        FindKeyFrame(place);
    else
        SleepMs(milliseconds);
}

void ReadRecord(Place& place)
{
    DataInfo record;
    memcpy(&record, place.ring + place.position, sizeof record);
    if (record.AVDataCheck != kRecordMagic) {
        WaitForRecord(place, place.badMagic, 101, 1);
    } else if (record.EndFlag == kFlagFrame) {
        ReadFrame(place, record);
    } else if (record.EndFlag == kFlagWrap) {
        place.position = 0;
    } else if (record.EndFlag == kFlagPause) {
        SleepMs(500);
        place.position = 0;
        place.lastSerial = 0;
    } else {
        place.badMagic = 0;
        WaitForRecord(place, place.unfinished, 50, 5);
    }
}

void* RingReader(void* argument)
{
    const uint32_t index = *static_cast<const uint32_t*>(argument);
    const RingShape& shape = kRings[index];
    const ShmAttachment ring(IpcShareMemInit(shape.key, shape.ulSegmentBytes, kRingMode));
    Place place{.ring = ring.get(), .index = index, .position = AskPosition(index, kQueryStart)};
    for (;;)
        ReadRecord(place);
}

int32_t TakeFrame(FloorStream& stream, uint8_t* frame, uint32_t* kind)
{
    {
        std::unique_lock hold(stream.dataMutex);
        stream.data.wait(hold, [&] { return IsFilled(stream, stream.readSlot); });
    }
    const std::lock_guard hold(stream.lock);
    const int32_t length = stream.length[stream.readSlot];
    memcpy(frame, stream.slot[stream.readSlot], static_cast<size_t>(length));
    *kind = stream.kind[stream.readSlot];
    stream.length[stream.readSlot] = -1;
    stream.readSlot = (stream.readSlot + 1) % kFrameSlots;
    Signal(stream.spaceMutex, stream.space);
    return length;
}

// Sends one message to one watcher; a watcher that would block is waited for in steps of 2 ms.
void SendMessage(FloorSlot& slot, const uint8_t* message, size_t length)
{
    for (size_t sent = 0; sent < length;) {
        const size_t piece = length - sent < kVideoBodyBytes ? length - sent : kVideoBodyBytes;
        const ssize_t result = send(slot.fd, message + sent, piece, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (result <= 0 && errno != EAGAIN)
            return; // the receive thread sees the end of this connection, too
        sent += result > 0 ? static_cast<size_t>(result) : 0;
        if (result < static_cast<ssize_t>(piece))
            SleepMs(2);
    }
}

void SendToWatchers(uint32_t index, uint8_t* message, size_t length)
{
    const std::lock_guard hold(g_sendMutex);
    for (FloorSlot& slot : g_floorSlots) {
        if (!IsWatcher(slot, index))
            continue;
        MessageHeader header = ReadHeader(message, length);
        header.ulSessionId = slot.session;
        header.ulSeqNum = slot.sequence++;
        WriteHeader(message, header);
        SendMessage(slot, message, length);
    }
}

uint32_t DateTime()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    using namespace date_time_word;
    return kSecond.Put(static_cast<uint32_t>(local.tm_sec)) |
           kMinute.Put(static_cast<uint32_t>(local.tm_min)) |
           kHour.Put(static_cast<uint32_t>(local.tm_hour)) | kDay.Put(static_cast<uint32_t>(local.tm_mday)) |
           kMonth.Put(static_cast<uint32_t>(local.tm_mon) + 1) |
           kYear.Put(static_cast<uint32_t>(local.tm_year) - 100);
}

// Writes the frame's sub-header and returns its bytes.
size_t WriteSubHeader(uint32_t index, const uint8_t* frame, int32_t length, uint32_t kind, uint8_t* out)
{
    const uint32_t frameBytes = static_cast<uint32_t>(length);
    if (kind == kSourceAudio) {
        const AudioFrameHeader audio{kAudioFrame, kAudioCodec, kAudioRate, static_cast<uint16_t>(length)};
        memcpy(out, &audio, sizeof audio);
        return sizeof audio;
    }
    const bool h265Key = ((frame[4] >> 1) & 0x3F) == 32;
    const bool h264Key = (frame[4] & 0x1F) == 7;
    if (!h265Key && !h264Key) {
        const OtherFrameHeader other{kOtherFrame, frameBytes};
        memcpy(out, &other, sizeof other);
        return sizeof other;
    }
    const auto width = LoadLe<uint16_t>(g_parameters + block::kWidth(index));
    const auto height = LoadLe<uint16_t>(g_parameters + block::kHeight(index));
    const unsigned codec = h265Key ? kCodecH265 : kCodecH264;
    const KeyFrameHeader key{.ulKind = kKeyFrame,
                             .ucCodec = static_cast<uint8_t>(codec | (width > 1920 ? 0x10U : 0U)),
                             .ucFrameRate = g_parameters[block::kFrameRate(index)],
                             .ucWidth8 = static_cast<uint8_t>(width / 8),
                             .ucHeight8 = static_cast<uint8_t>(height / 8),
                             .ulDateTime = DateTime(),
                             .ulLength = frameBytes};
    memcpy(out, &key, sizeof key);
    return sizeof key;
}

void SendFrame(uint32_t index, const uint8_t* frame, int32_t length, uint32_t kind, uint8_t* message)
{
    const size_t limit = kind == kSourceAudio ? kAudioBodyBytes : kVideoBodyBytes;
    size_t filled = WriteSubHeader(index, frame, length, kind, message + kHeaderBytes);
    size_t taken = 0;
    for (bool first = true; taken < static_cast<size_t>(length); first = false) {
        const size_t left = static_cast<size_t>(length) - taken;
        const size_t part = left < limit - filled ? left : limit - filled;
        memcpy(message + kHeaderBytes + filled, frame + taken, part);
        const size_t body = filled + part;
        WriteHeader(message, {.ucHeadFlag = kHeadFlag,
                              .ucVersion = kVersion,
                              .ucReserved2 = {1, 0},
                              .ulSessionId = 0,
                              .ulSeqNum = 0,
                              .ucReserved12 = {},
                              .usMessageId = kMediaData,
                              .ulBodyLength = static_cast<uint32_t>(body)});
        SendToWatchers(index, message, kHeaderBytes + body);
        if (!first)
            SleepMs(1);
        taken += part;
        filled = 0;
    }
}

void* Sender(void* argument)
{
    static uint8_t frames[2][kMainFrameBytes], messages[2][kMainFrameBytes];
    const uint32_t index = *static_cast<const uint32_t*>(argument);
    for (;;) {
        if (!IsWatched(index)) {
            SleepMs(5);
            SleepMs(3);
            continue;
        }
        uint32_t kind;
        const int32_t length = TakeFrame(g_streams[index], frames[index], &kind);
        SendFrame(index, frames[index], length, kind, messages[index]);
    }
}

void* UnlockSignal(void*)
{
    for (;;) {
        SleepMs(500);
        for (FloorStream& stream : g_streams) {
            Signal(stream.dataMutex, stream.data);
            Signal(stream.spaceMutex, stream.space);
        }
    }
}

} // namespace

void StartFloorMedia(int32_t clientType, const uint8_t* parameters)
{
    g_clientType = clientType;
    g_parameters = parameters;
    for (size_t slot = 0; slot < kFrameSlots; ++slot) {
        g_streams[kMainStream].slot[slot] = g_mainSlots[slot];
        g_streams[kSecondStream].slot[slot] = g_secondSlots[slot];
    }
    for (uint32_t& index : g_indices)
        StartFloorThread("Sender", Sender, &index);
    StartFloorThread("UnlockSignal", UnlockSignal, nullptr);
    for (uint32_t& index : g_indices)
        StartFloorThread("RingReader", RingReader, &index);
}
