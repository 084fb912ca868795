#include "hosts/video_source.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "common/log.h"
#include "hosts/access_unit_reader.h"
#include "hosts/video_encoder.h"
#include "hosts/video_probe.h"

namespace {

constexpr int32_t kMostEncodedRate = 60;
constexpr int32_t kMostStep = 12; // of sixty frames a second this leaves five
constexpr int32_t kEncodedKeyFrameSeconds = 2;

// Plays the file's own frames.
class PassedThrough : public VideoSource {
  public:
    PassedThrough(const std::string& path, size_t frameLimit, const VideoProbe& probe)
        : reader_(path, probe.facts.codec, frameLimit), facts_(probe.facts), lengthUs_(probe.lengthUs)
    {
        next_ = Read();
    }
    StreamFacts facts() const override { return facts_; }
    int64_t OriginUs() const override { return reader_.OriginUs(); }
    FrameTime Peek() override { return {baseUs_ + next_.mediaUs, next_.mediaUs}; }
    bool LowerRate() override { return false; }

    AccessUnit Take(bool keyFrame, FrameTime* time) override
    {
        const int64_t dueUs = Peek().playUs;
        while (keyFrame && !next_.unit.keyFrame)
            next_ = Read();
        baseUs_ = dueUs - next_.mediaUs;
        *time = Peek();
        AccessUnit unit = std::move(next_.unit);
        next_ = Read();
        return unit;
    }

  private:
    TimedAccessUnit Read()
    {
        std::optional<TimedAccessUnit> frame = reader_.Next();
        if (!frame) {
            reader_.Rewind();
            baseUs_ += lengthUs_;
            frame = reader_.Next();
        }
        if (!frame || frame->unit.problem != nullptr)
            throw std::runtime_error(reader_.file().path() + ": the file has changed");
        return *std::move(frame);
    }

    AccessUnitReader reader_;
    const StreamFacts facts_;
    const int64_t lengthUs_;
    int64_t baseUs_ = 0; // play time of media time 0 in this pass over the file
    TimedAccessUnit next_{};
};

// Decodes the file and encodes it for the wire.
class Encoded : public VideoSource {
  public:
    Encoded(const std::string& path, size_t frameLimit, int32_t bitRate)
        : file_(path, AVMEDIA_TYPE_VIDEO), frameLimit_(frameLimit), bitRate_(bitRate),
          frameUs_(AV_TIME_BASE / av_q2d(file_.FrameRate())), decoder_(OpenDecoder(file_)),
          packet_(OwnLibav(av_packet_alloc())), picture_(OwnLibav(av_frame_alloc())),
          step_(std::max(1, static_cast<int32_t>(std::ceil(av_q2d(file_.FrameRate()) / kMostEncodedRate))))
    {
        Decode();
        originUs_ = PictureUs();
        next_ = {0, 0};
        OpenEncoder();
    }
    StreamFacts facts() const override { return facts_; }
    int64_t OriginUs() const override { return originUs_; }
    FrameTime Peek() override { return next_; }

    AccessUnit Take(bool keyFrame, FrameTime* time) override
    {
        *time = next_;
        AccessUnit unit = encoder_->Encode(*picture_, keyFrame || refused_);
        refused_ = unit.problem != nullptr; // the frames that follow would lean on a missing one
        for (int32_t i = 0; i < step_; ++i)
            Advance();
        return unit;
    }

    bool LowerRate() override
    {
        if (step_ >= kMostStep)
            return false;
        ++step_;
        OpenEncoder();
        return true;
    }

