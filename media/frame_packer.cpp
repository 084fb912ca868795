#include <algorithm>
#include <cstring>
#include <ctime>

#include "camera/camera_commands.h"
#include "common/clock.h"
#include "media/media_sender.h"
#include "media/ring_layout.h"
#include "media/stream_fanout.h"

namespace {

constexpr uint32_t kContinuationMs = 1; // pause after every message that continues a frame
constexpr size_t kNalHeaderOffset = 4;  // behind the start code

constexpr uint8_t kSlice = 1; // NAL unit type of a slice that is no key frame's, in H.264 and in H.265
constexpr uint8_t kH264Sps = 7;
constexpr uint8_t kH265Vps = 32;
constexpr uint32_t kLargeWidth = 1920;
constexpr uint8_t kLargeFlag = 1 << 4;

// A frame's sub-header as it is sent, and how its messages are cut.
struct SubHeader {
    uint8_t bytes[sizeof(KeyFrameHeader)];
    size_t size;      // 0: the frame is not sent
    size_t bodyLimit; // most body bytes of one message
};

template <typename Record> SubHeader MakeSubHeader(const Record& record, size_t bodyLimit)
{
    SubHeader sub{.bytes = {}, .size = sizeof record, .bodyLimit = bodyLimit};
    memcpy(sub.bytes, &record, sizeof record);
    return sub;
}

KeyFrameHeader KeyFrame(uint32_t stream, MediaCodec codec, uint32_t length)
{
    VideoEncoderConfig config{};
    (void)CameraGetVideoEncoderConfig(&config); // without an answer the sizes are 0
    const StreamEncoderConfig& own = config.stream[stream];
    KeyFrameHeader header{.ulKind = kKeyFrame,
                          .ucCodec =
                              static_cast<uint8_t>(codec | (own.ulWidth > kLargeWidth ? kLargeFlag : 0)),
                          .ucFrameRate = static_cast<uint8_t>(own.ulFrameRate),
                          .ucWidth8 = 0,
                          .ucHeight8 = 0,
                          .ulDateTime = 0,
                          .ulLength = length};
    if (own.ulWidth == 0 || own.ulHeight == 0)
        (void)CameraGetVideoEncoderConfig(&config); // the block was being written
    header.ucWidth8 = static_cast<uint8_t>(own.ulWidth / 8);
    header.ucHeight8 = static_cast<uint8_t>(own.ulHeight / 8);
    PackDateTime(&header.ulDateTime);
    return header;
}

SubHeader DescribeVideo(uint32_t stream, const uint8_t* frame, uint32_t length)
{
    if (length <= kNalHeaderOffset)
        return {};
    const uint8_t nalHeader = frame[kNalHeaderOffset];
    const uint8_t h264Type = nalHeader & 0x1F;
    const uint8_t h265Type = (nalHeader >> 1) & 0x3F;
    if (h264Type == kSlice || h265Type == kSlice)
        return MakeSubHeader(OtherFrameHeader{.ulKind = kOtherFrame, .ulLength = length}, kVideoBodyBytes);
    if (h265Type == kH265Vps)
        return MakeSubHeader(KeyFrame(stream, kCodecH265, length), kVideoBodyBytes);
    if (h264Type == kH264Sps)
        return MakeSubHeader(KeyFrame(stream, kCodecH264, length), kVideoBodyBytes);
    return {};
}

SubHeader Describe(uint32_t stream, uint32_t kind, const uint8_t* frame, uint32_t length)
{
    if (kind != kSourceAudio)
        return DescribeVideo(stream, frame, length);
    return MakeSubHeader(AudioFrameHeader{.ulKind = kAudioFrame,
                                          .ucCodec = kAudioCodec,
                                          .ucRate = kAudioRate,
                                          .usLength = static_cast<uint16_t>(length)},
                         kAudioBodyBytes);
}

// Sends the body under a header that is written in front of it. Returns false when the video process
// has stopped, with nothing sent.
bool SendBody(const FrameReceivers& receivers, uint8_t* body, size_t bodyBytes)
{
    const MessageHeader header{.ucHeadFlag = kHeadFlag,
                               .ucVersion = kVersion,
                               .ucReserved2 = {1, 0},
                               .ulSessionId = 0, // this and the next per receiver
                               .ulSeqNum = 0,
                               .ucReserved12 = {},
                               .usMessageId = kMediaData,
                               .ulBodyLength = static_cast<uint32_t>(bodyBytes)};
    WriteHeader(body - kHeaderBytes, header);
    if (!IsVideoProcessRunning())
        return false;
    SendAVStream(receivers, body - kHeaderBytes, kHeaderBytes + bodyBytes);
    return true;
}

} // namespace

void PackDateTime(uint32_t* word)
{
    using namespace date_time_word;
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    const auto put = [](const BitField& field, int value) { return field.Put(static_cast<uint32_t>(value)); };
    *word = put(kSecond, local.tm_sec) | put(kMinute, local.tm_min) | put(kHour, local.tm_hour) |
            put(kDay, local.tm_mday) | put(kMonth, local.tm_mon + 1) | put(kYear, local.tm_year - 100);
}

int PackAVFrame(uint32_t stream, uint8_t* buffer)
{
    uint8_t* const frame = buffer + kFrameOffset;
    int32_t length = 0;
    uint32_t kind = 0;
    if (!IsVideoProcessRunning() || GetStreamFrame(stream, frame, &length, &kind) != 0)
        return -1;
    const SubHeader sub = Describe(stream, kind, frame, static_cast<uint32_t>(length));
    if (sub.size == 0)
        return 0; // no start that a recorder could decode from; the stream goes on with the next frame

    uint8_t* body = frame - sub.size;
    size_t rest = sub.size + static_cast<size_t>(length);
    memcpy(body, sub.bytes, sub.size);
    const FrameReceivers receivers(stream);
    for (bool isFirst = true; rest > 0; isFirst = false) {
        const size_t bodyBytes = std::min(rest, sub.bodyLimit);
        if (!SendBody(receivers, body, bodyBytes))
            return -1;
        body += bodyBytes;
        rest -= bodyBytes;
        if (!isFirst)
            SleepMs(kContinuationMs);
    }
    return 0;
}
