// What a key frame says about its stream: codec, size and the parameter sets in front of the picture.
#pragma once

extern "C" {
#include <libavcodec/codec_id.h>
}

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "media/media_layout.h"

struct VideoFormat {
    AVCodecID codec = AV_CODEC_ID_NONE;
    int width = 0;
    int height = 0;
    int frameRate = 0;                  // of the sub-header; 0 when it names none
    std::vector<uint8_t> parameterSets; // Annex B, as muxers and decoders take it
    bool operator==(const VideoFormat&) const = default;
};

// Reads the format from a key frame's sub-header and payload. The size is the one that the parameter sets
// code, because the sub-header holds only its low bits. Empty for an unknown codec and for a payload
// without readable parameter sets.
std::optional<VideoFormat> ReadVideoFormat(const KeyFrameHeader& header, std::span<const uint8_t> payload);

// "H.264", "H.265".
const char* CodecText(AVCodecID codec);
