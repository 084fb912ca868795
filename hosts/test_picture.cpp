#include "hosts/test_picture.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "common/clock.h"
#include "hosts/test_card.h"
#include "hosts/video_encoder.h"

namespace {

constexpr int32_t kMostFrameRate = 60;
constexpr int32_t kLeastLoweredRate = 5;
constexpr int32_t kLeastBitRate = 64 * 1024;
constexpr int32_t kMostBitRate = 20 * 1024 * 1024;
constexpr int32_t kMostInterval = 1000;
constexpr int kLeastSize = 64; // of a side; the encoders work in blocks of this size
constexpr int kMostSize = 4096;

StreamFacts Encodable(StreamFacts settings)
{
    const auto sizeFits = [](int side) { return side >= kLeastSize && side <= kMostSize && side % 2 == 0; };
    if (settings.codec != kCodecH264 && settings.codec != kCodecH265)
        throw std::runtime_error("encoding " + std::to_string(settings.codec) + " is not H.264 or H.265");
    if (!sizeFits(settings.usWidth) || !sizeFits(settings.usHeight))
        throw std::runtime_error("pictures of " + std::to_string(settings.usWidth) + "x" +
                                 std::to_string(settings.usHeight) + " cannot be encoded");
    settings.iFrameRate = std::clamp(settings.iFrameRate, 1, kMostFrameRate);
    settings.iBitRate = std::clamp(settings.iBitRate, kLeastBitRate, kMostBitRate);
    settings.iIFrameInterval = std::clamp(settings.iIFrameInterval, 1, kMostInterval);
    return settings;
}

class TestPicture : public VideoSource {
  public:
    TestPicture(const StreamFacts& settings, size_t frameLimit, int64_t soundUs, Motors* head)
        : facts_(Encodable(settings)), frameLimit_(frameLimit), soundUs_(soundUs), head_(head),
          card_(facts_.usWidth, facts_.usHeight), encoder_(std::make_unique<VideoEncoder>(facts_, frameLimit))
    {
    }
    StreamFacts facts() const override { return facts_; }
    int64_t OriginUs() const override { return 0; }

    FrameTime Peek() override
    {
        const int64_t playUs = baseUs_ + sinceBase_ * AV_TIME_BASE / facts_.iFrameRate;
        return {playUs, soundUs_ > 0 ? playUs % soundUs_ : 0};
    }

    AccessUnit Take(bool keyFrame, FrameTime* time) override
    {
        *time = Peek();
        const HeadPosition view = head_ != nullptr ? head_->At(MonotonicMs()) : HeadPosition{};
        AccessUnit unit = encoder_->Encode(card_.Draw(frames_, view, Text(view)), keyFrame || refused_);
        refused_ = unit.problem != nullptr; // the frames that follow would lean on a missing one
        ++frames_;
        ++sinceBase_;
        return unit;
    }

    bool LowerRate() override
    {
        if (facts_.iFrameRate <= kLeastLoweredRate)
            return false;
        baseUs_ = Peek().playUs;
        sinceBase_ = 0;
        const int32_t rate = std::max(kLeastLoweredRate, facts_.iFrameRate * 3 / 4);
        facts_.iIFrameInterval = std::max(1, facts_.iIFrameInterval * rate / facts_.iFrameRate); // as long
        facts_.iFrameRate = rate;
        encoder_ = std::make_unique<VideoEncoder>(facts_, frameLimit_);
        return true;
    }

  private:
    std::string Text(const HeadPosition& view) const
    {
        char text[120];
        snprintf(text, sizeof text, "TEST H.26%d\n%ux%u/%d\n%08lld\nP%+06.1f T%+05.1f Z%04.1f",
                 facts_.codec == kCodecH265 ? 5 : 4, facts_.usWidth, facts_.usHeight, facts_.iFrameRate,
                 static_cast<long long>(frames_), view.pan, view.tilt, view.zoom);
        return text;
    }

    StreamFacts facts_;
    const size_t frameLimit_;
    const int64_t soundUs_;
    Motors* const head_;
    TestCard card_;
    std::unique_ptr<VideoEncoder> encoder_;
    int64_t frames_ = 0;
    int64_t baseUs_ = 0;    // play time at which the frame rate began
    int64_t sinceBase_ = 0; // frames since then
    bool refused_ = false;
};

} // namespace

std::unique_ptr<VideoSource> OpenTestPicture(const StreamFacts& settings, size_t frameLimit, int64_t soundUs,
                                             Motors* head)
{
    return std::make_unique<TestPicture>(settings, frameLimit, soundUs, head);
}
