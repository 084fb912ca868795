// An H.264 or H.265 encoder set up for a camera: no reordering, no delay, parameter sets with every key
// frame, and key frames on demand.
#pragma once

#include <cstdint>

#include "hosts/annexb.h"
#include "hosts/libav_types.h"
#include "hosts/stream_facts.h"

class VideoEncoder {
  public:
    // Throws std::runtime_error when the encoder cannot be opened.
    VideoEncoder(const StreamFacts& facts, size_t frameLimit);

    // Encodes a picture of any size and pixel format. The result has a problem set when the encoder
    // gave no frame or one that does not fit the wire.
    AccessUnit Encode(const AVFrame& picture, bool keyFrame);

  private:
    void Scale(const AVFrame& picture);

    const MediaCodec codec_;
    const size_t frameLimit_;
    LibavOwner<AVCodecContext> encoder_;
    LibavOwner<AVFrame> scaled_;
    LibavOwner<AVPacket> packet_;
    LibavOwner<SwsContext> scaler_;
    ParameterSets sets_;
    int64_t count_ = 0;
};
