// The ring reader seen from the recorder: it keeps its place where the rules say so, and finds one again
// where it is lost, whatever lies in the ring and whatever the encoder host answers.

#include <climits>

#include "tests/e2e/harness/camera_test.h"

namespace {

// A server with a watcher of the main stream.
class Ring : public RunningCamera {
  protected:
    void SetUp() override
    {
        RunningCamera::SetUp();
        watcher.emplace();
    }
    void PublishAndExpect(const std::vector<Frame>& frames)
    {
        media->Publish(kMainStream, frames);
        ExpectFrames(watcher->media, frames);
    }
    // Publishes frames with this record behind them, which looks like a frame but for its header.
    void PublishBefore(const DataInfo& header, const std::vector<Frame>& frames)
    {
        const uint32_t at = media->position(kMainStream);
        media->Prepare(kMainStream, at, frames);
        media->Put(kMainStream, header, kDelta264);
        media->Release(kMainStream, at);
        ExpectFrames(watcher->media, frames);
    }
    DataInfo NextHeader()
    {
        DataInfo header = media->At(kMainStream, media->position(kMainStream));
        header.EndFlag = kFlagFrame;
        return header;
    }
    // The place of a header that PublishBefore puts behind these frames.
    uint32_t PlaceBehind(const std::vector<Frame>& frames)
    {
        uint32_t place = media->position(kMainStream);
        for (const Frame& frame : frames)
            place += kRecordBytes + static_cast<uint32_t>(frame.bytes.size());
        return place;
    }

