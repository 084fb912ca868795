#include "recorder/aac_encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cstring>
#include <string>

#include "recorder/container.h"
#include "recorder/failure.h"

namespace {

constexpr int64_t kBitRate = 24'000;
// Sound may be this far from where the samples so far put it before it is moved.
constexpr int64_t kToleratedSamples = kAudioSampleRate / 10;

void Check(int result, const char* what)
{
    if (result >= 0)
        return;
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(result, text, sizeof text);
    throw Failure(kExitLocal, std::string("cannot encode audio: ") + what + ": " + text);
}

} // namespace

// Sign, three bits of exponent, four of mantissa, every other bit inverted on the line.
float DecodeAlaw(uint8_t byte)
{
    const int bits = byte ^ 0x55;
    const int exponent = bits >> 4 & 7;
    int magnitude = ((bits & 0x0F) << 4) + 8;
    if (exponent > 0)
        magnitude = (magnitude + 0x100) << (exponent - 1);
    return static_cast<float>((bits & 0x80) != 0 ? magnitude : -magnitude) / 32768.0F;
}

void AacEncoder::ContextDelete::operator()(AVCodecContext* context) const
{
    avcodec_free_context(&context);
}
void AacEncoder::FrameDelete::operator()(AVFrame* frame) const
{
    av_frame_free(&frame);
}
void AacEncoder::PacketDelete::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}

AacEncoder::AacEncoder() : frame_(av_frame_alloc()), packet_(av_packet_alloc())
{
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr)
        throw Failure(kExitLocal, "this machine's libavcodec has no AAC encoder");
    context_.reset(avcodec_alloc_context3(codec));
    context_->sample_rate = kAudioSampleRate;
    context_->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    context_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context_->bit_rate = kBitRate;
    context_->time_base = {1, kAudioSampleRate};
    context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER; // containers keep the configuration apart
    Check(avcodec_open2(context_.get(), codec, nullptr), "open");
    frame_->nb_samples = context_->frame_size;
    frame_->format = context_->sample_fmt;
    frame_->sample_rate = kAudioSampleRate;
    Check(av_channel_layout_copy(&frame_->ch_layout, &context_->ch_layout), "layout");
    Check(av_frame_get_buffer(frame_.get(), 0), "buffer");
}

AacEncoder::~AacEncoder() = default;

void AacEncoder::Encode(std::span<const uint8_t> samples, int64_t stampUs, const PacketSink& sink)
{
    const int64_t wanted = stampUs * kAudioSampleRate / 1'000'000;
    const int64_t late = wanted - (position_ + static_cast<int64_t>(pending_.size()));
    if (late < -kToleratedSamples)
        return;
    if (late > kToleratedSamples)
        AddSilence(late, sink);
    std::ranges::transform(samples, std::back_inserter(pending_), DecodeAlaw);
    EncodeBlocks(sink);
}

// Block by block: a camera may have been silent for hours.
void AacEncoder::AddSilence(int64_t samples, const PacketSink& sink)
{
    for (const int64_t block = context_->frame_size; samples > 0; samples -= block) {
        pending_.resize(pending_.size() + static_cast<size_t>(std::min(samples, block)));
        EncodeBlocks(sink);
    }
}

void AacEncoder::EncodeBlocks(const PacketSink& sink)
{
    const auto block = static_cast<size_t>(context_->frame_size);
    while (pending_.size() >= block) {
        Check(av_frame_make_writable(frame_.get()), "buffer");
        memcpy(frame_->data[0], pending_.data(), block * sizeof(float));
        pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(block));
        frame_->pts = position_;
        position_ += static_cast<int64_t>(block);
        EncodeFrame(frame_.get(), sink);
    }
}

void AacEncoder::EncodeFrame(const AVFrame* frame, const PacketSink& sink)
{
    Check(avcodec_send_frame(context_.get(), frame), "send");
    for (;;) {
        const int result = avcodec_receive_packet(context_.get(), packet_.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
            return;
        Check(result, "receive");
        sink(packet_.get());
    }
}

void AacEncoder::Flush(const PacketSink& sink)
{
    if (!pending_.empty())
        pending_.resize(static_cast<size_t>(context_->frame_size));
    EncodeBlocks(sink);
    EncodeFrame(nullptr, sink);
}
