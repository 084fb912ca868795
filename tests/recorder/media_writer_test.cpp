#include "recorder/media_writer.h"

#include <gtest/gtest.h>

#include "recorder/aac_encoder.h"
#include "recorder/failure.h"
#include "recorder/snapshot.h"
#include "tests/recorder/clip.h"

namespace {

const std::atomic<bool> kNeverGiveUp = false;

KeyFrameHeader HeaderOf(AVCodecID codec)
{
    KeyFrameHeader header{};
    header.ulKind = kKeyFrame;
    header.ucCodec = codec == AV_CODEC_ID_H264 ? kCodecH264 : kCodecH265;
    header.ucFrameRate = 25;
    return header;
}

// Writes a clip with 40 ms of sound beside each picture; arrivals are given, nothing waits.
class Feeder {
  public:
    explicit Feeder(const std::string& path) : writer_(path, kNeverGiveUp) {}
    void Play(AVCodecID codec, const std::vector<ClipFrame>& clip, bool withAudio)
    {
        for (const ClipFrame& frame : clip) {
            arrival_ += milliseconds(arrival_.time_since_epoch().count() % 3 == 0 ? 25 : 55); // jitter
            writer_.Write({frame.isKey ? kKeyFrame : kOtherFrame,
                           HeaderOf(codec),
                           {frame.bytes.begin(), frame.bytes.end()},
                           arrival_});
            if (withAudio)
                writer_.Write({kAudioFrame, HeaderOf(codec), std::vector<uint8_t>(320, 0xD5), arrival_});
        }
    }
    void Pause(milliseconds pause) { arrival_ += pause; }
    MediaWriter& writer() { return writer_; }

  private:
    MediaWriter writer_;
    TimePoint arrival_{std::chrono::hours(1)};
};

void ExpectRising(const std::vector<double>& stamps)
{
    for (size_t i = 1; i < stamps.size(); i++)
        EXPECT_GT(stamps[i], stamps[i - 1]) << "packet " << i;
}

TEST(MediaWriter, WritesFilesThatPlay)
{
    const struct {
        const char* name;
        AVCodecID codec;
        AVCodecID audio; // none: the camera sends no sound
    } kCases[] = {
        {"a.mkv", AV_CODEC_ID_H264, AV_CODEC_ID_PCM_ALAW}, {"b.mkv", AV_CODEC_ID_HEVC, AV_CODEC_ID_NONE},
        {"c.mp4", AV_CODEC_ID_H264, AV_CODEC_ID_NONE},     {"d.MP4", AV_CODEC_ID_HEVC, AV_CODEC_ID_AAC},
        {"e.mp4", AV_CODEC_ID_H264, AV_CODEC_ID_AAC},
    };
    const TempFolder folder;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        Feeder feeder(folder.File(c.name));
        const auto clip = EncodeClip(c.codec, 208, 120, 50, 10);
        // A recording begins with a key frame: what comes before it is left out.
        feeder.Play(c.codec, {clip.begin() + 1, clip.begin() + 5}, true);
        feeder.Play(c.codec, clip, c.audio != AV_CODEC_ID_NONE);
        feeder.writer().Close();
        const auto tracks = ReadBack(folder.File(c.name));
        ASSERT_EQ(tracks.size(), c.audio == AV_CODEC_ID_NONE ? 1U : 2U);
        EXPECT_EQ(tracks[0].codec, c.codec);
        EXPECT_EQ(tracks[0].width, 208);
        EXPECT_EQ(tracks[0].decoded, 50);
        ASSERT_EQ(tracks[0].stamps.size(), 50U);
        EXPECT_NEAR(tracks[0].stamps.back() - tracks[0].stamps.front(), 49 * 0.040, 0.800);
        ExpectRising(tracks[0].stamps);
        if (tracks.size() == 1)
            continue;
        EXPECT_EQ(tracks[1].codec, c.audio);
        ExpectRising(tracks[1].stamps);
        if (c.audio == AV_CODEC_ID_PCM_ALAW) {
            EXPECT_EQ(tracks[1].bytes, std::vector<std::string>(50, std::string(320, '\xD5')))
                << "as received";
        }
    }
}

TEST(MediaWriter, KeepsSoundBesideThePictureAfterAPause)
{
    const TempFolder folder;
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 96, 64, 25, 25);
    Feeder feeder(folder.File("pause.mp4"));
    feeder.Play(AV_CODEC_ID_H264, clip, true);
    feeder.Pause(milliseconds(30'000));
    feeder.Play(AV_CODEC_ID_H264, clip, true);
    feeder.writer().Close();
    const auto tracks = ReadBack(folder.File("pause.mp4"));
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[0].decoded, 50);
    EXPECT_GT(tracks[0].stamps.back(), 30.0);
    EXPECT_NEAR(tracks[1].stamps.back(), tracks[0].stamps.back(), 0.5);
}

