#include "tests/recorder/clip.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

// Called by the leak checker where there is one. The H.265 encoder, which only the tests use, never frees a
// copy of its settings.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libx265";
}

namespace {

struct AvDelete {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
template <typename T> using AvPtr = std::unique_ptr<T, AvDelete>;

void Paint(AVFrame& picture, int number)
{
    for (int plane = 0; plane < 3; plane++)
        for (int y = 0; y < picture.height >> (plane > 0); y++)
            for (int x = 0; x < picture.width >> (plane > 0); x++)
                picture.data[plane][y * picture.linesize[plane] + x] =
                    static_cast<uint8_t>(x * (plane + 1) + (y ^ number * 3));
}

AvPtr<AVCodecContext> OpenEncoder(AVCodecID codec, int width, int height, int gop)
{
    const AVCodec* encoder = avcodec_find_encoder_by_name(codec == AV_CODEC_ID_H264 ? "libx264" : "libx265");
    AvPtr<AVCodecContext> context(avcodec_alloc_context3(encoder));
    context->width = width;
    context->height = height;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {1, 25};
    context->gop_size = gop;
    context->max_b_frames = 0;
    context->thread_count = 1;
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context->priv_data, "tune", "zerolatency", 0);
    av_opt_set(context->priv_data, "x265-params", "log-level=none:pools=none:frame-threads=1", 0);
    if (avcodec_open2(context.get(), encoder, nullptr) != 0)
        throw std::runtime_error("no encoder for the test's clip");
    return context;
}

void Decode(AVCodecContext* decoder, const AVPacket* packet, AVFrame* frame, ReadTrack& track)
{
    EXPECT_EQ(avcodec_send_packet(decoder, packet), 0);
    while (avcodec_receive_frame(decoder, frame) == 0)
        track.decoded += frame->decode_error_flags == 0 ? 1 : 0;
}

} // namespace

std::vector<ClipFrame> EncodeClip(AVCodecID codec, int width, int height, int frames, int gop)
{
    av_log_set_level(AV_LOG_QUIET);
    const AvPtr<AVCodecContext> context = OpenEncoder(codec, width, height, gop);
    const AvPtr<AVFrame> picture(av_frame_alloc());
    picture->width = width;
    picture->height = height;
    picture->format = context->pix_fmt;
    av_frame_get_buffer(picture.get(), 0);
    const AvPtr<AVPacket> packet(av_packet_alloc());
    std::vector<ClipFrame> clip;
    for (int i = 0; i <= frames; i++) {
        if (i < frames) {
            av_frame_make_writable(picture.get());
            Paint(*picture, i);
            picture->pts = i;
        }
        avcodec_send_frame(context.get(), i < frames ? picture.get() : nullptr);
        while (avcodec_receive_packet(context.get(), packet.get()) == 0)
            clip.push_back({(packet->flags & AV_PKT_FLAG_KEY) != 0,
                            {reinterpret_cast<char*>(packet->data), static_cast<size_t>(packet->size)}});
    }
    return clip;
}

std::vector<ReadTrack> ReadBack(const std::string& path)
{
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) != 0)
        return {};
    const AvPtr<AVFormatContext> format(opened);
    avformat_find_stream_info(opened, nullptr);
    std::vector<ReadTrack> tracks;
    std::vector<AvPtr<AVCodecContext>> decoders;
    for (unsigned i = 0; i < opened->nb_streams; i++) {
        const AVCodecParameters& parameters = *opened->streams[i]->codecpar;
        tracks.push_back({parameters.codec_id, parameters.width, parameters.height, {}, {}});
        decoders.emplace_back(avcodec_alloc_context3(nullptr));
        avcodec_parameters_to_context(decoders.back().get(), &parameters);
        decoders.back()->thread_count = 1;
        avcodec_open2(decoders.back().get(), avcodec_find_decoder(parameters.codec_id), nullptr);
    }
    const AvPtr<AVPacket> packet(av_packet_alloc());
    const AvPtr<AVFrame> frame(av_frame_alloc());
    for (; av_read_frame(opened, packet.get()) == 0; av_packet_unref(packet.get())) {
        const auto index = static_cast<size_t>(packet->stream_index);
        tracks[index].stamps.push_back(static_cast<double>(packet->pts) *
                                       av_q2d(opened->streams[index]->time_base));
        tracks[index].bytes.emplace_back(reinterpret_cast<char*>(packet->data), packet->size);
        Decode(decoders[index].get(), packet.get(), frame.get(), tracks[index]);
    }
    for (size_t i = 0; i < tracks.size(); i++)
        Decode(decoders[i].get(), nullptr, frame.get(), tracks[i]);
    return tracks;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TempFolder::TempFolder()
{
    char name[] = "/tmp/velmora_recorder_XXXXXX";
    if (mkdtemp(name) == nullptr)
        throw std::runtime_error("no folder for the test's files");
    path = name;
}
TempFolder::~TempFolder()
{
    std::filesystem::remove_all(path);
}
