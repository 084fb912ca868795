#include "bench/media_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "media/media_layout.h"

namespace {

constexpr FramePattern kPattern{.bitsPerSecond = 4000000};
constexpr uint32_t kSession = 7;
constexpr int64_t kPublishedNs = 1000;
constexpr size_t kFirstBody = kHeaderBytes; // offset in the stream of what follows the first header

using Bytes = std::vector<uint8_t>;

template <typename Record> void Append(Bytes& to, const Record& record)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
    to.insert(to.end(), bytes, bytes + sizeof record);
}

void AppendMessage(Bytes& to, uint16_t id, uint32_t sequence, const uint8_t* body, size_t bytes)
{
    Append(to, MessageHeader{.ucHeadFlag = 0xFF,
                             .ucVersion = 1,
                             .ucReserved2 = {static_cast<uint8_t>(id == kMediaData), 0},
                             .ulSessionId = kSession,
                             .ulSeqNum = sequence,
                             .ucReserved12 = {},
                             .usMessageId = id,
                             .ulBodyLength = static_cast<uint32_t>(bytes)});
    to.insert(to.end(), body, body + bytes);
}

// A frame as it is cut into messages of at most `bodyBytes`.
void AppendFrame(Bytes& to, uint64_t number, uint32_t* sequence, size_t bodyBytes = 32768)
{
    const uint32_t length = FrameBytes(kPattern, number);
    Bytes body;
    if (number % kPattern.gopFrames == 0)
        Append(body, KeyFrameHeader{kKeyFrame, 3, 25, 240, 135, 0, length});
    else
        Append(body, OtherFrameHeader{kOtherFrame, length});
    Append(body, MakePrefix(kPattern, number, kPublishedNs));
    const uint8_t* const tail = FrameTail(number, sizeof(FramePrefix));
    body.insert(body.end(), tail, tail + length - sizeof(FramePrefix));
    for (size_t at = 0; at < body.size(); at += bodyBytes)
        AppendMessage(to, kMediaData, (*sequence)++, body.data() + at, std::min(bodyBytes, body.size() - at));
}

// Frames 49 to 51; number 50 is a key frame of three messages.
Bytes ThreeFrames(size_t bodyBytes = 32768)
{
    Bytes stream;
    uint32_t sequence = 0;
    for (uint64_t number = 49; number < 52; ++number)
        AppendFrame(stream, number, &sequence, bodyBytes);
    return stream;
}

MediaParser Parse(const Bytes& stream, size_t step)
{
    MediaParser parser{.pattern = &kPattern, .session = kSession};
    for (size_t at = 0; at < stream.size(); at += step) {
        // Copies of their own size, so that a sanitizer sees a read beyond.
        const Bytes piece(stream.begin() + static_cast<long>(at),
                          stream.begin() + static_cast<long>(std::min(at + step, stream.size())));
        ParseMedia(parser, piece.data(), piece.size(), kPublishedNs + 500);
    }
    return parser;
}

std::string Numbers(const MediaParser& parser)
{
    std::string text;
    for (const ReceivedFrame& frame : parser.frames)
        text += std::to_string(frame.number) + ' ';
    return text;
}

} // namespace

TEST(MediaParser, TakesWholeFramesHoweverTheyArrive)
{
    Bytes stream;
    AppendMessage(stream, kMonitorClaimReply, 0, reinterpret_cast<const uint8_t*>("{}"), 2);
    const Bytes frames = ThreeFrames();
    stream.insert(stream.end(), frames.begin(), frames.end());
    for (const size_t step : {size_t{1}, size_t{19}, size_t{4096}, stream.size()}) {
        const MediaParser parser = Parse(stream, step);
        EXPECT_EQ(Numbers(parser), "49 50 51 ") << step;
        EXPECT_EQ(parser.damaged, 0U) << step;
        EXPECT_EQ(parser.frames.at(0).delayNs, 500);
    }
}

TEST(MediaParser, CountsWhatIsNotAsPublished)
{
    const size_t frameStart = kFirstBody + sizeof(OtherFrameHeader);
    const size_t firstFrame = frameStart + FrameBytes(kPattern, 49);
    const struct {
        const char* what;
        size_t offset; // of the byte that is changed
        const char* left;
    } cases[] = {
        {"frame byte", frameStart + 5000, "50 51 "},
        {"last byte of a frame", firstFrame - 1, "50 51 "},
        {"NAL header", frameStart + 4, "50 51 "},
        {"session", 4, "50 51 "},
        {"sequence number, wrong twice", 8, "51 "},
        {"version", 1, "50 51 "},
        {"sub-header", kFirstBody, "50 51 "},
        {"continuation's sequence number", firstFrame + kHeaderBytes + kVideoBodyBytes + 8, "49 51 "},
    };
    for (const auto& c : cases) {
        Bytes stream = ThreeFrames();
        stream[c.offset] ^= 0x40;
        const MediaParser parser = Parse(stream, stream.size());
        EXPECT_GT(parser.damaged, 0U) << c.what;
        EXPECT_EQ(Numbers(parser), c.left) << c.what;
    }
}

TEST(MediaParser, CountsFramesThatAreCutOtherwise)
{
    const Bytes small = ThreeFrames(30000);
    EXPECT_EQ(Numbers(Parse(small, small.size())), "49 51 ") << "messages that are not full";

    Bytes both; // the end of one frame and the start of the next in one message
    uint32_t sequence = 0;
    AppendFrame(both, 1, &sequence, kMainFrameBytes);
    Bytes second;
    AppendFrame(second, 2, &sequence, kMainFrameBytes);
    both.insert(both.end(), second.begin() + kHeaderBytes, second.end());
    const auto bytes = static_cast<uint32_t>(both.size() - kHeaderBytes);
    memcpy(both.data() + offsetof(MessageHeader, ulBodyLength), &bytes, sizeof bytes);
    const MediaParser parser = Parse(both, both.size());
    EXPECT_GT(parser.damaged, 0U);
    EXPECT_EQ(Numbers(parser).find('2'), std::string::npos);
}
