#include "bench/media_parser.h"

#include <algorithm>
#include <cstring>

#include "common/little_endian.h"
#include "media/media_layout.h"

namespace {

void StartMessage(MediaParser& parser)
{
    parser.header = ReadHeader(parser.headerBytes, kHeaderBytes);
    parser.bodyLeft = parser.header.ulBodyLength;
    if (parser.header.usMessageId != kMediaData)
        return;
    const MessageHeader& header = parser.header;
    const bool valid = header.ucHeadFlag == kHeadFlag && header.ucVersion == kVersion &&
                       header.ucReserved2[0] == 1 && header.ulSessionId == parser.session &&
                       header.ulSeqNum == parser.nextSequence && header.ulBodyLength > 0 &&
                       header.ulBodyLength <= kVideoBodyBytes;
    parser.nextSequence = header.ulSeqNum + 1;
    if (!valid) {
        ++parser.damaged;
        parser.intact = false;
    }
}

size_t SubHeaderBytes(const MediaParser& parser)
{
    const bool key = parser.subHeaderFill >= 4 && LoadLe<uint32_t>(parser.subHeader) == kKeyFrame;
    return key ? sizeof(KeyFrameHeader) : sizeof(OtherFrameHeader);
}

void StartFrame(MediaParser& parser)
{
    const bool key = SubHeaderBytes(parser) == sizeof(KeyFrameHeader);
    parser.length = LoadLe<uint32_t>(
        parser.subHeader + (key ? offsetof(KeyFrameHeader, ulLength) : offsetof(OtherFrameHeader, ulLength)));
    parser.inFrame = true;
    parser.position = 0;
    const bool known = key || LoadLe<uint32_t>(parser.subHeader) == kOtherFrame;
    if (!known || parser.length < sizeof(FramePrefix) || parser.length > kMainFrameBytes)
        parser.intact = false;
    if (key && (parser.subHeader[offsetof(KeyFrameHeader, ucCodec)] & 0x0F) != kCodecH265)
        parser.intact = false;
}

void CheckPrefix(MediaParser& parser)
{
    memcpy(&parser.prefix, parser.prefixBytes, sizeof parser.prefix);
    const FramePrefix& prefix = parser.prefix;
    const FramePrefix expected = MakePrefix(*parser.pattern, prefix.ullNumber, prefix.llPublishedNs);
    const bool key = IsKeyFrame(*parser.pattern, prefix.ullNumber);
    if (memcmp(prefix.ucNal, expected.ucNal, sizeof prefix.ucNal) != 0 ||
        parser.length != FrameBytes(*parser.pattern, prefix.ullNumber) ||
        (LoadLe<uint32_t>(parser.subHeader) == kKeyFrame) != key)
        parser.intact = false;
}

void EndFrame(MediaParser& parser, int64_t nowNs)
{
    if (parser.intact)
        parser.frames.push_back({parser.prefix.ullNumber, nowNs - parser.prefix.llPublishedNs});
    else
        ++parser.damaged;
    parser.inFrame = false;
    parser.intact = true;
    parser.subHeaderFill = 0;
}

// Takes frame bytes of the current message, no more than the frame lacks.
void TakeFrameBytes(MediaParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs)
{
    size_t done = 0;
    if (parser.position < sizeof parser.prefixBytes) {
        done = std::min(bytes, sizeof parser.prefixBytes - parser.position);
        memcpy(parser.prefixBytes + parser.position, data, done);
        if (parser.position + done == sizeof parser.prefixBytes)
            CheckPrefix(parser);
    }
    if (parser.intact && done < bytes &&
        memcmp(data + done, FrameTail(parser.prefix.ullNumber, parser.position + done), bytes - done) != 0)
        parser.intact = false;
    parser.position += static_cast<uint32_t>(bytes);
    if (parser.position == parser.length)
        EndFrame(parser, nowNs);
}

// Takes body bytes of a media message and returns how many.
size_t TakeMediaBytes(MediaParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs)
{
    if (parser.inFrame) {
        const size_t part = std::min<size_t>(bytes, parser.length - parser.position);
        TakeFrameBytes(parser, data, part, nowNs);
        return part;
    }
    if (parser.subHeaderFill == 0 && parser.bodyLeft != parser.header.ulBodyLength)
        parser.intact = false; // a second frame in one message
    parser.subHeader[parser.subHeaderFill++] = *data;
    if (parser.subHeaderFill == SubHeaderBytes(parser))
        StartFrame(parser);
    if (parser.inFrame && parser.length == 0)
        EndFrame(parser, nowNs);
    return 1;
}

// A frame ends where a message ends, and only full messages are continued.
void EndMessage(MediaParser& parser)
{
    parser.headerFill = 0;
    if (parser.header.usMessageId == kMediaData && parser.inFrame &&
        parser.header.ulBodyLength != kVideoBodyBytes)
        parser.intact = false;
    if (parser.header.usMessageId == kMediaData && !parser.inFrame && parser.subHeaderFill > 0) {
        ++parser.damaged;
        parser.subHeaderFill = 0;
    }
}

} // namespace

void ParseMedia(MediaParser& parser, const uint8_t* data, size_t bytes, int64_t nowNs)
{
    while (bytes > 0) {
        size_t taken;
        if (parser.headerFill < kHeaderBytes) {
            taken = std::min(bytes, kHeaderBytes - parser.headerFill);
            memcpy(parser.headerBytes + parser.headerFill, data, taken);
            parser.headerFill += taken;
            if (parser.headerFill == kHeaderBytes)
                StartMessage(parser);
        } else {
            taken = std::min<size_t>(bytes, parser.bodyLeft);
            if (parser.header.usMessageId == kMediaData)
                taken = TakeMediaBytes(parser, data, taken, nowNs);
            parser.bodyLeft -= static_cast<uint32_t>(taken);
        }
        if (parser.headerFill == kHeaderBytes && parser.bodyLeft == 0)
            EndMessage(parser);
        data += taken;
        bytes -= taken;
    }
}
