// The program as a user runs it: exit codes, the line on standard error, what is on standard output.

#include <gtest/gtest.h>

#include <csignal>

#include "recorder/failure.h"
#include "tests/recorder/clip.h"
#include "tests/recorder/run_tool.h"

namespace {

TEST(Tool, EndsWithItsCodeAndOneLine)
{
    const Script answersRaw = [](Peer& peer) {
        const Request request = peer.Answer(R"({"Name":"x","Ret":607})");
        EXPECT_EQ(request.body, "{\"a\":1}");
        EXPECT_EQ(request.session, 0U);
    };
    // The words, what the camera does if it is asked, part of the one error line if there is one, the output.
    const std::tuple<const char*, Script, int, std::string, const char*> kCases[] = {
        {"--none", {}, kExitUsage, "velmora --help", ""},
        {"live", {}, kExitUsage, "HOST is required", ""},
        {"live $HOST --stream third", {}, kExitUsage, "no stream is called 'third'", ""},
        {"live $HOST --stream both -o a", {}, kExitUsage, "one -o for each", ""},
        {"live $HOST --stream both -o a -o a", {}, kExitUsage, "own", ""},
        {"live $HOST --duration nan", {}, kExitUsage, "'nan' is no number of seconds", ""},
        {"info 127.0.0.1:1", {}, kExitUnreachable, "127.0.0.1:1: Connection refused", ""},
        {"info $HOST --timeout 0.2", &Peer::AwaitClose, kExitTimedOut, "the login is not answered", ""},
        {"info $HOST", [](Peer& p) { EXPECT_EQ(p.Read().id, 1000); }, kExitClosed, "closed", ""},
        {"info $HOST", [](Peer& p) { p.Answer(R"({"Ret":203})"); }, kExitCameraError, "result 203", ""},
        {"info $HOST", [](Peer& p) { p.Answer("\1no"); }, kExitNotProtocol, "carries no result", ""},
        {"raw $HOST 1042 '{\"a\":1}' --no-login", answersRaw, kExitCameraError, "",
         "{\n\t\"Name\":\t\"x\",\n\t\"Ret\":\t607\n}\n"},
    };
    for (const auto& [words, script, code, error, out] : kCases) {
        SCOPED_TRACE(words);
        const TempFolder folder;
        FakeCamera camera(script ? std::vector<Script>{script} : std::vector<Script>{});
        const Outcome outcome = RunTool(folder, camera, words);
        EXPECT_EQ(outcome.code, code);
        EXPECT_EQ(outcome.out, out);
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), error.empty() ? 0 : 1);
        EXPECT_EQ(outcome.err.substr(0, 9), error.empty() ? "" : "velmora: ");
        EXPECT_NE(outcome.err.find(error), std::string::npos) << outcome.err;
    }
}

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
