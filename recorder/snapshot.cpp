#include "recorder/snapshot.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "recorder/failure.h"

namespace {

struct AvDelete {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
template <typename T> using AvPtr = std::unique_ptr<T, AvDelete>;

template <typename T> AvPtr<T> Own(T* object)
{
    if (object == nullptr)
        throw std::bad_alloc();
    return AvPtr<T>(object);
}

void Check(int result, const char* what)
{
    if (result >= 0)
        return;
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(result, text, sizeof text);
    throw Failure(kExitLocal, std::string("cannot ") + what + " the picture: " + text);
}

AvPtr<AVFrame> Decode(AVCodecID codec, std::span<const uint8_t> payload)
{
    const AVCodec* decoder = avcodec_find_decoder(codec);
    if (decoder == nullptr)
        throw Failure(kExitLocal, std::string("this machine's libavcodec decodes no ") + CodecText(codec));
    const auto context = Own(avcodec_alloc_context3(decoder));
    context->thread_count = 1; // a single picture: threads would only delay it
    Check(avcodec_open2(context.get(), decoder, nullptr), "decode");
    const auto packet = Own(av_packet_alloc());
    Check(av_new_packet(packet.get(), static_cast<int>(payload.size())), "decode");
    memcpy(packet->data, payload.data(), payload.size());
    Check(avcodec_send_packet(context.get(), packet.get()), "decode");
    Check(avcodec_send_packet(context.get(), nullptr), "decode"); // no more follows: hand the picture out
    auto picture = Own(av_frame_alloc());
    Check(avcodec_receive_frame(context.get(), picture.get()), "decode");
    return picture;
}

AvPtr<AVFrame> ToRgb(const AVFrame& picture)
{
    auto rgb = Own(av_frame_alloc());
    rgb->width = picture.width;
    rgb->height = picture.height;
    rgb->format = AV_PIX_FMT_RGB24;
    Check(av_frame_get_buffer(rgb.get(), 0), "convert");
    const auto scaler = Own(
        sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), rgb->width,
                       rgb->height, AV_PIX_FMT_RGB24, SWS_BILINEAR, nullptr, nullptr, nullptr));
    Check(
        sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, rgb->data, rgb->linesize),
        "convert");
    return rgb;
}

std::vector<uint8_t> EncodePng(const AVFrame& rgb)
{
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_PNG);
    if (encoder == nullptr)
        throw Failure(kExitLocal, "this machine's libavcodec has no PNG encoder");
    const auto context = Own(avcodec_alloc_context3(encoder));
    context->width = rgb.width;
    context->height = rgb.height;
    context->pix_fmt = AV_PIX_FMT_RGB24;
    context->time_base = {1, 1};
    Check(avcodec_open2(context.get(), encoder, nullptr), "encode");
    Check(avcodec_send_frame(context.get(), &rgb), "encode");
    const auto packet = Own(av_packet_alloc());
    Check(avcodec_receive_packet(context.get(), packet.get()), "encode");
    return {packet->data, packet->data + packet->size};
}

} // namespace

Picture DecodePicture(const KeyFrameHeader& header, std::span<const uint8_t> payload)
{
    const auto format = ReadVideoFormat(header, payload);
    if (!format)
        throw Failure(kExitLocal, "cannot decode the picture: no parameter sets that can be read");
    const auto picture = Decode(format->codec, payload);
    return {*format, EncodePng(*ToRgb(*picture))};
}

Picture TakeSnapshot(const HostPort& address, const Stream& stream, milliseconds timeout)
{
    const Stream* const streams[] = {&stream};
    LiveView view(address, streams, timeout);
    view.Start();
    KeyFrameHeader header{};
    std::vector<uint8_t> payload;
    while (payload.empty())
        view.Pass(TimePoint::max(), {}, [&](size_t, const Frame& frame, TimePoint) {
            if (frame.kind != kKeyFrame || !payload.empty())
                return;
            header = frame.header;
            payload.assign(frame.payload.begin(), frame.payload.end());
        });
    view.Stop();
    return DecodePicture(header, payload);
}
