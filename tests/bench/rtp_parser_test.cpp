#include "bench/rtp_parser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr FramePattern kPattern{.bitsPerSecond = 4000000};
constexpr size_t kFragmentBytes = 1000;

using Bytes = std::vector<uint8_t>;

void AppendPacket(Bytes& stream, uint16_t sequence, bool isLast, const Bytes& payload)
{
    const size_t bytes = 12 + payload.size();
    const auto byte = [](size_t value) { return static_cast<uint8_t>(value); };
    const Bytes head = {'$',
                        0,
                        byte(bytes >> 8),
                        byte(bytes),
                        0x80,
                        byte(isLast ? 0xE0 : 0x60),
                        byte(sequence >> 8),
                        byte(sequence),
                        0,
                        0,
                        0,
                        0,
                        0,
                        0,
                        0,
                        7};
    stream.insert(stream.end(), head.begin(), head.end());
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
std::string Parse(const Bytes& stream, size_t step)
{
    RtpParser parser{.pattern = &kPattern};
    for (size_t at = 0; at < stream.size(); at += step) {
        // Copies of their own size, so that a sanitizer sees a read beyond.
        const Bytes piece(stream.data() + at, stream.data() + std::min(at + step, stream.size()));
        ParseRtp(parser, piece.data(), piece.size(), 1500);
    }
    std::string text = parser.damaged > 0 ? "? " : "";
    for (const ReceivedFrame& frame : parser.frames)
        text += std::to_string(frame.number) + (frame.delayNs == 500 ? " " : " late ");
    return text;
}

TEST(RtpParser, TakesWholeFramesAndSeesDamage)
{
    const Bytes stream = TwoFrames();
    for (const size_t step : {size_t{1}, size_t{7}, size_t{1460}, stream.size()})
        EXPECT_EQ(Parse(stream, step), "49 50 ") << step;
    // In the first frame's first packet: RTP version, sequence number, NAL type, frame number; then video.
    for (const size_t at :
         {size_t{58}, size_t{61}, size_t{71}, size_t{75}, size_t{3000}, stream.size() - 9}) {
        Bytes damaged = stream;
        damaged[at] ^= 0x11;
        EXPECT_EQ(Parse(damaged, 1460)[0], '?') << at;
    }
}

} // namespace