  private:
    void OpenEncoder()
    {
        const int32_t rate = std::max(1, static_cast<int32_t>(std::lround(AV_TIME_BASE / frameUs_ / step_)));
        constexpr int kEven = ~1; // chroma has half the size
        facts_ = {.codec = RingCodec(file_.stream()->codecpar->codec_id).value_or(kCodecH264),
                  .usWidth = static_cast<uint16_t>(std::max(2, picture_->width & kEven)),
                  .usHeight = static_cast<uint16_t>(std::max(2, picture_->height & kEven)),
                  .iFrameRate = rate,
                  .iBitRate = bitRate_,
                  .iIFrameInterval = rate * kEncodedKeyFrameSeconds};
        encoder_ = std::make_unique<VideoEncoder>(facts_, frameLimit_);
    }

    int64_t PictureUs() const
    {
        if (picture_->best_effort_timestamp == AV_NOPTS_VALUE)
            return originUs_ + std::llround(static_cast<double>(pictures_) * frameUs_);
        return av_rescale_q(picture_->best_effort_timestamp, file_.stream()->time_base, kMicroseconds);
    }

    // Decodes the next picture; false when the file has no more.
    bool TryDecode()
    {
        for (;;) {
            const int result = avcodec_receive_frame(decoder_.get(), picture_.get());
            if (result == 0)
                return true;
            if (result == AVERROR_EOF)
                return false;
            // More is wanted, or a picture was damaged. A packet that the decoder refuses is left out.
            const bool atEnd = !file_.Read(packet_.get());
            (void)avcodec_send_packet(decoder_.get(), atEnd ? nullptr : packet_.get());
        }
    }

    void Decode()
    {
        if (!TryDecode())
            throw std::runtime_error(file_.path() + ": no picture can be decoded");
    }

    void Advance()
    {
        const int64_t lastUs = next_.mediaUs;
        ++pictures_;
        if (!TryDecode()) {
            file_.Rewind();
            decoder_ = OpenDecoder(file_);
            pictures_ = 0;
            Decode();
            baseUs_ += lastUs + std::llround(frameUs_);
        }
        const int64_t mediaUs = std::max<int64_t>(0, PictureUs() - originUs_);
        // Play time never runs backward, whatever times the file gives its pictures.
        next_ = {std::max(next_.playUs, baseUs_ + mediaUs), mediaUs};
    }

    MediaFile file_;
    const size_t frameLimit_;
    const int32_t bitRate_;
    const double frameUs_; // between the file's pictures
    LibavOwner<AVCodecContext> decoder_;
    LibavOwner<AVPacket> packet_;
    LibavOwner<AVFrame> picture_; // the next one to encode
    FrameTime next_{};
    int64_t originUs_ = 0;
    int64_t baseUs_ = 0;
    int64_t pictures_ = 0; // since the last rewind
    int32_t step_;         // one picture of so many is encoded
    bool refused_ = false;
    StreamFacts facts_;
    std::unique_ptr<VideoEncoder> encoder_;
};

} // namespace

void LogFacts(const char* name, const char* how, const StreamFacts& facts)
{
    LogInfo("%s: %s, %s %ux%u, %d frames a second, %s%d kbit/s, a key frame every %d frames\n", name, how,
            facts.codec == kCodecH265 ? "H.265" : "H.264", facts.usWidth, facts.usHeight, facts.iFrameRate,
            facts.ucBitRateControl == kVariableBitRate ? "at most " : "", facts.iBitRate / 1000,
            facts.iIFrameInterval);
}

std::unique_ptr<VideoSource> OpenVideo(const std::string& path, size_t frameLimit, int32_t bitRate)
{
    const VideoProbe probe = ProbeVideo(path, frameLimit);
    std::unique_ptr<VideoSource> source;
    if (probe.problem.empty())
        source = std::make_unique<PassedThrough>(path, frameLimit, probe);
    else
        source = std::make_unique<Encoded>(path, frameLimit, bitRate);
    if (!probe.problem.empty())
        LogInfo("%s: encoded anew, because %s\n", path.c_str(), probe.problem.c_str());
    LogFacts(path.c_str(), probe.problem.empty() ? "passed through" : "encoded", source->facts());
    return source;
}
