#include "recorder/recording.h"

#include <gtest/gtest.h>

#include "tests/recorder/clip.h"
#include "tests/recorder/fake_camera.h"

namespace {

// A camera sends a frame now and then, not as fast as the machine can.
void Pace()
{
    std::this_thread::sleep_for(milliseconds(10));
}

constexpr uint8_t kWireH264 = 2;
// Long enough for a login on a machine that is busy with other things.
constexpr milliseconds kSilence{1'000};

RecordingOptions Options(uint16_t port, std::vector<RecordingStream> streams)
{
    RecordingOptions options;
    options.address = {"127.0.0.1", port};
    options.timeout = milliseconds(20'000);
    options.streams = std::move(streams);
    return options;
}

RecordingSummary RecordQuietly(const RecordingOptions& options)
{
    return Record(options, [](const LiveView&) {});
}

// Sends a clip with sound.
void SendClip(Peer& peer, const std::vector<ClipFrame>& clip, size_t piece = 0)
{
    for (const ClipFrame& frame : clip) {
        peer.SendFrame(frame.isKey ? KeyFrame(kWireH264, 25, 208, 120, frame.bytes) : OtherFrame(frame.bytes),
                       32768, piece);
        peer.SendFrame(AudioFrame(Bytes(320, '\xD5')), 168, piece);
    }
}

TEST(Recording, WritesEveryByteOfTheVideoHoweverItIsCut)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 640, 480, 12, 6);
    Bytes expected; // the clip's video, nothing else
    for (const ClipFrame& frame : clip)
        expected += frame.bytes;
    for (const size_t piece : {size_t{0}, size_t{997}}) {
        SCOPED_TRACE(piece);
        const TempFolder folder;
        FakeCamera camera({UsualCommand(), [&](Peer& peer) {
                               peer.Claim();
                               SendClip(peer, clip, piece);
                           }});
        const RecordingSummary summary =
            RecordQuietly(Options(camera.port(), {{&FindStream("main"), folder.File("out.h264")}}));
        EXPECT_EQ(summary.code, kExitClosed) << summary.failure;
        const StreamSummary& stream = summary.streams.at(0);
        EXPECT_EQ(stream.stats.frames(), 12U);
        EXPECT_EQ(stream.stats.keyFrames, 2U);
        EXPECT_EQ(stream.stats.audioFrames, 12U);
        EXPECT_EQ(stream.stats.bytes, expected.size() + 12 * 320);
        EXPECT_EQ(stream.counters.gaps + stream.counters.damaged + stream.dropped, 0U);
        ASSERT_TRUE(stream.format.has_value());
        EXPECT_EQ(stream.format->width, 640) << "of the parameter sets, not of the sub-header";
        EXPECT_EQ(ReadFile(folder.File("out.h264")), expected);
    }
}

TEST(Recording, NamesWhatEndedItAndKeepsAFileThatPlays)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 208, 120, 10, 5);
    const struct {
        const char* name;
        std::function<void(Peer&)> media; // after the clip
        int64_t timeoutMs;
        ExitCode code;
        const char* text;
        uint64_t gaps;
        uint64_t damaged;
    } kCases[] = {
        {"closes mid-message", [](Peer& p) { p.Send(Wire(1412, 7, p.seqNum, "abc").substr(0, 21)); }, 20'000,
         kExitClosed, "in the middle of a message", 0, 0},
        {"falls silent", [](Peer& p) { p.AwaitClose(); }, kSilence.count(), kExitTimedOut,
         "the main stream has stopped", 0, 0},
        {"turns into something else", [](Peer& p) { p.Send("garbage"), p.AwaitClose(); }, 20'000,
         kExitNotProtocol, "not this protocol", 0, 0},
        {"skips a number", [](Peer& p) { p.seqNum++, p.SendFrame(OtherFrame("x").substr(0, 8), 32768); },
         20'000, kExitClosed, "closed", 1, 0},
        {"an alarm between media is no gap",
         [](Peer& p) { p.Send(Wire(1504, 7, p.seqNum++, "{}")), p.SendFrame("no sub-header", 32768); },
         20'000, kExitClosed, "closed", 0, 1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const TempFolder folder;
        FakeCamera camera({UsualCommand(), [&](Peer& peer) {
                               peer.Claim();
                               SendClip(peer, clip);
                               c.media(peer);
                           }});
        RecordingOptions options = Options(camera.port(), {{&FindStream("main"), folder.File("out.mp4")}});
        options.timeout = milliseconds(c.timeoutMs);
        const RecordingSummary summary = RecordQuietly(options);
        EXPECT_EQ(summary.code, c.code) << summary.failure;
        EXPECT_NE(summary.failure.find(c.text), std::string::npos) << summary.failure;
        EXPECT_EQ(summary.streams[0].counters.gaps, c.gaps) << summary.failure;
        EXPECT_EQ(summary.streams[0].counters.damaged, c.damaged);
        const auto tracks = ReadBack(folder.File("out.mp4"));
        ASSERT_EQ(tracks.size(), 2U);
        EXPECT_EQ(tracks[0].decoded, 10);
    }
}

TEST(Recording, SaysWhenNoPictureComes)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 208, 120, 2, 2);
    const struct {
        const char* name;
        std::function<void(Peer&)> media;
        const char* text;
    } kCases[] = {
        {"nothing", [](Peer& p) { p.AwaitClose(); }, "no media received on the extra2 stream"},
        {"never a key frame",
         [&](Peer& p) {
             while (p.SendFrame(OtherFrame(clip[1].bytes), 32768))
                 Pace();
         },
         "no key frame received on the extra2 stream"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const TempFolder folder;
        FakeCamera camera({UsualCommand(), [&](Peer& peer) {
                               peer.Claim();
                               c.media(peer);
                           }});
        RecordingOptions options = Options(camera.port(), {{&FindStream("extra2"), folder.File("out.mkv")}});
        options.timeout = kSilence;
        const RecordingSummary summary = RecordQuietly(options);
        EXPECT_EQ(summary.code, kExitNoMedia);
        EXPECT_NE(summary.failure.find(c.text), std::string::npos) << summary.failure;
        EXPECT_TRUE(summary.streams[0].files.empty()) << "nothing to show, so no file";
    }
}

