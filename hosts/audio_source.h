// A file's sound as a camera sends it: G.711 A-law, 8 kHz, mono, in records of 320 bytes (40 ms).
//
// The whole file is decoded when it is opened (8 kB a second of sound), so any place of it is at hand
// when the video jumps. A file without sound gives silence.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr size_t kAudioRecordBytes = 320;
inline constexpr int kAudioSampleRate = 8000;
inline constexpr int64_t kAudioRecordUs = 40000;

using AudioRecord = std::array<uint8_t, kAudioRecordBytes>;

uint8_t ALawFromLinear(int16_t sample); // ITU-T G.711

class AudioSource {
  public:
    // `originUs` is the time on the file's own clock at which its sound begins here. Throws
    // std::runtime_error when the file cannot be read; sound that cannot be decoded is logged.
    AudioSource(const std::string& path, int64_t originUs);

    // The record at a media time; silence beyond the sound.
    [[nodiscard]] AudioRecord At(int64_t mediaUs) const;
    [[nodiscard]] int64_t LengthUs() const
    {
        return static_cast<int64_t>(samples_.size()) * 1000000 / kAudioSampleRate;
    }

  private:
    void Decode(const std::string& path, int64_t originUs);

    std::vector<uint8_t> samples_;
};
