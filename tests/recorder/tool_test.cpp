#include <gtest/gtest.h>

#include <csignal>

#include "recorder/failure.h"
#include "tests/recorder/clip.h"
#include "tests/recorder/run_tool.h"

namespace {

// The camera interrupts the recorder when the second keepalive has come: by then the session has been kept
// alive beside two running streams, and what Ctrl-C leaves must play.
TEST(Tool, KeepsAliveAndEndsWellOnCtrlC)
{
    const auto clip = EncodeClip("h264", 208, 10, 5);
    const TempFolder folder;
    const Script media = [&](Peer& peer) {
        SendClip(peer, clip);
        peer.AwaitClose();
    };
    const Script command = [&](Peer& peer) {
        peer.Answer(R"({"AliveInterval":1,"Ret":100})");
        int keepalives = 0;
        for (Request request = peer.Answer(); request.id != 0; request = peer.Answer())
            if (request.id == 1006 && ++keepalives == 2)
                kill(std::stoi(OutputOf("cat " + folder.File("pid"))), SIGINT);
    };
    FakeCamera camera({command, media, media});
    const Outcome outcome = RunTool(folder, camera, "live --stream both -o a.mp4 -o b.mkv $HOST --json");
    EXPECT_EQ(outcome.code, kExitOk) << outcome.err;
    for (const char* text : {R"("stream":"extra",)", R"("frames":10,)", R"("keyFrames":2,)"})
        EXPECT_NE(outcome.out.find(text), std::string::npos) << outcome.out;
    EXPECT_EQ(Probe(folder.File("a.mp4")), "h264,208,10\n");
    EXPECT_EQ(Probe(folder.File("b.mkv")), "h264,208,10\n");
}

} // namespace
