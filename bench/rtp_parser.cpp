#include "bench/rtp_parser.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t kInterleavedBytes = 4; // '$', channel, length
constexpr size_t kRtpBytes = 12;
constexpr uint8_t kVideoChannel = 0;
constexpr uint8_t kFragment = 28; // NAL unit types: FU-A; single slices
constexpr uint8_t kIdrSlice = 5, kOtherSlice = 1;
constexpr std::string_view kReplyEnd = "\r\n\r\n";

uint16_t Load16(const uint8_t* bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

void TakeFrameBytes(RtpParser& parser, const uint8_t* data, size_t bytes)
{
    size_t done = 0;
    if (parser.position < sizeof(FramePrefix)) {
        done = std::min(bytes, sizeof(FramePrefix) - parser.position);
        memcpy(reinterpret_cast<uint8_t*>(&parser.prefix) + parser.position, data, done);
    }
    if (done < bytes && parser.position + bytes <= FrameBytes(*parser.pattern, parser.prefix.ullNumber) &&
        memcmp(data + done, FrameTail(parser.prefix.ullNumber, parser.position + done), bytes - done) != 0)
        parser.intact = false;
    parser.position += static_cast<uint32_t>(bytes);
}

void EndFrame(RtpParser& parser, int64_t nowNs)
{
    const FramePrefix& prefix = parser.prefix;
    const FramePrefix expected = MakeH264Prefix(*parser.pattern, prefix.ullNumber, prefix.llPublishedNs);
    if (parser.intact && parser.position == FrameBytes(*parser.pattern, prefix.ullNumber) &&
        memcmp(prefix.ucNal + 4, expected.ucNal + 4, sizeof prefix.ucNal - 4) == 0)
        parser.frames.push_back({prefix.ullNumber, nowNs - prefix.llPublishedNs});
    else
        ++parser.damaged;
    parser.intact = true;
    parser.position = 4;
}

// The frame's part in one packet. Parameter sets and the like are passed over.
void TakeNal(RtpParser& parser, const uint8_t* nal, size_t bytes)
{
    const uint8_t type = nal[0] & 0x1F;
    if (type == kFragment && bytes > 2) {
        const auto header = static_cast<uint8_t>((nal[0] & 0xE0) | (nal[1] & 0x1F));
        const bool isFirst = (nal[1] & 0x80) != 0;
        if (isFirst != (parser.position == 4))
            parser.intact = false;
        if (isFirst)
            TakeFrameBytes(parser, &header, 1);
        TakeFrameBytes(parser, nal + 2, bytes - 2);
    } else if (type == kIdrSlice || type == kOtherSlice) {
        TakeFrameBytes(parser, nal, bytes);
    }
}

void TakePacket(RtpParser& parser, const uint8_t* packet, size_t bytes, int64_t nowNs)
{
    const size_t headerBytes = kRtpBytes + size_t{4} * (packet[0] & 0x0F);
    if (bytes <= headerBytes || (packet[0] & 0xF0) != 0x80) { // version 2, no padding, no extension
        ++parser.damaged;
        return;
    }
    const uint16_t sequence = Load16(packet + 2);
    if (parser.isSequenceKnown && sequence != parser.nextSequence) {
        ++parser.damaged;
        parser.intact = false;
    }
    parser.isSequenceKnown = true;
    parser.nextSequence = static_cast<uint16_t>(sequence + 1);
    TakeNal(parser, packet + headerBytes, bytes - headerBytes);
    if ((packet[1] & 0x80) != 0 && parser.position > 4)
        EndFrame(parser, nowNs);
}

// How many bytes the unit, which has begun, surely lacks; 0 when it is whole.
size_t MissingBytes(const std::vector<uint8_t>& unit)
{
    if (unit[0] != '$') {
        const std::string_view text(reinterpret_cast<const char*>(unit.data()), unit.size());
        return text.ends_with(kReplyEnd) ? 0 : 1;
    }
    const size_t whole =
        unit.size() < kInterleavedBytes ? kInterleavedBytes : kInterleavedBytes + Load16(unit.data() + 2);
    return whole - unit.size();
}

} // namespace

void ParseRtp(RtpParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs)
{
    while (bytes > 0) {
        const size_t part = std::min(bytes, parser.unit.empty() ? 1 : MissingBytes(parser.unit));
        parser.unit.insert(parser.unit.end(), data, data + part);
        data += part;
        bytes -= part;
        if (MissingBytes(parser.unit) > 0)
            continue;
        const std::vector<uint8_t>& unit = parser.unit;
        if (unit[0] == '$' && unit[1] == kVideoChannel && unit.size() > kInterleavedBytes)
            TakePacket(parser, unit.data() + kInterleavedBytes, unit.size() - kInterleavedBytes, nowNs);
        parser.unit.clear();
    }
}
