#include "recorder/recording.h"

#include <gtest/gtest.h>

#include "tests/recorder/clip.h"
#include "tests/recorder/fake_camera.h"

namespace {

// Long enough for a login on a machine that is busy with other things.
constexpr milliseconds kSilence{1'000};
constexpr milliseconds kLong{20'000};

RecordingSummary RecordMain(const HostPort& address, milliseconds timeout, const std::string& output)
{
    RecordingOptions options{address, timeout, {{&FindStream("main"), output}}, {}, false, {}};
    return Record(options, [](const LiveView&) {});
}

TEST(Recording, WritesEveryByteOfTheVideoHoweverItIsCut)
{
    const auto clip = EncodeClip("h264", 640, 12, 6);
    Bytes expected; // the clip's video, nothing else
    for (const ClipFrame& frame : clip)
        expected += frame.bytes;
    const TemporaryDirectory folder;
    FakeCamera camera({UsualCommand, [&](Peer& peer) {
                           peer.limit = 300;
                           peer.piece = 97;
                           SendClip(peer, clip);
                       }});
    const auto summary = RecordMain(camera.address, kLong, folder.File("out.h264"));
    EXPECT_EQ(summary.code, kExitClosed) << summary.failure;
    EXPECT_EQ(summary.streams.at(0).stats.bytes, expected.size() + 12 * 320);
    EXPECT_EQ(summary.streams[0].counters.gaps + summary.streams[0].counters.damaged, 0U);
    EXPECT_EQ(OutputOf("cat " + folder.File("out.h264")), expected);
}

TEST(Recording, NamesWhatEndedItAndKeepsAFileThatPlays)
{
    const auto clip = EncodeClip("h264", 208, 10, 5);
    const Script silent = [](Peer& peer) { peer.AwaitClose(); };
    const Script skipsOne = [](Peer& peer) {
        peer.Send(Wire(1504, peer.seqNum, "{}")); // an alarm between media is no gap
        peer.seqNum += 2;
        peer.SendFrame("no sub-header");
    };
    const Script noKeyFrame = [](Peer& peer) {
        while (peer.SendFrame(OtherFrame("x"))) // now and then, as a camera does
            std::this_thread::sleep_for(milliseconds(10));
    };
    // The clip, what the camera does then, how it ends, and the messages that are missing.
    const std::tuple<std::vector<ClipFrame>, Script, ExitCode, const char*, uint64_t> kCases[] = {
        {clip, [](Peer& p) { p.Send("\xFF\x01"); }, kExitClosed, "in the middle of a message", 0},
        {clip, skipsOne, kExitClosed, "closed", 1},
        {clip, silent, kExitTimedOut, "the main stream has stopped", 0},
        {{}, silent, kExitNoMedia, "no media received on the main stream", 0},
        {{}, noKeyFrame, kExitNoMedia, "no key frame received on the main stream", 0},
    };
    for (const auto& [frames, media, code, text, lost] : kCases) {
        SCOPED_TRACE(text);
        const TemporaryDirectory folder;
        FakeCamera camera({UsualCommand, [&first = frames, &then = media](Peer& peer) {
                               SendClip(peer, first);
                               then(peer);
                           }});
        const auto summary =
            RecordMain(camera.address, code == kExitClosed ? kLong : kSilence, folder.File("out.mp4"));
        EXPECT_EQ(summary.code, code);
        EXPECT_NE(summary.failure.find(text), std::string::npos) << summary.failure;
        EXPECT_EQ(summary.streams[0].counters.lostMessages, lost);
        EXPECT_EQ(summary.streams[0].counters.damaged, lost) << "the frame behind the gap";
        EXPECT_EQ(summary.streams[0].files.size(), frames.empty() ? 0U : 1U) << "nothing to show, no file";
        EXPECT_EQ(Probe(folder.File("out.mp4")).starts_with("h264,208,10\n"), !frames.empty());
    }
}

} // namespace
