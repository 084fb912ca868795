#include "hosts/video_encoder.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace {

LibavOwner<AVCodecContext> OpenEncoder(const StreamFacts& facts)
{
    const bool h264 = facts.codec == kCodecH264;
    const char* const name = h264 ? "libx264" : "libx265";
    const AVCodec* const codec = avcodec_find_encoder_by_name(name);
    if (codec == nullptr)
        throw std::runtime_error(std::string(name) + ": FFmpeg comes without this encoder");
    auto encoder = OwnLibav(avcodec_alloc_context3(codec));
    encoder->width = facts.usWidth;
    encoder->height = facts.usHeight;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, facts.iFrameRate};
    encoder->framerate = {facts.iFrameRate, 1};
    encoder->gop_size = facts.iIFrameInterval;
    encoder->max_b_frames = 0;
    encoder->bit_rate = facts.iBitRate;
    // One second of buffer keeps even a key frame within a quarter of the ring.
    encoder->rc_max_rate = facts.iBitRate;
    encoder->rc_buffer_size = facts.iBitRate;
    av_opt_set(encoder->priv_data, "preset", "ultrafast", 0);
    av_opt_set(encoder->priv_data, "tune", "zerolatency", 0);
    av_opt_set(encoder->priv_data, "forced-idr", "1", 0);
    if (!h264) // libx265 writes to standard error by itself
        av_opt_set(encoder->priv_data, "x265-params", "log-level=error", 0);
    CheckLibav(avcodec_open2(encoder.get(), codec, nullptr), name);
    return encoder;
}

LibavOwner<AVFrame> MakePicture(const AVCodecContext& encoder)
{
    auto picture = OwnLibav(av_frame_alloc());
    picture->format = encoder.pix_fmt;
    picture->width = encoder.width;
    picture->height = encoder.height;
    CheckLibav(av_frame_get_buffer(picture.get(), 0), "picture");
    return picture;
}

} // namespace

VideoEncoder::VideoEncoder(const StreamFacts& facts, size_t frameLimit)
    : codec_(facts.codec), frameLimit_(frameLimit), encoder_(OpenEncoder(facts)),
      scaled_(MakePicture(*encoder_)), packet_(OwnLibav(av_packet_alloc()))
{
}

void VideoEncoder::Scale(const AVFrame& picture)
{
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), picture.width, picture.height, static_cast<AVPixelFormat>(picture.format),
        scaled_->width, scaled_->height, AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    if (!scaler_)
        throw std::runtime_error("pictures of this format cannot be converted");
    CheckLibav(av_frame_make_writable(scaled_.get()), "picture"); // the encoder may hold the last one
    CheckLibav(sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, scaled_->data,
                         scaled_->linesize),
               "picture");
}

AccessUnit VideoEncoder::Encode(const AVFrame& picture, bool keyFrame)
{
    Scale(picture);
    scaled_->pts = count_++;
    scaled_->pict_type = keyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    CheckLibav(avcodec_send_frame(encoder_.get(), scaled_.get()), "encoder");
    const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
    if (result == AVERROR(EAGAIN))
        return {.bytes = {}, .keyFrame = false, .problem = "the encoder gave no frame"};
    CheckLibav(result, "encoder");
    AccessUnit unit =
        NormaliseAccessUnit(codec_, {packet_->data, static_cast<size_t>(packet_->size)}, frameLimit_, &sets_);
    av_packet_unref(packet_.get());
    return unit;
}