    std::optional<Watcher> watcher;
};

TEST_F(Ring, LapAfterLapNoFrameIsLost)
{
    Watcher extra("Extra");
    while (media->laps(kMainStream) < 4) {
        PublishAndExpect(
            {MakeFrame(kKey264, 500'000), MakeFrame(kDelta264, 786'432), MakeFrame(kAudio, 320)});
        const std::vector<Frame> gop = {MakeFrame(kKey265, 200'000), MakeFrame(kDelta265, 99'999)};
        media->Publish(kSecondStream, gop);
        ExpectFrames(extra.media, gop);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GE(media->laps(kSecondStream), 2U);
}

TEST_F(Ring, APauseIsMarkedAtOffsetZeroAndEndsThere)
{
    for (int pause = 1; pause <= 2; pause++) {
        PublishAndExpect(MakeGop());
        DataInfo header = NextHeader();
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
        ExpectFrames(watcher->media, gop);
        EXPECT_EQ(server->CountLog("Endflag == 253\n"), pause); // once per pause
    }
}

TEST_F(Ring, AnUnfinishedRecordIsDeliveredWhenItIsComplete)
{
    PublishAndExpect(MakeGop());
    const uint32_t at = media->position(kMainStream);
    const auto gop = MakeGop(200'000);
    media->Prepare(kMainStream, at, gop);
    // Twice the reader gives up waiting for it, and is sent back to it: the newest key frame.
    server->WaitForLog(": VideoIndex = 0 VideoPos = " + std::to_string(at) + " Endflag == 0\n", 3);
    EXPECT_FALSE(watcher->media.client.HasInput());
    media->Release(kMainStream, at);
    ExpectFrames(watcher->media, gop);
}

TEST_F(Ring, SerialNumbersTellWhatIsMissingOldOrNew)
{
    struct Step {
        std::string_view start;
        int serialStep;
        bool delivered;
    };
    const struct {
        const char* name;
        std::vector<Step> records;
    } rows[] = {
        {"StepsOf2To30AreDelivered",
         {{kKey264, 1, true}, {kDelta264, 2, true}, {kDelta264, 5, true}, {kDelta264, 30, true}}},
        {"AStepOf31LeadsToTheNewestKeyFrame",
         {{kKey264, 1, true},
          {kDelta264, 31, false},
          {kDelta264, 1, false},
          {kKey264, 1, true},
          {kDelta264, 1, true}}},
        {"ARecordDeliveredAlreadyIsSteppedOver",
         {{kKey264, 1, true}, {kDelta264, 0, false}, {kDelta264, 1, true}}},
        {"BeforeAKeyFrameToo", {{kKey264, 1, true}, {kDelta264, 0, false}, {kKey264, 1, true}}},
        {"BeforeAudioItLeadsToTheNewestKeyFrame",
         {{kKey264, 1, true},
          {kDelta264, 0, false},
          {kAudio, 1, false},
          {kKey265, 1, true},
          {kDelta265, 1, true}}},
        {"AnOlderRecordLeadsToTheNewestKeyFrame",
         {{kKey264, 5, true},
          {kDelta264, -3, false},
          {kDelta264, 1, false},
          {kKey264, 5, true},
          {kDelta264, 1, true}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<Frame> written, delivered;
        uint32_t serial = media->serial(kMainStream);
        for (const Step& step : row.records) {
            serial += static_cast<uint32_t>(step.serialStep);
            written.push_back(MakeFrame(step.start, 1000, serial));
            if (step.delivered)
                delivered.push_back(written.back());
        }
        media->Publish(kMainStream, written);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher->media, delivered));
    }
    for (const char* line : {" = 2 pos = ", " = 5 pos = ", " = 30 pos = ", " = 31 pos = "})
        EXPECT_GE(server->CountLog(line), 1) << line;
}

TEST_F(Ring, ALostPlaceIsFollowedByTheNewestKeyFrame)
{
    constexpr auto kSegment = static_cast<int32_t>(kRings[kMainStream].ulSegmentBytes);
    const struct {
        const char* name;
        void (*spoil)(DataInfo& header, int32_t payload); // payload: where it would lie
        bool isFrame = false;                             // all the same, behind which the place is lost
    } rows[] = {
        {"NoMagic", [](DataInfo& h, int32_t) { h.AVDataCheck = 0; }},
        {"OtherMagic", [](DataInfo& h, int32_t) { h.AVDataCheck = 0x78563412; }},
        {"UnknownFlag", [](DataInfo& h, int32_t) { h.EndFlag = 0xFFFFFFFE; }},
        {"LengthOfMinusOne", [](DataInfo& h, int32_t) { h.AVDataLen = -1; }},
        {"SmallestLength", [](DataInfo& h, int32_t) { h.AVDataLen = INT_MIN; }},
        {"LengthThatLeadsBackToTheHeader", [](DataInfo& h, int32_t) { h.AVDataLen = -64; }},
        {"LargestLength", [](DataInfo& h, int32_t) { h.AVDataLen = 0x3FFFFF; }},
        {"LargestFrame", [](DataInfo& h, int32_t) { h.AVDataLen = 0xC0000; }},
        {"OneByteBeyondTheSegment",
         [](DataInfo& h, int32_t payload) { h.AVDataLen = kSegment - payload + 1; }},
        {"ToTheSegmentsEnd", [](DataInfo& h, int32_t payload) { h.AVDataLen = kSegment - payload; }, true},
        {"IntoTheLastBytes", [](DataInfo& h, int32_t payload) { h.AVDataLen = kSegment - payload - 10; },
         true},
        {"RepeatedBeforeTheSegmentsEnd",
         [](DataInfo& h, int32_t payload) { h.SerialNumber--, h.AVDataLen = kSegment - payload - 66; }},
        {"RepeatedWithANegativeLength", [](DataInfo& h, int32_t) { h.SerialNumber--, h.AVDataLen = -200; }},
    };
    uint32_t place = 0;
    uint32_t serial = 1;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto gop = MakeGop();
        gop[0].serial = serial; // above that of the spoilt record
        // Near the ring's end, where also a short frame leaves the segment.
        const uint32_t at = 0x3D0000 + 0x8000 * (place++ % 4);
        media->PublishAt(kMainStream, at, gop);
        ASSERT_NO_FATAL_FAILURE(ExpectFrames(watcher->media, gop));
        gop = MakeGop();
        DataInfo header = NextHeader();
        header.SerialNumber += static_cast<uint32_t>(gop.size());
        row.spoil(header, static_cast<int32_t>(PlaceBehind(gop) + kRecordBytes));
        ASSERT_NO_FATAL_FAILURE(PublishBefore(header, gop));
        if (row.isFrame)
            watcher->media.ReadFrame();
        serial = header.SerialNumber + 2;
    }
    auto gop = MakeGop();
    gop[0].serial = serial;
    PublishAndExpect(gop);
    server->WaitForLog(" AVDataCheck == 0\n");
}

TEST_F(Ring, ALengthThatNoRingHoldsIsWaitedOnInPlace)
{
    for (const int32_t length : {0x400000, INT_MAX}) {
        SCOPED_TRACE(length);
        auto gop = MakeGop();
        DataInfo header = NextHeader();
        header.AVDataLen = length;
        header.SerialNumber += static_cast<uint32_t>(gop.size());
        ASSERT_NO_FATAL_FAILURE(PublishBefore(header, gop));
        server->WaitForLog(": pDataInfo->AVDataLen = " + std::to_string(length) + " up to Max ", 3);
        const int queries = media->CountQueries(kQueryKeyFrame, kMainStream);
        server->WaitForLog(": pDataInfo->AVDataLen = " + std::to_string(length) + " up to Max ", 60);
        EXPECT_EQ(media->CountQueries(kQueryKeyFrame, kMainStream), queries); // it does not give up
        PublishAndExpect(MakeGop());
    }
}

TEST_F(Ring, WrongPositionsOfKeyFramesAreAskedForAgain)
{
    // A key frame that no answer to this reader names.
    constexpr uint32_t kDecoy = 0x100000;
    media->Prepare(kMainStream, kDecoy, {MakeFrame(kKey264, 100, 1'000'000)});
    auto gop = MakeGop();
    gop[0].serial = 10;
    DataInfo header = NextHeader();
    header.AVDataCheck = 0;
    const int queries = media->CountQueries(kQueryKeyFrame, kMainStream);
    media->Script(kQueryKeyFrame, {{.position = 0xFFFFFFFF},
                                   {.position = 0xFFFFFFC0},
                                   {.position = 0x80000000},
                                   {.position = 0x400000 - 68},
                                   {.position = 0x3FFFFF},
                                   {.position = 0x400000},
                                   {.position = 0x300001},
                                   {.silent = true}});
    PublishBefore(header, gop);
    media->Release(kMainStream, kDecoy);
    media->Script(kQueryKeyFrame, std::vector<Answer>(20, {.foreignPosition = kDecoy}));
    media->WaitForQueries(kQueryKeyFrame, kMainStream, queries + 28);
    gop = MakeGop();
    media->PublishAt(kMainStream, 0x200000, gop);
    ExpectFrames(watcher->media, gop);
}

// The reader takes at least a millisecond for each of a hundred events of which it could have one at once.
template <typename Count> void ExpectPauses(const char* what, Count count)
{
    SCOPED_TRACE(what);
    const auto begin = Clock::now();
    const int before = count();
    WaitUntil("a hundred events", [&] { return count() > before + 100; });
    const int events = count() - before;
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(events - 1));
}

TEST_F(Ring, NoHostMakesTheReaderSpin)
{
    media->Script(kQueryKeyFrame, std::vector<Answer>(100'000, {.position = 0xFFFFFFFF}));
    // It asks when nothing has come for 250 ms.
    ExpectPauses("a position outside the ring",
                 [&] { return media->CountQueries(kQueryKeyFrame, kMainStream); });
    media->Script(kQueryKeyFrame, {});
    PublishAndExpect(MakeGop());

    DataInfo wrap = NextHeader();
    wrap.EndFlag = kFlagWrap;
    media->Put(kMainStream, wrap);
    media->Prepare(kMainStream, 0, {});
    media->Put(kMainStream, wrap); // at offset 0 it leads to itself
    ExpectPauses("a wrap record that leads to itself", [&] { return server->CountLog("Endflag == 255\n"); });
    const auto gop = MakeGop();
    media->PublishAt(kMainStream, 0, gop);
    ExpectFrames(watcher->media, gop);
}

} // namespace