TEST(MediaWriter, StartsANewFileWhenTheFormatChanges)
{
    const TempFolder folder;
    const auto small = EncodeClip(AV_CODEC_ID_H264, 96, 64, 10, 10);
    const auto large = EncodeClip(AV_CODEC_ID_H264, 160, 96, 12, 12);
    const auto other = EncodeClip(AV_CODEC_ID_HEVC, 160, 96, 14, 14);
    Feeder feeder(folder.File("clip.mkv"));
    feeder.Play(AV_CODEC_ID_H264, small, false);
    feeder.Play(AV_CODEC_ID_H264, small, false); // the same again is no change
    feeder.Play(AV_CODEC_ID_H264, large, true);
    feeder.Play(AV_CODEC_ID_HEVC, other, false);
    feeder.writer().Close();
    const struct {
        const char* name;
        AVCodecID codec;
        int width;
        int frames;
    } kExpected[] = {{"clip.mkv", AV_CODEC_ID_H264, 96, 20},
                     {"clip-2.mkv", AV_CODEC_ID_H264, 160, 12},
                     {"clip-3.mkv", AV_CODEC_ID_HEVC, 160, 14}};
    ASSERT_EQ(feeder.writer().files().size(), std::size(kExpected));
    for (size_t i = 0; i < std::size(kExpected); i++) {
        SCOPED_TRACE(kExpected[i].name);
        EXPECT_EQ(feeder.writer().files()[i], folder.File(kExpected[i].name));
        const auto tracks = ReadBack(folder.File(kExpected[i].name));
        ASSERT_FALSE(tracks.empty());
        EXPECT_EQ(tracks[0].codec, kExpected[i].codec);
        EXPECT_EQ(tracks[0].width, kExpected[i].width);
        EXPECT_EQ(tracks[0].decoded, kExpected[i].frames);
    }
}

TEST(MediaWriter, SaysWhatItCannotWrite)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 96, 64, 2, 2);
    const struct {
        const char* path;
        const char* text;
    } kCases[] = {
        {"/nowhere/clip.h264", "cannot write /nowhere/clip.h264: No such file or directory"},
        {"/nowhere/clip.mkv", "cannot write /nowhere/clip.mkv: No such file or directory"},
        {"/", "cannot write /: Is a directory"},
        {"/dev/full", "cannot write /dev/full: No space left on device"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.path);
        try {
            Feeder feeder(c.path);
            feeder.Play(AV_CODEC_ID_H264, clip, true);
            feeder.writer().Close();
            ADD_FAILURE() << "written";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kExitLocal);
            EXPECT_STREQ(failure.what(), c.text);
        }
    }
}

TEST(MediaWriter, SaysThatKeyFramesCannotBeRead)
{
    const TempFolder folder;
    Feeder feeder(folder.File("clip.mkv"));
    feeder.Play(AV_CODEC_ID_H264, {{true, "no NAL"}, {false, "nor here"}, {true, ""}}, true);
    EXPECT_THROW(feeder.writer().Close(), Failure);
    EXPECT_EQ(ReadFile(folder.File("clip.mkv")), "");
}

TEST(Alaw, DecodesToTheLevelsOfTheLine)
{
    const struct {
        uint8_t byte;
        int level; // of 32768
    } kCases[] = {{0xD5, 8}, {0x55, -8}, {0xAA, 32256}, {0x2A, -32256}, {0xC5, 264}, {0x5A, -248}};
    for (const auto& c : kCases)
        EXPECT_EQ(DecodeAlaw(c.byte), static_cast<float>(c.level) / 32768.0F) << int{c.byte};
}

TEST(Picture, DecodesAKeyFrameAndRefusesGarbage)
{
    for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC}) {
        const std::string key = EncodeClip(codec, 208, 120, 1, 1)[0].bytes;
        const std::span bytes(reinterpret_cast<const uint8_t*>(key.data()), key.size());
        const Picture picture = DecodePicture(HeaderOf(codec), bytes);
        EXPECT_EQ(picture.format.width, 208);
        EXPECT_EQ(std::string(picture.png.begin(), picture.png.begin() + 4), "\x89PNG");
        for (const size_t length : {0, 3, 5, 20})
            EXPECT_THROW(DecodePicture(HeaderOf(codec), bytes.first(length)), Failure);
    }
}

} // namespace
