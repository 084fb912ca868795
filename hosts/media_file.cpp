#include "hosts/media_file.h"

#include <utility>

#include "common/log.h"

MediaFile::MediaFile(std::string path, AVMediaType kind) : path_(std::move(path)), kind_(kind)
{
    Open();
}

void MediaFile::Open()
{
    // A play list may name anything; only local files are played.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file,crypto,data", 0);
    AVFormatContext* format = nullptr;
    const int opened = avformat_open_input(&format, path_.c_str(), nullptr, &options);
    av_dict_free(&options);
    CheckLibav(opened, path_);
    format_.reset(format);
    CheckLibav(avformat_find_stream_info(format, nullptr), path_);
    const int index = av_find_best_stream(format, kind_, -1, -1, nullptr, 0);
    stream_ = index < 0 ? nullptr : format->streams[index];
    for (unsigned i = 0; i < format->nb_streams; ++i)
        if (format->streams[i] != stream_)
            format->streams[i]->discard = AVDISCARD_ALL;
}

AVRational MediaFile::FrameRate() const
{
    const AVRational rate = av_guess_frame_rate(format_.get(), const_cast<AVStream*>(stream_), nullptr);
    return rate.num > 0 && rate.den > 0 ? rate : AVRational{25, 1};
}

bool MediaFile::Read(AVPacket* packet)
{
    for (;;) {
        av_packet_unref(packet);
        const int result = av_read_frame(format_.get(), packet);
        if (result < 0 && result != AVERROR_EOF)
            LogWarn("%s: ends early: %s\n", path_.c_str(), LibavErrorText(result).c_str());
        if (result < 0)
            return false;
        if (packet->stream_index == stream_->index)
            return true;
    }
}

void MediaFile::Rewind()
{
    // Bare elementary streams have no times to seek by; opening them again always works.
    const int64_t start = stream_->start_time == AV_NOPTS_VALUE ? 0 : stream_->start_time;
    const bool seekable = (format_->iformat->flags & AVFMT_NOTIMESTAMPS) == 0;
    if (!seekable ||
        avformat_seek_file(format_.get(), stream_->index, INT64_MIN, start, start, AVSEEK_FLAG_BACKWARD) < 0)
        Open();
}

LibavOwner<AVCodecContext> OpenDecoder(const MediaFile& file)
{
    const AVCodecParameters* const parameters = file.stream()->codecpar;
    const AVCodec* const codec = avcodec_find_decoder(parameters->codec_id);
    if (codec == nullptr)
        throw std::runtime_error(file.path() + ": no decoder for " + avcodec_get_name(parameters->codec_id));
    auto decoder = OwnLibav(avcodec_alloc_context3(codec));
    CheckLibav(avcodec_parameters_to_context(decoder.get(), parameters), file.path());
    decoder->pkt_timebase = file.stream()->time_base;
    CheckLibav(avcodec_open2(decoder.get(), codec, nullptr), file.path());
    return decoder;
}
