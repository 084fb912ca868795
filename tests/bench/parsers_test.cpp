// Parsers of what a watcher receives: every whole frame comes out once, and no damage passes.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "bench/media_parser.h"
#include "bench/rtp_parser.h"
#include "media/media_layout.h"

namespace {

constexpr FramePattern kPattern{.bitsPerSecond = 4000000};
constexpr size_t kFirstBody = kHeaderBytes; // offset in the stream of what follows the first header
constexpr size_t kFragmentBytes = 1000;

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

void AppendPacket(Bytes& stream, uint16_t sequence, bool isLast, const Bytes& payload)
{
    const uint8_t interleaved[] = {'$', 0, static_cast<uint8_t>((12 + payload.size()) >> 8),
                                   static_cast<uint8_t>(12 + payload.size())};
    const uint8_t rtp[] = {0x80, static_cast<uint8_t>(isLast ? 0xE0 : 0x60),
                           static_cast<uint8_t>(sequence >> 8), static_cast<uint8_t>(sequence)};
    Append(stream, interleaved);
    Append(stream, rtp);
    stream.insert(stream.end(), {0, 0, 0, 0, 0, 0, 0, 7});
    stream.insert(stream.end(), payload.begin(), payload.end());
}

// An answer, parameter sets, a report on the second channel, then frames 49 and 50 in fragments.
Bytes TwoFrames()
{
    const std::string reply = "RTSP/1.0 200 OK\r\nCSeq: 4\r\n\r\n";
    Bytes stream(reply.begin(), reply.end());
    uint16_t sequence = 65530; // goes through zero
    AppendPacket(stream, sequence++, false, {0x67, 1, 2, 3});
    stream.insert(stream.end(), {'$', 1, 0, 2, 9, 9});
    for (const uint64_t number : {49U, 50U}) {
        Bytes frame(FrameBytes(kPattern, number));
        const FramePrefix prefix = MakeH264Prefix(kPattern, number, 1000);
        memcpy(frame.data(), &prefix, sizeof prefix);
        memcpy(frame.data() + sizeof prefix, FrameTail(number, sizeof prefix), frame.size() - sizeof prefix);
        for (size_t at = 5; at < frame.size(); at += kFragmentBytes) {
            const bool isLast = at + kFragmentBytes >= frame.size();
            Bytes payload = {
                static_cast<uint8_t>((frame[4] & 0xE0) | 28),
                static_cast<uint8_t>((at == 5 ? 0x80 : 0) | (isLast ? 0x40 : 0) | (frame[4] & 0x1F))};
            payload.insert(payload.end(), frame.data() + at,
                           frame.data() + std::min(at + kFragmentBytes, frame.size()));
            AppendPacket(stream, sequence++, isLast, payload);
        }
    }
    return stream;
}

// The frames that come whole out of the stream, read in pieces; "?" when something was damaged.
template <auto kParse, typename Parser> std::string Parse(Parser parser, const Bytes& stream, size_t step)
{
    for (size_t at = 0; at < stream.size(); at += step) {
        // Copies of their own size, so that a sanitizer sees a read beyond.
        const Bytes piece(stream.data() + at, stream.data() + std::min(at + step, stream.size()));
        kParse(parser, piece.data(), piece.size(), 1500);
    }
    std::string text = parser.damaged > 0 ? "? " : "";
    for (const ReceivedFrame& frame : parser.frames)
        text += std::to_string(frame.number) + (frame.delayNs == 500 ? " " : " late ");
    return text;
}

std::string ParseMessages(const Bytes& stream, size_t step)
{
    return Parse<ParseMedia>(MediaParser{.pattern = &kPattern, .session = 7}, stream, step);
}

std::string ParsePackets(const Bytes& stream, size_t step)
{
    return Parse<ParseRtp>(RtpParser{.pattern = &kPattern}, stream, step);
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

TEST(RtpParser, TakesWholeFramesAndSeesDamage)
{
    const Bytes stream = TwoFrames();
    for (const size_t step : {size_t{1}, size_t{7}, size_t{1460}, stream.size()})
        EXPECT_EQ(ParsePackets(stream, step), "49 50 ") << step;
    // In the first frame's first packet: RTP version, sequence number, NAL type, frame number; then video.
    for (const size_t at :
         {size_t{58}, size_t{61}, size_t{71}, size_t{75}, size_t{3000}, stream.size() - 9}) {
        Bytes damaged = stream;
        damaged[at] ^= 0x11;
        EXPECT_EQ(ParsePackets(damaged, 1460)[0], '?') << at;
    }
}

} // namespace
