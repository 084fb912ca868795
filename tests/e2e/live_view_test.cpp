// Live view from the ring to the recorder: who gets which frames, in which messages.

#include <ctime>

#include "tests/e2e/harness/camera_test.h"

namespace {

using namespace std::string_literals;
using LiveView = RunningCamera;

TEST_F(LiveView, EveryWatcherGetsTheSameFramesInItsOwnSessionAndSequence)
{
    Watcher first;
    Watcher second("main", Side::kRecorder);
    EXPECT_NE(first.command.session, second.command.session);
    for (int round = 0; round < 20; round++) {
        const auto gop = MakeGop(round == 7 ? 300'000 : 3000);
        media->Publish(kMainStream, gop);
        ExpectFrames(first.media, gop);
        ExpectFrames(second.media, gop);
        if (round == 10)
            first.command.Ask(kMonitorReq, MonitorBody("Start", "Main")); // changes nothing
    }
}

TEST_F(LiveView, AStreamReachesThoseWhoClaimedIt)
{
    Watcher main("Main");
    Watcher extra("Extra");
    Watcher extra1("EXTRA1");
    Watcher third("Extra2");
    Watcher none("Extra3");
    const auto mainGop = MakeGop();
    const auto extraGop = MakeGop();
    media->Publish(kThirdStream, MakeGop());
    media->Publish(kMainStream, mainGop);
    media->Publish(kSecondStream, extraGop);
    ExpectFrames(main.media, mainGop);
    ExpectFrames(extra.media, extraGop);
    ExpectFrames(extra1.media, extraGop);
    // Whatever these would have got was sent before the last frames of the others.
    main.command.Ask(kKeepaliveReq);
    for (const Watcher* watcher : {&main, &extra, &extra1, &third, &none})
        EXPECT_FALSE(watcher->media.client.HasInput());
}

TEST_F(LiveView, OneStartAndOneStopSwitchAllOfTheSession)
{
    Watcher stays; // shows when a frame has been sent to all
    Watcher staysExtra("Extra");
    Watcher watcher;
    MediaReader extra(watcher.command.session, "Extra"); // claimed behind the start: needs another one
    const auto before = MakeGop();
    media->Publish(kSecondStream, before);
    ExpectFrames(staysExtra.media, before);
    for (const bool flows : {true, false, true, false}) {
        watcher.Monitor(flows ? "start" : "STOP");
        const auto gop = MakeGop();
        const auto extraGop = MakeGop();
        media->Publish(kMainStream, gop);
        media->Publish(kSecondStream, extraGop);
        ExpectFrames(stays.media, gop);
        ExpectFrames(staysExtra.media, extraGop);
        if (flows) {
            ExpectFrames(watcher.media, gop);
            ExpectFrames(extra, extraGop);
        }
    }
    stays.command.Ask(kKeepaliveReq);
    EXPECT_FALSE(watcher.media.client.HasInput() || extra.client.HasInput());
}

// The date and time word of a moment: second, minute, hour, day, month and years since 2000, from bit 0.
uint32_t DateTimeWord(time_t moment)
{
    tm t{};
    localtime_r(&moment, &t);
    return static_cast<uint32_t>(t.tm_sec | t.tm_min << 6 | t.tm_hour << 12 | t.tm_mday << 17 |
                                 (t.tm_mon + 1) << 22 | (t.tm_year - 100) << 26);
}

std::string LittleEndian(size_t value)
{
    return std::string(reinterpret_cast<const char*>(&value), 4);
}

TEST_F(LiveView, AFrameIsCutAfterItsSubHeader)
{
    // What the block says: 2560 x 1440 at 12 a second, 720 x 480 at 10.
    const struct {
        const char* name;
        std::string_view stream;
        Frame frame;
        std::string subHeader; // of a key frame: up to the date
        std::vector<size_t> bodies;
    } rows[] = {
        {"Key265", "Main", MakeFrame(kKey265, 40000), "\0\0\1\xFC\x13\x0C\x40\xB4"s, {32768, 7248}},
        {"Key264", "Main", MakeFrame(kKey264, 5), "\0\0\1\xFC\x12\x0C\x40\xB4"s, {21}},
        {"KeyExtra", "Extra", MakeFrame(kKey265, 32752), "\0\0\1\xFC\x03\x0A\x5A\x3C"s, {32768}},
        {"KeyOneMore", "Extra", MakeFrame(kKey264, 32753), "\0\0\1\xFC\x02\x0A\x5A\x3C"s, {32768, 1}},
        {"Delta",
         "Main",
         MakeFrame(kDelta264, 100'000),
         "\0\0\1\xFD"s + LittleEndian(100'000),
         {32768, 32768, 32768, 1704}},
        {"Delta265", "Main", MakeFrame(kDelta265, 9), "\0\0\1\xFD"s + LittleEndian(9), {17}},
        {"Audio", "Main", MakeFrame(kAudio, 320), "\0\0\1\xFA\x0E\2\x40\1"s, {168, 160}},
        {"AudioExact", "Extra", MakeFrame(kAudio, 160), "\0\0\1\xFA\x0E\2\xA0\0"s, {168}},
        {"LargestMain", "Main", MakeFrame(kDelta264, 0xC0000), "\0\0\1\xFD\0\0\x0C\0"s, {}},
        {"LargestExtra", "Extra", MakeFrame(kDelta264, 0x40000), "\0\0\1\xFD\0\0\4\0"s, {}},
    };
    Watcher main("Main");
    Watcher extra("Extra");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const bool isMain = row.stream == "Main";
        MediaReader& reader = isMain ? main.media : extra.media;
        std::vector<Frame> gop = {row.frame};
        if (!IsKeyFrame(row.frame))
            gop.insert(gop.begin(), MakeFrame(kKey264, 10));
        const uint32_t before = DateTimeWord(time(nullptr));
        media->Publish(isMain ? kMainStream : kSecondStream, gop);
        gop.pop_back();
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(reader, gop));
        const ReceivedFrame received = reader.ReadFrame();
        EXPECT_TRUE(received.bytes == row.frame.bytes);
        EXPECT_EQ(received.subHeader.substr(0, row.subHeader.size()), row.subHeader);
        EXPECT_TRUE(row.bodies.empty() || received.bodies == row.bodies);
        if (received.subHeader.size() == 16) {
            const auto word = LoadLe<uint32_t>(received.subHeader.data() + 8);
            EXPECT_LE(before, word);
            EXPECT_LE(word, DateTimeWord(time(nullptr)));
            EXPECT_EQ(received.subHeader.substr(12), LittleEndian(row.frame.bytes.size()));
        }
    }
}

TEST_F(LiveView, FramesThatNobodyCouldPlayAreNotSent)
{
    Watcher main("Main");
    Watcher extra("Extra");
    const Frame key = MakeFrame(kKey264, 100);
    const Frame last = MakeFrame(kDelta264, 100);
    media->Publish(kMainStream,
                   {key, MakeFrame("\0\0\0\1"sv, 4), // ends before its kind
                    MakeFrame("\0\0\0\1\x68"sv, 50), // PPS
                    MakeFrame("\0\0\0\1\x26"sv, 50), // H.265 IDR without its VPS
                    MakeFrame("\0\0\0\1\x65"sv, 50), // H.264 IDR without its SPS
                    MakeFrame(kJpeg, 50), MakeFrame(kDelta264, 0xC0001), MakeFrame(""sv, 0), last});
    ExpectFrames(main.media, {key, last});
    server->WaitForLog(": videoindex = 0 iDataLen = 786433 up to max 786432\n");
    media->Publish(kSecondStream, {key, MakeFrame(kDelta264, 0x40001), last});
    ExpectFrames(extra.media, {key, last});
    server->WaitForLog(": videoindex = 1 iDataLen = 262145 up to max 262144\n");
}

TEST_F(LiveView, AReaderThatDoesNotKeepUpIsDroppedAndTheOthersLoseNothing)
{
    Watcher slow("Main", Side::kCamera, 4096);
    Watcher quick;
    for (int round = 0; server->CountLog("ret11count >= 200") == 0; round++) {
        ASSERT_LT(round, 60) << "nobody is dropped";
        const std::vector<Frame> gop = {MakeFrame(kKey264, 400'000), MakeFrame(kDelta264, 100'000)};
        media->Publish(kMainStream, gop);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(quick.media, gop));
    }
    const auto gop = MakeGop();
    media->Publish(kMainStream, gop);
    ExpectFrames(quick.media, gop);
    slow.media.client.WaitUntilClosed();
    slow.command.Ask(kKeepaliveReq); // its command connection stays
    EXPECT_EQ(server->CountLog("ret11count >= 200"), 1);
}

TEST_F(LiveView, AReaderThatIsOnlyLateLosesNoByte)
{
    // It has 400 ms to read on when its buffers are full, which a busy machine may let go by.
    for (int attempt = 0; attempt < 10 && !HasFailure(); attempt++) {
        if (attempt > 0)
            StartServer();
        Watcher late("Main", Side::kCamera, 4096);
        const std::vector<Frame> frames = {MakeFrame(kKey264, 700'000), MakeFrame(kDelta264, 780'000),
                                           MakeFrame(kDelta264, 780'000), MakeFrame(kDelta264, 780'000)};
        media->Publish(kMainStream, frames);
        server->WaitForLog("SendAVStream "); // a message did not go out at once
        try {
            for (const Frame& frame : frames)
                EXPECT_TRUE(late.media.ReadFrame().bytes == frame.bytes);
            if (server->CountLog("ret != sendlen") > 0)
                return; // it went out in part
        } catch (const std::runtime_error&) {
            ASSERT_EQ(server->CountLog("ret11count >= 200"), 1) << "closed for another reason";
        }
    }
    ADD_FAILURE() << "never in time";
}

TEST_F(LiveView, AReaderThatLeavesInsideAFrameDisturbsNobody)
{
    Watcher stays;
    for (int round = 0; round < 6; round++) {
        Watcher leaves;
        const std::vector<Frame> gop = {MakeFrame(kKey264, 700'000), MakeFrame(kDelta264, 100'000)};
        media->Publish(kMainStream, gop);
        leaves.media.ReadMessage();
        if (round % 2 == 0)
            leaves.media.client.Abort();
        else
            leaves.media.client.Close();
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(stays.media, gop));
        server->WaitForLog(": Remove ", 2 * round + 1);
        leaves.command.Close();
        server->WaitForLog(": Remove ", 2 * round + 2);
    }
}

} // namespace
