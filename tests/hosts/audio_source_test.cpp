#include "hosts/audio_source.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/hosts/clip.h"

namespace {

// The 16-bit value at the middle of a code's interval, and the width of the interval, by ITU-T G.711.
struct Interval {
    int middle;
    int width;
};
Interval LinearOfALaw(uint8_t code)
{
    const int bits = code ^ 0x55;
    const int segment = bits >> 4 & 7;
    const int step = bits & 15;
    const int magnitude = segment == 0 ? step * 16 + 8 : (step * 16 + 264) << (segment - 1);
    return {(bits & 0x80) != 0 ? magnitude : -magnitude, 16 << (segment == 0 ? 0 : segment - 1)};
}

TEST(ALawFromLinear, ChoosesTheCodeWhoseIntervalHoldsTheSample)
{
    for (int sample = -32768; sample <= 32767; ++sample) {
        const Interval interval = LinearOfALaw(ALawFromLinear(static_cast<int16_t>(sample)));
        ASSERT_LE(std::abs(interval.middle - sample), interval.width / 2) << sample;
    }
    EXPECT_EQ(ALawFromLinear(0), 0xD5);
    EXPECT_EQ(ALawFromLinear(-1), 0x55);
    EXPECT_EQ(ALawFromLinear(32767), 0xAA);
    EXPECT_EQ(ALawFromLinear(-32768), 0x2A);
}

// A second of one level, then a second of another, as 8 kHz mono.
class Sound {
  public:
    Sound(int16_t first, int16_t second)
    {
        std::vector<int16_t> samples(16000, first);
        std::fill(samples.begin() + 8000, samples.end(), second);
        const auto bytes = static_cast<uint32_t>(samples.size() * 2);
        std::ofstream file(path_, std::ios::binary);
        const auto word = [&file](uint32_t value) { file.write(reinterpret_cast<const char*>(&value), 4); };
        file << "RIFF";
        word(36 + bytes);
        file << "WAVEfmt ";
        for (const uint32_t value : {16U, 0x00010001U, 8000U, 16000U, 0x00100002U})
            word(value);
        file << "data";
        word(bytes);
        file.write(reinterpret_cast<const char*>(samples.data()), bytes);
    }
    [[nodiscard]] const std::string& path() const { return path_; }

  private:
    TemporaryDirectory directory_;
    std::string path_ = directory_.File("sound.wav");
};

TEST(AudioSource, FindsTheSoundOfAnyPlaceOfTheFile)
{
    const Sound sound(1000, -20000);
    const uint8_t first = ALawFromLinear(1000);
    const uint8_t second = ALawFromLinear(-20000);
    constexpr uint8_t kSilence = 0xD5;
    const struct {
        const char* name;
        int64_t originUs;
        int64_t mediaUs;
        uint8_t begins;
        uint8_t ends;
    } kPlaces[] = {
        {"Start", 0, 0, first, first},
        {"AcrossTheChange", 0, 980000, first, second},
        {"AcrossTheEnd", 0, 1980000, second, kSilence},
        {"BeforeTheStart", 0, -40000, kSilence, kSilence},
        {"VideoBeginsLater", 990000, 0, first, second},
        {"VideoBeginsEarlier", -20000, 0, kSilence, first},
    };
    for (const auto& place : kPlaces) {
        SCOPED_TRACE(place.name);
        const AudioRecord record = AudioSource(sound.path(), place.originUs).At(place.mediaUs);
        EXPECT_EQ(record.front(), place.begins);
        EXPECT_EQ(record.back(), place.ends);
    }
}

} // namespace
