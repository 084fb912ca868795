// Live view from the ring to the recorder: who gets which frames, in which messages, lap after lap.

#include "tests/e2e/harness/camera_test.h"

namespace {

using LiveView = RunningCamera;

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
                {kMainStream, "Main", 0xC0000, "\0\0\1\xFC\x13\x0C\x40\xB4"sv}, // beyond the ring's end
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

TEST_F(LiveView, APauseIsMarkedAtOffsetZeroAndEndsThere)
{
    Watcher watcher;
    for (int pause = 1; pause <= 2; pause++) {
        Deliver(watcher.media);
        DataInfo header = media->At(kMainStream, media->position(kMainStream));
        header.AVDataLen = 1000;
        header.ulReserved12 = 0xABCDEF;
        header.AVSource = kSourceAudio;
        header.TimeStamp = 123456;
        header.EndFlag = kFlagPause;
        memset(header.ucReserved29, 0x5A, sizeof header.ucReserved29);
        media->Put(kMainStream, header);

        header.SerialNumber = 0;
        header.AVDataLen = 0;
        header.ulReserved12 = 0;
        WaitUntil("the pause mark", [&] {
            const DataInfo mark = media->At(kMainStream, 0);
            return memcmp(&mark, &header, sizeof mark) == 0;
        });
        const auto gop = MakeGop();
        media->PublishAt(kMainStream, 0, gop);
        ExpectFrames(watcher.media, gop);
        EXPECT_EQ(server->CountLog("Endflag == 253\n"), pause); // once per pause
    }
}

} // namespace
