#include "hosts/video_probe.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "hosts/access_unit_reader.h"

namespace {

// Counted frame by frame over the whole file.
struct Tally {
    int64_t frames = 0;
    int64_t bytes = 0;
    int64_t lastUs = -1;
    int64_t lastKeyFrame = 0;
    int64_t longestInterval = 0;

    // Returns why the frame does not fit, or null.
    const char* Add(const TimedAccessUnit& frame)
    {
        if (frame.unit.problem != nullptr)
            return frame.unit.problem;
        if (frame.mediaUs <= lastUs)
            return "its frames are reordered";
        if (frame.unit.keyFrame) {
            longestInterval = std::max(longestInterval, frames - lastKeyFrame);
            lastKeyFrame = frames;
        }
        lastUs = frame.mediaUs;
        bytes += static_cast<int64_t>(frame.unit.bytes.size());
        ++frames;
        return nullptr;
    }
};

void FillFacts(const Tally& tally, const MediaFile& file, MediaCodec codec, VideoProbe* probe)
{
    const AVCodecParameters& parameters = *file.stream()->codecpar;
    const double frameUs = tally.frames > 1
                               ? static_cast<double>(tally.lastUs) / static_cast<double>(tally.frames - 1)
                               : AV_TIME_BASE / av_q2d(file.FrameRate());
    probe->lengthUs = tally.lastUs + std::max<int64_t>(1, std::llround(frameUs));
    const double bitRate =
        static_cast<double>(tally.bytes) * 8 * AV_TIME_BASE / static_cast<double>(probe->lengthUs);
    const int64_t interval = std::max(tally.longestInterval, tally.frames - tally.lastKeyFrame);
    probe->facts = {
        .codec = codec,
        .usWidth = static_cast<uint16_t>(parameters.width),
        .usHeight = static_cast<uint16_t>(parameters.height),
        .iFrameRate = std::max(1, static_cast<int32_t>(std::lround(AV_TIME_BASE / frameUs))),
        .iBitRate = static_cast<int32_t>(std::min(bitRate, double{std::numeric_limits<int32_t>::max()})),
        .iIFrameInterval =
            static_cast<int32_t>(std::min<int64_t>(interval, std::numeric_limits<int32_t>::max())),
    };
}

void TallyFile(const std::string& path, MediaCodec codec, size_t frameLimit, VideoProbe* probe)
{
    AccessUnitReader reader(path, codec, frameLimit);
    Tally tally;
    while (const auto frame = reader.Next())
        if (const char* const problem = tally.Add(*frame)) {
            probe->problem = problem;
            return;
        }
    if (tally.frames == 0)
        probe->problem = "it has no key frame";
    else
        FillFacts(tally, reader.file(), codec, probe);
}

} // namespace

VideoProbe ProbeVideo(const std::string& path, size_t frameLimit)
{
    VideoProbe probe;
    const MediaFile file(path, AVMEDIA_TYPE_VIDEO);
    if (file.stream() == nullptr)
        throw std::runtime_error(path + ": no video in it");
    const AVCodecID id = file.stream()->codecpar->codec_id;
    const std::optional<MediaCodec> codec = RingCodec(id);
    if (!codec) {
        probe.problem = std::string("it is ") + avcodec_get_name(id) + ", not H.264 or H.265";
        return probe;
    }
    try {
        TallyFile(path, *codec, frameLimit, &probe);
    } catch (const std::runtime_error& error) {
        probe.problem = std::string("it is damaged (") + error.what() + ")";
    }
    return probe;
}
