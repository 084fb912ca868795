#include "recorder/container.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstring>
#include <new>
#include <string>

#include "recorder/aac_encoder.h"
#include "recorder/failure.h"

namespace {

constexpr int kVideoTrack = 0;
constexpr int kIoBufferBytes = 64 * 1024;
constexpr AVRational kMicrosecondBase = {1, 1'000'000};
// Tracks are interleaved by their stamps. When one falls silent the other waits no longer than this.
constexpr int64_t kInterleaveUs = 2'000'000;

// The muxer's way out. Nothing may be thrown through the library.
int WriteOut(void* file, uint8_t* bytes, int count)
{
    const int error = static_cast<OutputFile*>(file)->Write({bytes, static_cast<size_t>(count)});
    return error == 0 ? count : AVERROR(error);
}

int64_t SeekOut(void* file, int64_t offset, int whence)
{
    return (whence & AVSEEK_SIZE) != 0 ? AVERROR(ENOSYS)
                                       : static_cast<OutputFile*>(file)->Seek(offset, whence);
}

void SetExtradata(AVCodecParameters* parameters, std::span<const uint8_t> bytes)
{
    parameters->extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters->extradata == nullptr)
        throw std::bad_alloc();
    memcpy(parameters->extradata, bytes.data(), bytes.size());
    parameters->extradata_size = static_cast<int>(bytes.size());
}

AVStream* NewTrack(AVFormatContext* format, AVMediaType type, AVCodecID codec)
{
    AVStream* track = avformat_new_stream(format, nullptr);
    if (track == nullptr)
        throw std::bad_alloc();
    track->codecpar->codec_type = type;
    track->codecpar->codec_id = codec;
    return track;
}

} // namespace

void Container::FormatDelete::operator()(AVFormatContext* format) const
{
    avformat_free_context(format);
}
void Container::PacketDelete::operator()(AVPacket* packet) const
{
    av_packet_free(&packet);
}
void Container::IoDelete::operator()(AVIOContext* io) const
{
    av_freep(&io->buffer);
    avio_context_free(&io);
}

Container::Container(OutputFile file, ContainerKind kind, const VideoFormat& video, bool withAudio)
    : file_(std::move(file)), packet_(av_packet_alloc())
{
    if (kind == ContainerKind::kMp4 && !file_.isRegular())
        throw Failure(kExitLocal, "cannot write " + file_.path() + ": MP4 needs a regular file");
    AVFormatContext* format = nullptr;
    Check(avformat_alloc_output_context2(&format, nullptr, kind == ContainerKind::kMp4 ? "mp4" : "matroska",
                                         nullptr));
    format_.reset(format);
    OpenIo();
    AddVideoTrack(video);
    if (withAudio)
        AddAudioTrack(kind);
    Check(avformat_write_header(format_.get(), nullptr));
}

Container::~Container() = default;

void Container::Check(int result) const
{
    if (result >= 0)
        return;
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(result, text, sizeof text);
    throw Failure(kExitLocal, "cannot write " + file_.path() + ": " + text);
}

void Container::OpenIo()
{
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    if (buffer == nullptr)
        throw std::bad_alloc();
    io_.reset(avio_alloc_context(buffer, kIoBufferBytes, 1, &file_, nullptr, WriteOut,
                                 file_.isRegular() ? SeekOut : nullptr));
    if (io_ == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    format_->pb = io_.get();
    format_->flags |= AVFMT_FLAG_CUSTOM_IO;
    format_->max_interleave_delta = kInterleaveUs;
}

void Container::AddVideoTrack(const VideoFormat& video)
{
    AVStream* track = NewTrack(format_.get(), AVMEDIA_TYPE_VIDEO, video.codec);
    track->codecpar->width = video.width;
    track->codecpar->height = video.height;
    // Some players show H.265 only under this name, which keeps the parameter sets in the index.
    if (video.codec == AV_CODEC_ID_HEVC && strcmp(format_->oformat->name, "mp4") == 0)
        track->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
    if (video.frameRate > 0)
        track->avg_frame_rate = {video.frameRate, 1};
    track->time_base = {1, 90'000};
    SetExtradata(track->codecpar, video.parameterSets);
}

void Container::AddAudioTrack(ContainerKind kind)
{
    const bool asAac = kind == ContainerKind::kMp4;
    AVStream* track =
        NewTrack(format_.get(), AVMEDIA_TYPE_AUDIO, asAac ? AV_CODEC_ID_AAC : AV_CODEC_ID_PCM_ALAW);
    audioTrack_ = track->index;
    track->time_base = {1, kAudioSampleRate};
    if (asAac) {
        aac_ = std::make_unique<AacEncoder>();
        Check(avcodec_parameters_from_context(track->codecpar, aac_->context()));
        return;
    }
    track->codecpar->sample_rate = kAudioSampleRate;
    track->codecpar->ch_layout = AV_CHANNEL_LAYOUT_MONO;
    track->codecpar->format = AV_SAMPLE_FMT_S16;
    track->codecpar->bits_per_coded_sample = 8;
    track->codecpar->bit_rate = int64_t{kAudioSampleRate} * 8;
    track->codecpar->block_align = 1;
}

void Container::Submit(AVPacket* packet)
{
    Check(av_interleaved_write_frame(format_.get(), packet));
}

void Container::WritePacket(std::span<const uint8_t> data, int track, int64_t stampUs, int flags)
{
    AVPacket* packet = packet_.get();
    Check(av_new_packet(packet, static_cast<int>(data.size())));
    memcpy(packet->data, data.data(), data.size());
    packet->stream_index = track;
    packet->flags = flags;
    packet->pts = av_rescale_q(stampUs, kMicrosecondBase, format_->streams[track]->time_base);
    packet->dts = packet->pts;
    Submit(packet);
}

void Container::WriteVideo(std::span<const uint8_t> frame, int64_t stampUs, bool isKeyFrame)
{
    WritePacket(frame, kVideoTrack, stampUs, isKeyFrame ? AV_PKT_FLAG_KEY : 0);
}

void Container::WriteAudio(std::span<const uint8_t> samples, int64_t stampUs)
{
    if (audioTrack_ < 0)
        return;
    if (aac_ == nullptr)
        return WritePacket(samples, audioTrack_, stampUs, AV_PKT_FLAG_KEY);
    aac_->Encode(samples, stampUs, [this](AVPacket* packet) { SubmitAac(packet); });
}

void Container::SubmitAac(AVPacket* packet)
{
    packet->stream_index = audioTrack_;
    av_packet_rescale_ts(packet, {1, kAudioSampleRate}, format_->streams[audioTrack_]->time_base);
    Submit(packet);
}

void Container::Finish()
{
    if (aac_ != nullptr)
        aac_->Flush([this](AVPacket* packet) { SubmitAac(packet); });
    Check(av_write_trailer(format_.get()));
    avio_flush(io_.get());
    Check(io_->error);
    if (const int error = file_.Close())
        file_.ThrowError(error);
}
