// A file's H.264 or H.265 video as access units in the form of ring records (hosts/annexb.h), from its
// first key frame on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "hosts/annexb.h"
#include "hosts/media_file.h"

struct TimedAccessUnit {
    AccessUnit unit;
    int64_t mediaUs; // since the first key frame, in display order
};

class AccessUnitReader {
  public:
    // Throws std::runtime_error when the file cannot be read. Frames may have `limit` bytes.
    AccessUnitReader(const std::string& path, MediaCodec codec, size_t limit);

    // The next frame; nothing at the end of the file. A frame that does not fit the wire comes with its
    // problem set and no bytes.
    std::optional<TimedAccessUnit> Next();
    void Rewind();

    // Time of the first key frame on the file's own clock; set when it has been read.
    [[nodiscard]] int64_t OriginUs() const { return originUs_.value_or(0); }
    [[nodiscard]] const MediaFile& file() const { return file_; }

  private:
    bool ReadFiltered();
    int64_t TimeOfPacket();

    MediaFile file_;
    const MediaCodec codec_;
    const size_t limit_;
    LibavOwner<AVBSFContext> toAnnexB_;
    LibavOwner<AVPacket> packet_;
    ParameterSets headerSets_; // the container's
    ParameterSets sets_;
    bool atEnd_ = false;
    int64_t packets_ = 0; // since the last rewind
    bool started_ = false;
    std::optional<int64_t> originUs_;
};

// The codec of rings, or nothing for any other.
std::optional<MediaCodec> RingCodec(AVCodecID id);
