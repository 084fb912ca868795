#include "hosts/video_encoder.h"

#include <algorithm>

extern "C" {
#include <libavutil/opt.h>
}

namespace {

constexpr char kVariableRateQuality[] = "30";

LibavOwner<AVCodecContext> OpenEncoder(const StreamFacts& facts, size_t frameLimit)
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
    // At a variable rate the picture keeps its quality, below the bit rate wherever that is enough.
    const bool variable = facts.ucBitRateControl == kVariableBitRate;
    encoder->bit_rate = variable ? 0 : facts.iBitRate;
    // One second of buffer keeps even a key frame within a quarter of the ring, less of it within the limit.
    encoder->rc_max_rate = facts.iBitRate;
    encoder->rc_buffer_size =
        static_cast<int>(std::min<size_t>(static_cast<size_t>(facts.iBitRate), 6 * frameLimit));
    av_opt_set(encoder->priv_data, "preset", "ultrafast", 0);
    av_opt_set(encoder->priv_data, "tune", "zerolatency", 0);
    av_opt_set(encoder->priv_data, "forced-idr", "1", 0);
    if (variable)
        av_opt_set(encoder->priv_data, "crf", kVariableRateQuality, 0);
    // By itself libx265 writes to standard error, makes key frames that are no IDR, and hands each frame
    // from thread to thread, which costs more time than it saves on a busy machine.
    if (!h264)
        av_opt_set(encoder->priv_data, "x265-params",
                   "log-level=error:open-gop=0:pools=none:wpp=0:frame-threads=1", 0);
    CheckLibav(avcodec_open2(encoder.get(), codec, nullptr), name);
    return encoder;
}

} // namespace

VideoEncoder::VideoEncoder(const StreamFacts& facts, size_t frameLimit)
    : codec_(facts.codec), frameLimit_(frameLimit), encoder_(OpenEncoder(facts, frameLimit)),
      scaled_(MakePicture(AV_PIX_FMT_YUV420P, encoder_->width, encoder_->height)),
      packet_(OwnLibav(av_packet_alloc()))
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
