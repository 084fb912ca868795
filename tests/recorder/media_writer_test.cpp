#include "recorder/media_writer.h"

#include <gtest/gtest.h>

#include <sstream>

#include "recorder/failure.h"
#include "recorder/snapshot.h"
#include "tests/recorder/clip.h"

namespace {

const std::atomic<bool> kNeverGiveUp = false;

KeyFrameHeader HeaderOf(const std::string& codec)
{
    KeyFrameHeader header{};
    header.ucCodec = codec == "h264" ? kCodecH264 : kCodecH265;
    header.ucFrameRate = 25;
    return header;
}

// Writes clips with 40 ms of sound beside each picture; arrivals are given, nothing waits.
struct Feeder {
    MediaWriter writer;
    TimePoint arrival{std::chrono::hours(1)};
    explicit Feeder(const std::string& path) : writer(path, kNeverGiveUp) {}
    void Play(const std::string& codec, const std::vector<ClipFrame>& clip, bool withAudio)
    {
        for (const auto& [isKey, bytes] : clip) {
            arrival += milliseconds(arrival.time_since_epoch().count() % 3 == 0 ? 25 : 55); // jitter
            const FrameKind kind = isKey ? kKeyFrame : kOtherFrame;
            writer.Write({kind, HeaderOf(codec), {bytes.begin(), bytes.end()}, arrival});
            if (withAudio)
                writer.Write({kAudioFrame, HeaderOf(codec), std::vector<uint8_t>(320, 0xD5), arrival});
        }
    }
};

TEST(MediaWriter, WritesFilesThatPlay)
{
    const std::tuple<const char*, const char*, std::string> kCases[] = {
        {"a.mkv", "h264", "pcm_alaw\n"}, {"b.MP4", "hevc", "aac\n"}, {"c.mp4", "h264", ""}};
    const TemporaryDirectory folder;
    for (const auto& [name, codec, audio] : kCases) {
        const std::string path = folder.File(name);
        Feeder feeder(path);
        const auto clip = EncodeClip(codec, 208, 25, 10);
        // A recording begins with a key frame: what comes before it is left out.
        feeder.Play(codec, {clip.begin() + 1, clip.begin() + 5}, true);
        feeder.Play(codec, clip, !audio.empty());
        feeder.arrival += milliseconds(30'000);
        feeder.Play(codec, clip, !audio.empty());
        feeder.writer.Close();
        EXPECT_EQ(Probe(path), std::string(codec) + ",208,50\n");
        EXPECT_EQ(Probe(path, "stream=codec_name -select_streams a"), audio);
        for (const char* track : {"v", "a"}) { // sound stays beside the picture, also after the pause
            std::istringstream lines(Probe(path, std::string("packet=pts_time -select_streams ") + track));
            double last = -1;
            for (double stamp = 0; lines >> stamp; last = stamp, lines.ignore(10, '\n'))
                EXPECT_GT(stamp, last) << path;
            EXPECT_NEAR(last, track[0] == 'a' && audio.empty() ? -1 : 31.9, 0.6) << path;
        }
    }
    EXPECT_EQ(OutputOf("ffmpeg -v error -i " + folder.File("a.mkv") + " -map a -c copy -f alaw -"),
              std::string(50 * 320, '\xD5'))
        << "as received";
}

TEST(MediaWriter, StartsANewFileWhenTheFormatChanges)
{
    const TemporaryDirectory folder;
    Feeder feeder(folder.File("clip.mkv"));
    feeder.Play("h264", EncodeClip("h264", 96, 20, 10), false); // the same key frame again is no change
    feeder.Play("h264", EncodeClip("h264", 160, 12, 12), true);
    feeder.Play("hevc", EncodeClip("hevc", 160, 14, 14), false);
    feeder.writer.Close();
    ASSERT_EQ(feeder.writer.files().size(), 3U);
    EXPECT_EQ(Probe(folder.File("clip.mkv")), "h264,96,20\n");
    EXPECT_EQ(Probe(folder.File("clip-2.mkv")), "h264,160,12\n");
    EXPECT_EQ(Probe(folder.File("clip-3.mkv")), "hevc,160,14\n");
}

TEST(MediaWriter, SaysThatKeyFramesCannotBeRead)
{
    Feeder feeder("/nowhere/clip.mkv"); // not even opened
    feeder.Play("h264", {{true, "no NAL"}, {false, "nor here"}, {true, ""}}, true);
    EXPECT_THROW(feeder.writer.Close(), Failure);
}

TEST(Picture, DecodesAKeyFrameAndRefusesGarbage)
{
    for (const char* codec : {"h264", "hevc"}) {
        const std::string key = EncodeClip(codec, 208, 1, 1)[0].bytes;
        const std::span bytes(reinterpret_cast<const uint8_t*>(key.data()), key.size());
        const Picture picture = DecodePicture(HeaderOf(codec), bytes);
        EXPECT_EQ(picture.format.width, 208);
        EXPECT_EQ(std::string(picture.png.begin(), picture.png.begin() + 4), "\x89PNG");
        for (const size_t length : {0U, 3U, 5U, 20U})
            EXPECT_THROW(DecodePicture(HeaderOf(codec), bytes.first(length)), Failure);
    }
}

} // namespace
