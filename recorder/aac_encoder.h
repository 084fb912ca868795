// Turns the camera's A-law audio into AAC for players that know no A-law.
//
// The encoder wants blocks of its own size, so samples are collected; sound that arrives later than the
// samples so far account for is preceded by silence, and sound that would overtake them is left out, so
// that picture and sound stay together. Thread-bound; throws Failure.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

// One A-law byte as a sample between -1 and 1.
float DecodeAlaw(uint8_t byte);

class AacEncoder {
  public:
    // Takes each packet, stamped in samples, for the time of the call.
    using PacketSink = std::function<void(AVPacket*)>;

    AacEncoder();
    ~AacEncoder();

    [[nodiscard]] const AVCodecContext* context() const { return context_.get(); }
    void Encode(std::span<const uint8_t> samples, int64_t stampUs, const PacketSink& sink);
    // Encodes what is left, the last block filled up with silence.
    void Flush(const PacketSink& sink);

  private:
    void EncodeBlocks(const PacketSink& sink);
    void EncodeFrame(const AVFrame* frame, const PacketSink& sink);
    void AddSilence(int64_t samples, const PacketSink& sink);

    struct ContextDelete {
        void operator()(AVCodecContext* context) const;
    };
    struct FrameDelete {
        void operator()(AVFrame* frame) const;
    };
    struct PacketDelete {
        void operator()(AVPacket* packet) const;
    };
    std::unique_ptr<AVCodecContext, ContextDelete> context_;
    std::unique_ptr<AVFrame, FrameDelete> frame_;
    std::unique_ptr<AVPacket, PacketDelete> packet_;
    std::vector<float> pending_;
    int64_t position_ = 0; // sample number of pending_'s first
};