// Two streams in one session, stopped from outside when both have brought their clip: all is well, the
// camera is asked to stop, and both files play.
TEST(Recording, RecordsTwoStreamsUntilItIsStopped)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 208, 120, 10, 5);
    const TempFolder folder;
    Event stop;
    std::string lastAction;
    {
        const Script media = [&](Peer& peer) {
            peer.Claim();
            SendClip(peer, clip);
            peer.AwaitClose();
        };
        FakeCamera camera({[&](Peer& peer) {
                               peer.Login();
                               peer.Monitor();
                               lastAction = peer.Answer(1410, R"({"Ret":100})").body;
                               peer.AwaitClose();
                           },
                           media, media});
        RecordingOptions options = Options(camera.port(), {{&FindStream("main"), folder.File("main.mkv")},
                                                           {&FindStream("extra"), folder.File("extra.mkv")}});
        options.openStopFd = [&stop] { return stop.fd(); };
        const RecordingSummary summary = Record(options, [&](const LiveView& view) {
            if (view.stats(0).audioFrames == 10 && view.stats(1).audioFrames == 10)
                stop.Set();
        });
        EXPECT_EQ(summary.code, kExitOk) << summary.failure;
        EXPECT_EQ(summary.streams[1].stream, "extra");
    }
    EXPECT_NE(lastAction.find(R"("Action":"Stop")"), std::string::npos);
    for (const char* name : {"main.mkv", "extra.mkv"}) {
        const auto tracks = ReadBack(folder.File(name));
        ASSERT_EQ(tracks.size(), 2U) << name;
        EXPECT_EQ(tracks[0].decoded, 10) << name;
    }
}

} // namespace
