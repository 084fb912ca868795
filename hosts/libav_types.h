// Owners of FFmpeg's objects, and its error numbers as exceptions of one line.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <stdexcept>
#include <string>

struct LibavDeleter {
    void operator()(AVFormatContext* object) const { avformat_close_input(&object); }
    void operator()(AVCodecContext* object) const { avcodec_free_context(&object); }
    void operator()(AVPacket* object) const { av_packet_free(&object); }
    void operator()(AVFrame* object) const { av_frame_free(&object); }
    void operator()(AVBSFContext* object) const { av_bsf_free(&object); }
    void operator()(SwsContext* object) const { sws_freeContext(object); }
    void operator()(SwrContext* object) const { swr_free(&object); }
};
template <typename T> using LibavOwner = std::unique_ptr<T, LibavDeleter>;

inline std::string LibavErrorText(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof text);
    return text;
}

// Throws "what: reason" for a negative result; returns the others.
inline int CheckLibav(int result, const std::string& what)
{
    if (result < 0)
        throw std::runtime_error(what + ": " + LibavErrorText(result));
    return result;
}

// Allocations of FFmpeg fail with null.
template <typename T> LibavOwner<T> OwnLibav(T* object)
{
    if (object == nullptr)
        throw std::bad_alloc();
    return LibavOwner<T>(object);
}

inline LibavOwner<AVFrame> MakePicture(AVPixelFormat format, int width, int height)
{
    auto picture = OwnLibav(av_frame_alloc());
    picture->format = format;
    picture->width = width;
    picture->height = height;
    CheckLibav(av_frame_get_buffer(picture.get(), 0), "picture");
    return picture;
}

inline constexpr AVRational kMicroseconds{1, AV_TIME_BASE};
