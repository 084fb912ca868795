#include "hosts/access_unit_reader.h"

#include <utility>

namespace {

LibavOwner<AVBSFContext> OpenAnnexBFilter(const MediaFile& file, MediaCodec codec)
{
    const char* const name = codec == kCodecH264 ? "h264_mp4toannexb" : "hevc_mp4toannexb";
    AVBSFContext* filter = nullptr;
    CheckLibav(av_bsf_alloc(av_bsf_get_by_name(name), &filter), name);
    LibavOwner<AVBSFContext> owner(filter);
    CheckLibav(avcodec_parameters_copy(filter->par_in, file.stream()->codecpar), name);
    filter->time_base_in = file.stream()->time_base;
    CheckLibav(av_bsf_init(filter), file.path());
    return owner;
}

} // namespace

std::optional<MediaCodec> RingCodec(AVCodecID id)
{
    if (id == AV_CODEC_ID_H264)
        return kCodecH264;
    if (id == AV_CODEC_ID_HEVC)
        return kCodecH265;
    return std::nullopt;
}

AccessUnitReader::AccessUnitReader(const std::string& path, MediaCodec codec, size_t limit)
    : file_(path, AVMEDIA_TYPE_VIDEO), codec_(codec), limit_(limit),
      toAnnexB_(OpenAnnexBFilter(file_, codec)), packet_(OwnLibav(av_packet_alloc()))
{
    const AVCodecParameters* const parameters = toAnnexB_->par_out;
    if (parameters->extradata_size > 0)
        CollectParameterSets(codec, {parameters->extradata, static_cast<size_t>(parameters->extradata_size)},
                             &headerSets_);
    sets_ = headerSets_;
}

// The filter may keep packets back or give several for one.
bool AccessUnitReader::ReadFiltered()
{
    for (;;) {
        const int result = av_bsf_receive_packet(toAnnexB_.get(), packet_.get());
        if (result == AVERROR_EOF)
            return false;
        if (result != AVERROR(EAGAIN)) {
            CheckLibav(result, file_.path());
            return true;
        }
        atEnd_ = atEnd_ || !file_.Read(packet_.get());
        CheckLibav(av_bsf_send_packet(toAnnexB_.get(), atEnd_ ? nullptr : packet_.get()), file_.path());
    }
}

// Bare elementary streams come without times: their frames follow each other at the frame rate.
int64_t AccessUnitReader::TimeOfPacket()
{
    const int64_t index = packets_++;
    if (packet_->pts != AV_NOPTS_VALUE)
        return av_rescale_q(packet_->pts, toAnnexB_->time_base_out, kMicroseconds);
    return av_rescale_q(index, av_inv_q(file_.FrameRate()), kMicroseconds);
}

std::optional<TimedAccessUnit> AccessUnitReader::Next()
{
    while (ReadFiltered()) {
        const int64_t timeUs = TimeOfPacket();
        const bool mayReorder = packet_->pts == AV_NOPTS_VALUE && file_.stream()->codecpar->video_delay > 0;
        AccessUnit unit =
            NormaliseAccessUnit(codec_, {packet_->data, static_cast<size_t>(packet_->size)}, limit_, &sets_);
        av_packet_unref(packet_.get());
        if (mayReorder)
            unit = {.bytes = {}, .keyFrame = false, .problem = "its frames may be reordered"};
        if (!started_ && !unit.keyFrame && unit.problem == nullptr)
            continue; // nothing can be decoded before the first key frame
        started_ = true;
        if (!originUs_)
            originUs_ = timeUs;
        return TimedAccessUnit{std::move(unit), timeUs - *originUs_};
    }
    return std::nullopt;
}

void AccessUnitReader::Rewind()
{
    av_bsf_flush(toAnnexB_.get());
    file_.Rewind();
    atEnd_ = false;
    sets_ = headerSets_;
    packets_ = 0;
    started_ = false;
}
