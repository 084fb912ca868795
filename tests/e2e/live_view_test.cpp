// Live view from the ring to the recorder: who gets which frames, in which messages.

#include "tests/e2e/harness/camera_test.h"

namespace {

using LiveView = RunningCamera;

TEST_F(LiveView, EveryWatcherGetsTheSameFramesInItsOwnSessionAndSequence)
{
    Watcher first;
    Watcher second("main");
    EXPECT_NE(first.command.session, second.command.session);
    for (int round = 0; round < 20; round++) {
        const auto gop = MakeGop(round == 7 ? 300'000 : 3000);
        Deliver(first.media, gop);
        ExpectFrames(second.media, gop);
        if (round == 10)
            first.Monitor("Start"); // changes nothing
    }
}

TEST_F(LiveView, AStreamReachesThoseWhoClaimedAndStartedIt)
{
    Watcher main("Main");
    Watcher extra("EXTRA1");
    Watcher third("Extra2");
    Watcher none("Extra3");
    Watcher switched("Main");
    MediaReader late(switched.command.session, "Extra"); // claimed behind the start: needs another one
    for (const bool flows : {false, true, false}) {
        switched.Monitor(flows ? "start" : "STOP");
        const auto mainGop = MakeGop();
        const auto extraGop = MakeGop();
        media->Publish(kThirdStream, MakeGop());
        Deliver(main.media, mainGop);
        Deliver(extra.media, extraGop, kSecondStream);
        if (flows) {
            ExpectFrames(switched.media, mainGop);
            ExpectFrames(late, extraGop);
        }
    }
    // Whatever these would have got was sent with the last frames of the others.
    main.command.Ask(kKeepaliveReq);
    for (const MediaReader* reader :
         {&main.media, &extra.media, &third.media, &none.media, &switched.media, &late})
        EXPECT_FALSE(reader->client.HasInput());
}

TEST_F(LiveView, FramesOfEverySizeAreSentUnlessNobodyCouldPlayThem)
{
    const struct {
        uint32_t stream;
        std::string_view name;
        size_t most;
        std::string_view subHeader; // of a key frame, up to its date: from what the block says
    } rows[] = {{kMainStream, "Main", 0xC0000, "\0\0\1\xFC\x13\x0C\x40\xB4"sv},
                {kSecondStream, "Extra", 0x40000, "\0\0\1\xFC\x03\x0A\x5A\x3C"sv}};
    for (const auto& row : rows) {
        Watcher watcher(row.name);
        // Message bodies hold 32768 bytes with the sub-header, those of audio 168.
        std::vector<Frame> frames = {MakeFrame(kKey265, 5)};
        media->Publish(row.stream, frames);
        EXPECT_EQ(ExpectFrame(watcher.media, frames[0]).substr(0, 8), row.subHeader);
        std::vector<Frame> pieces, sounds = {MakeFrame(kKey264, 5)};
        for (const size_t size : {32751U, 32752U, 32753U, 65520U, 65521U}) {
            pieces.push_back(MakeFrame(kKey264, size));
            pieces.push_back(MakeFrame(kDelta265, size + 8));
        }
        for (const size_t size : {1U, 159U, 160U, 161U, 328U, 329U, 65535U, 65536U})
            sounds.push_back(MakeFrame(kAudio, size));
        Deliver(watcher.media, pieces, row.stream);
        Deliver(watcher.media, sounds, row.stream);
        frames = {MakeFrame(kKey264, 9), MakeFrame(kDelta264, row.most - 1), MakeFrame(kDelta264, row.most)};
        const Frame last = MakeFrame(kDelta264, 100);
        auto published = frames;
        for (const auto start : {"\0\0\0\1"sv /* ends before its kind */, "\0\0\0\1\x68"sv /* PPS */,
                                 "\0\0\0\1\x65"sv /* IDR without its SPS */, kJpeg, ""sv})
            published.push_back(MakeFrame(start, start.size()));
        published.push_back(MakeFrame(kDelta264, row.most + 1));
        published.push_back(last);
        frames.push_back(last);
        media->Publish(row.stream, published);
        ExpectFrames(watcher.media, frames);
        server->WaitForLog(" up to max " + std::to_string(row.most) + "\n");
    }
}

TEST_F(LiveView, AReaderThatDoesNotKeepUpIsDroppedAndTheOthersLoseNothing)
{
    Watcher slow("Main", 4096);
    Watcher quick;
    for (int round = 0; server->CountLog("ret11count >= 200") == 0; round++) {
        ASSERT_LT(round, 60) << "nobody is dropped";
        Watcher leaves;
        const std::vector<Frame> gop = {MakeFrame(kKey264, 400'000), MakeFrame(kDelta264, 100'000)};
        media->Publish(kMainStream, gop);
        leaves.media.ReadMessage();
        leaves.media.client.Abort(); // inside a frame, which disturbs nobody
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(quick.media, gop));
    }
    Deliver(quick.media);
    slow.media.client.WaitUntilClosed();
    slow.command.Ask(kKeepaliveReq); // its command connection stays
    EXPECT_EQ(server->CountLog("ret11count >= 200"), 1);
}

} // namespace
