// A Matroska or MP4 file with one video track and, where the camera sends sound, one audio track.
//
// Video is stored as received. Matroska stores the A-law bytes as they came; MP4, whose players know no
// A-law, gets AAC. Stamps are microseconds from the start of the file and rise within a track.
// Thread-bound; throws Failure.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "recorder/output_file.h"
#include "recorder/video_format.h"

inline constexpr int kAudioSampleRate = 8000; // G.711 A-law, one channel, one byte a sample

enum class ContainerKind { kMatroska, kMp4 };

class AacEncoder;
struct AVFormatContext;
struct AVIOContext;
struct AVPacket;

class Container {
  public:
    Container(OutputFile file, ContainerKind kind, const VideoFormat& video, bool withAudio);
    ~Container();
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    void WriteVideo(std::span<const uint8_t> frame, int64_t stampUs, bool isKeyFrame);
    // Ignored in a container without an audio track.
    void WriteAudio(std::span<const uint8_t> samples, int64_t stampUs);
    // Writes the index; only now does the file play everywhere.
    void Finish();

  private:
    void OpenIo();
    void AddVideoTrack(const VideoFormat& video);
    void AddAudioTrack(ContainerKind kind);
    void WritePacket(std::span<const uint8_t> data, int track, int64_t stampUs, int flags);
    void Submit(AVPacket* packet);
    void SubmitAac(AVPacket* packet);
    void Check(int result) const;

    struct FormatDelete {
        void operator()(AVFormatContext* format) const;
    };
    struct IoDelete {
        void operator()(AVIOContext* io) const;
    };
    struct PacketDelete {
        void operator()(AVPacket* packet) const;
    };

    OutputFile file_;
    std::unique_ptr<AVIOContext, IoDelete> io_;
    std::unique_ptr<AVFormatContext, FormatDelete> format_; // freed before io_, which it uses
    std::unique_ptr<AVPacket, PacketDelete> packet_;
    std::unique_ptr<AacEncoder> aac_;
    int audioTrack_ = -1;
};
