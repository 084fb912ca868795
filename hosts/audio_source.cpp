#include "hosts/audio_source.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

#include <algorithm>
#include <optional>

#include "common/log.h"
#include "hosts/media_file.h"

namespace {

constexpr uint8_t kSilence = 0xD5;
constexpr int64_t kMostLead = int64_t{3600} * kAudioSampleRate; // times in files may be nonsense

// What a resampler was opened for. It may change within a file.
struct SoundShape {
    int format;
    int rate;
    int channels;
    bool operator==(const SoundShape&) const = default;
};

SoundShape ShapeOf(const AVFrame& frame)
{
    return {frame.format, frame.sample_rate, frame.ch_layout.nb_channels};
}

LibavOwner<SwrContext> OpenResampler(const AVFrame& frame)
{
    AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
    AVChannelLayout from{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&from, frame.ch_layout.nb_channels);
    else
        CheckLibav(av_channel_layout_copy(&from, &frame.ch_layout), "sound");
    SwrContext* resampler = nullptr;
    const int result =
        swr_alloc_set_opts2(&resampler, &mono, AV_SAMPLE_FMT_S16, kAudioSampleRate, &from,
                            static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&from);
    LibavOwner<SwrContext> owner(resampler);
    CheckLibav(result, "sound");
    CheckLibav(swr_init(resampler), "sound");
    return owner;
}

// Resamples one decoded frame, or with null what the resampler still holds.
void AppendResampled(SwrContext* resampler, const AVFrame* frame, std::vector<uint8_t>* samples)
{
    const int in = frame == nullptr ? 0 : frame->nb_samples;
    std::vector<int16_t> linear(static_cast<size_t>(std::max(0, swr_get_out_samples(resampler, in))));
    auto* out = reinterpret_cast<uint8_t*>(linear.data());
    const auto** const data = frame == nullptr ? nullptr : const_cast<const uint8_t**>(frame->extended_data);
    const int count =
        CheckLibav(swr_convert(resampler, &out, static_cast<int>(linear.size()), data, in), "sound");
    std::transform(linear.begin(), linear.begin() + count, std::back_inserter(*samples), ALawFromLinear);
}

int64_t SamplesOf(int64_t us)
{
    return us * kAudioSampleRate / AV_TIME_BASE;
}

} // namespace

// The 13-bit value is folded to its magnitude; segment and step within it make the code, of which every
// other bit is inverted.
uint8_t ALawFromLinear(int16_t sample)
{
    const int value = sample >> 3;
    const int inversion = value >= 0 ? 0xD5 : 0x55;
    const int magnitude = value >= 0 ? value : -value - 1;
    int segment = 0;
    while (segment < 8 && magnitude > (0x20 << segment) - 1)
        ++segment;
    const int step = (segment < 2 ? magnitude >> 1 : magnitude >> segment) & 0x0F;
    return static_cast<uint8_t>((segment << 4 | step) ^ inversion);
}

AudioSource::AudioSource(const std::string& path, int64_t originUs)
{
    try {
        Decode(path, originUs);
    } catch (const std::runtime_error& error) {
        LogWarn("%s: the sound ends after %zu s: %s\n", path.c_str(), samples_.size() / kAudioSampleRate,
                error.what());
    }
}

void AudioSource::Decode(const std::string& path, int64_t originUs)
{
    MediaFile file(path, AVMEDIA_TYPE_AUDIO);
    if (file.stream() == nullptr) {
        LogInfo("%s: no sound, silence is sent\n", path.c_str());
        return;
    }
    const LibavOwner<AVCodecContext> decoder = OpenDecoder(file);
    const auto packet = OwnLibav(av_packet_alloc());
    const auto frame = OwnLibav(av_frame_alloc());
    LibavOwner<SwrContext> resampler;
    SoundShape shape{};
    std::optional<int64_t> startUs;
    for (bool atEnd = false; !atEnd;) {
        atEnd = !file.Read(packet.get());
        (void)avcodec_send_packet(decoder.get(), atEnd ? nullptr : packet.get()); // refused ones are left out
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            if (resampler && shape != ShapeOf(*frame)) {
                AppendResampled(resampler.get(), nullptr, &samples_);
                resampler.reset();
            }
            if (!resampler) {
                resampler = OpenResampler(*frame);
                shape = ShapeOf(*frame);
            }
            if (!startUs)
                startUs =
                    frame->best_effort_timestamp == AV_NOPTS_VALUE
                        ? originUs
                        : av_rescale_q(frame->best_effort_timestamp, file.stream()->time_base, kMicroseconds);
            AppendResampled(resampler.get(), frame.get(), &samples_);
        }
    }
    if (resampler)
        AppendResampled(resampler.get(), nullptr, &samples_);

    // Sound that begins earlier or later than the video is cut or preceded by silence.
    const int64_t lead = std::min(SamplesOf(startUs.value_or(originUs) - originUs), kMostLead);
    if (lead > 0)
        samples_.insert(samples_.begin(), static_cast<size_t>(lead), kSilence);
    else
        samples_.erase(samples_.begin(),
                       samples_.begin() + std::min(-lead, static_cast<int64_t>(samples_.size())));
}

AudioRecord AudioSource::At(int64_t mediaUs) const
{
    AudioRecord record;
    record.fill(kSilence);
    const int64_t first = SamplesOf(mediaUs);
    const int64_t count = static_cast<int64_t>(samples_.size()) - first;
    if (first >= 0 && count > 0)
        std::copy_n(samples_.begin() + first, std::min<int64_t>(count, kAudioRecordBytes), record.begin());
    return record;
}
