#include "recorder/video_format.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <memory>

namespace {

constexpr uint8_t kStartCode[] = {0, 0, 1};

constexpr struct CodecRow {
    MediaCodec wire;
    AVCodecID codec;
    const char* text;
} kCodecs[] = {
    {kCodecH264, AV_CODEC_ID_H264, "H.264"},
    {kCodecH265, AV_CODEC_ID_HEVC, "H.265"},
};

// H.264 keeps the NAL type in the low five bits, H.265 in bits 1 to 6.
bool IsParameterSet(AVCodecID codec, uint8_t nalHeader)
{
    if (codec == AV_CODEC_ID_H264)
        return (nalHeader & 0x1F) == 7 || (nalHeader & 0x1F) == 8;
    const int type = nalHeader >> 1 & 0x3F;
    return type >= 32 && type <= 34;
}

std::vector<uint8_t> ParameterSets(AVCodecID codec, std::span<const uint8_t> payload)
{
    std::vector<uint8_t> sets;
    const auto next = [&payload](auto from) {
        return std::search(from, payload.end(), std::begin(kStartCode), std::end(kStartCode));
    };
    for (auto start = next(payload.begin()); start != payload.end();) {
        const auto nal = start + sizeof kStartCode;
        const auto end = next(nal);
        if (nal != payload.end() && IsParameterSet(codec, *nal)) {
            auto last = end; // zeros before the next start code belong to that, not to this unit
            while (last != nal && *(last - 1) == 0)
                --last;
            sets.insert(sets.end(), {0, 0, 0, 1});
            sets.insert(sets.end(), nal, last);
        }
        start = end;
    }
    return sets;
}

struct ParserDelete {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
struct ContextDelete {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};

bool ReadSize(VideoFormat& format, std::span<const uint8_t> payload)
{
    const std::unique_ptr<AVCodecParserContext, ParserDelete> parser(av_parser_init(format.codec));
    const std::unique_ptr<AVCodecContext, ContextDelete> context(
        avcodec_alloc_context3(avcodec_find_decoder(format.codec)));
    if (parser == nullptr || context == nullptr)
        return false;
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    // Parsers read beyond the end in whole words.
    std::vector<uint8_t> padded(payload.begin(), payload.end());
    padded.resize(payload.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    uint8_t* out = nullptr;
    int outBytes = 0;
    av_parser_parse2(parser.get(), context.get(), &out, &outBytes, padded.data(),
                     static_cast<int>(payload.size()), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    format.width = parser->width;
    format.height = parser->height;
    return format.width > 0 && format.height > 0;
}

} // namespace

std::optional<VideoFormat> ReadVideoFormat(const KeyFrameHeader& header, std::span<const uint8_t> payload)
{
    const auto* row = std::ranges::find(kCodecs, header.ucCodec & 0x0F, &CodecRow::wire);
    if (row == std::end(kCodecs))
        return std::nullopt;
    VideoFormat format;
    format.codec = row->codec;
    format.frameRate = header.ucFrameRate;
    format.parameterSets = ParameterSets(format.codec, payload);
    if (format.parameterSets.empty() || !ReadSize(format, payload))
        return std::nullopt;
    return format;
}

const char* CodecText(AVCodecID codec)
{
    const auto* row = std::ranges::find(kCodecs, codec, &CodecRow::codec);
    return row == std::end(kCodecs) ? "unknown" : row->text;
}
