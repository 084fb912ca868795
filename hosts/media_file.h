// One stream of a media file: its packets in file order, from the first one again after Rewind.
//
// Failures throw std::runtime_error with "FILE: reason".
#pragma once

#include <cstdint>
#include <string>

#include "hosts/libav_types.h"

class MediaFile {
  public:
    // Opens the best stream of the kind; stream() is null when the file has none.
    MediaFile(std::string path, AVMediaType kind);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] const AVStream* stream() const { return stream_; }
    // Frames a second as the container tells; 25 when it does not.
    [[nodiscard]] AVRational FrameRate() const;

    // Reads the next packet of the stream. Returns false at the end of the file, or of
    // what can be read of it (logged).
    bool Read(AVPacket* packet);
    void Rewind();

  private:
    void Open();

    std::string path_;
    AVMediaType kind_;
    LibavOwner<AVFormatContext> format_;
    AVStream* stream_ = nullptr;
};

// A decoder of the stream, opened.
LibavOwner<AVCodecContext> OpenDecoder(const MediaFile& file);
