// The parser of what a watcher receives: every whole frame comes out once, and no damage passes.

#include <gtest/gtest.h>

#include <string>

#include "bench/media_parser.h"
#include "media/media_layout.h"

namespace {

constexpr FramePattern kPattern{.bitsPerSecond = 4000000};
constexpr size_t kFirstBody = kHeaderBytes; // offset in the stream of what follows the first header

using Bytes = std::vector<uint8_t>;

template <typename Record> void Append(Bytes& to, const Record& record)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
    to.insert(to.end(), bytes, bytes + sizeof record);
}

// Frames 49 to 51 of session 7, cut into messages; number 50 is a key frame of three.
Bytes ThreeFrames(size_t bodyBytes)
{
    Bytes stream;
    uint32_t sequence = 0;
    for (uint64_t number = 49; number < 52; ++number) {
        const uint32_t length = FrameBytes(kPattern, number);
        Bytes body;
        if (number == 50)
            Append(body, KeyFrameHeader{kKeyFrame, 3, 25, 240, 135, 0, length});
        else
            Append(body, OtherFrameHeader{kOtherFrame, length});
        Append(body, MakePrefix(kPattern, number, 1000));
        const uint8_t* const tail = FrameTail(number, sizeof(FramePrefix));
        body.insert(body.end(), tail, tail + length - sizeof(FramePrefix));
        for (size_t at = 0; at < body.size(); at += bodyBytes) {
            const size_t bytes = std::min(bodyBytes, body.size() - at);
            Append(stream, MessageHeader{
                               0xFF, 1, {1, 0}, 7, sequence++, {}, kMediaData, static_cast<uint32_t>(bytes)});
            stream.insert(stream.end(), body.data() + at, body.data() + at + bytes);
        }
    }
    return stream;
}

// The frames that come whole out of the stream, read in pieces; "?" when something was damaged.
std::string ParseMessages(const Bytes& stream, size_t step)
{
    MediaParser parser{.pattern = &kPattern, .session = 7};
    for (size_t at = 0; at < stream.size(); at += step) {
        // Copies of their own size, so that a sanitizer sees a read beyond.
        const Bytes piece(stream.data() + at, stream.data() + std::min(at + step, stream.size()));
        ParseMedia(parser, piece.data(), piece.size(), 1500);
    }
    std::string text = parser.damaged > 0 ? "? " : "";
    for (const ReceivedFrame& frame : parser.frames)
        text += std::to_string(frame.number) + (frame.delayNs == 500 ? " " : " late ");
    return text;
}

TEST(MediaParser, TakesWholeFramesAndCountsWhatIsNotAsPublished)
{
    const Bytes intact = ThreeFrames(kVideoBodyBytes);
    for (const size_t step : {size_t{1}, size_t{19}, size_t{4096}, intact.size()})
        EXPECT_EQ(ParseMessages(intact, step), "49 50 51 ") << step;
    EXPECT_EQ(ParseMessages(ThreeFrames(30000), 4096), "? 49 51 ") << "messages that are not full";
    const size_t frameStart = kFirstBody + sizeof(OtherFrameHeader);
    const size_t firstFrame = frameStart + FrameBytes(kPattern, 49);
    const std::pair<size_t, const char*> cases[] = {
        {frameStart + 5000, "? 50 51 "},                               // a byte of the frame
        {firstFrame - 1, "? 50 51 "},                                  // its last one
        {frameStart + 4, "? 50 51 "},                                  // its NAL header
        {4, "? 50 51 "},                                               // session
        {8, "? 51 "},                                                  // sequence number, wrong twice
        {1, "? 50 51 "},                                               // version
        {kFirstBody, "? 50 51 "},                                      // sub-header
        {firstFrame + kHeaderBytes + kVideoBodyBytes + 8, "? 49 51 "}, // a continuation's sequence number
    };
    for (const auto& [offset, left] : cases) {
        Bytes stream = intact;
        stream[offset] ^= 0x40;
        EXPECT_EQ(ParseMessages(stream, stream.size()), left) << offset;
    }
}

} // namespace
