// The ring reader seen from the recorder: it keeps its place where the rules say so, and finds one again
// where it is lost, whatever lies in the ring and whatever the encoder host answers.

#include <climits>

#include "tests/e2e/harness/camera_test.h"

namespace {

using Ring = RunningCamera;

TEST_F(Ring, LapAfterLapNoFrameIsLost)
{
    Watcher watcher;
    Watcher extra("Extra");
    while (media->laps(kMainStream) < 4) {
        Deliver(watcher.media,
                {MakeFrame(kKey264, 500'000), MakeFrame(kDelta264, 786'432), MakeFrame(kAudio, 320)});
        Deliver(extra.media, {MakeFrame(kKey265, 200'000), MakeFrame(kDelta265, 99'999)}, kSecondStream);
    }
    EXPECT_GE(media->laps(kSecondStream), 2U);
}

TEST_F(Ring, APauseIsMarkedAtOffsetZeroAndEndsThere)
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

TEST_F(Ring, AnUnfinishedRecordIsDeliveredWhenItIsComplete)
{
    Watcher watcher;
    Deliver(watcher.media);
    const uint32_t at = media->position(kMainStream);
    const auto gop = MakeGop(200'000);
    media->Prepare(kMainStream, at, gop);
    // Twice the reader gives up waiting for it, and is sent back to it: the newest key frame.
    server->WaitForLog(": VideoIndex = 0 VideoPos = " + std::to_string(at) + " Endflag == 0\n", 3);
    EXPECT_FALSE(watcher.media.client.HasInput());
    media->Release(kMainStream, at);
    ExpectFrames(watcher.media, gop);
}

TEST_F(Ring, ALostPlaceIsFollowedByTheNewestKeyFrame)
{
    const struct {
        const char* name;
        uint32_t magic;
        int32_t length;
        uint32_t flag;
        int serialStep;
    } rows[] = {
        {"NoMagic", 0, 5, kFlagFrame, 1},
        {"UnknownFlag", kRecordMagic, 5, 0xFFFFFFFE, 1},
        {"SmallestLength", kRecordMagic, INT_MIN, kFlagFrame, 1},
        {"LengthThatLeadsBackToTheHeader", kRecordMagic, -64, kFlagFrame, 1},
        {"BeyondTheSegment", kRecordMagic, 0xC0000, kFlagFrame, 1},
        {"RepeatedWithANegativeLength", kRecordMagic, -200, kFlagFrame, 0},
        {"Older", kRecordMagic, 5, kFlagFrame, -2},
        {"StepOf31", kRecordMagic, 5, kFlagFrame, 31},
    };
    Watcher watcher;
    uint32_t place = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto gop = MakeGop();
        const uint32_t at = media->position(kMainStream);
        DataInfo header = media->At(kMainStream, at);
        header.AVDataCheck = row.magic;
        header.AVDataLen = row.length;
        header.EndFlag = row.flag;
        header.SerialNumber += static_cast<uint32_t>(static_cast<int>(gop.size()) - 1 + row.serialStep);
        media->Prepare(kMainStream, at, gop);
        media->Put(kMainStream, header, kDelta264); // looks like a frame but for its header
        media->Release(kMainStream, at);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher.media, gop));
        gop = MakeGop();
        // Near the ring's end, where also a short frame leaves the segment.
        media->PublishAt(kMainStream, 0x3D0000 + 0x8000 * (place++ % 4), gop);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher.media, gop));
    }
    server->WaitForLog(" AVDataCheck == 0\n");
}

} // namespace
