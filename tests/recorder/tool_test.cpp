// The program as a user runs it: exit codes, the line on standard error, what is on standard output.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <future>
#include <sstream>

#include "recorder/failure.h"
#include "recorder/json.h"
#include "tests/recorder/clip.h"
#include "tests/recorder/fake_camera.h"

namespace {

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

pid_t Start(const TempFolder& folder, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), VELMORA_TOOL);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int flags = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_addopen(&actions, 1, folder.File("stdout").c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, folder.File("stderr").c_str(), flags, 0600);
    pid_t pid = -1;
    EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

Outcome Await(const TempFolder& folder, pid_t pid)
{
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ReadFile(folder.File("stdout")),
            ReadFile(folder.File("stderr"))};
}

TEST(Tool, FailsWithOneLineAndItsCode)
{
    const struct {
        const char* arguments; // HOST stands for the fake camera
        Script script;         // none: the camera is never asked
        int code;
        const char* text;
    } kCases[] = {
        {"--none", {}, kExitUsage, "velmora --help"},
        {"live", {}, kExitUsage, "HOST is required"},
        {"live HOST --stream third", {}, kExitUsage, "no stream is called 'third'"},
        {"info 127.0.0.1:x", {}, kExitUsage, "'127.0.0.1:x'"},
        {"live HOST --stream both -o a", {}, kExitUsage, "one -o for each"},
        {"live HOST --stream both -o a -o a", {}, kExitUsage, "own"},
        {"info HOST --timeout 0", {}, kExitUsage, "--timeout"},
        {"live HOST --duration nan", {}, kExitUsage, "'nan' is no number of seconds"},
        {"info 127.0.0.1:1", {}, kExitUnreachable, "127.0.0.1:1: Connection refused"},
        {"info HOST --timeout 0.2", [](Peer& p) { p.AwaitClose(); }, kExitTimedOut,
         "the login is not answered"},
        {"info HOST", [](Peer& p) { p.Read(); }, kExitClosed, "closed by the camera"},
        {"info HOST", [](Peer& p) { p.Answer(1000, R"({"Ret":203})"); }, kExitCameraError, "result 203"},
        {"info HOST", [](Peer& p) { p.Answer(1000, "\1no"); }, kExitNotProtocol, "carries no result"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.arguments);
        const TempFolder folder;
        FakeCamera camera(c.script ? std::vector<Script>{c.script} : std::vector<Script>{});
        std::vector<std::string> arguments;
        std::istringstream words(c.arguments);
        for (std::string word; words >> word;)
            arguments.push_back(word != "HOST" ? word : "127.0.0.1:" + std::to_string(camera.port()));
        const Outcome outcome = Await(folder, Start(folder, arguments));
        EXPECT_EQ(outcome.code, c.code);
        EXPECT_NE(outcome.err.find(c.text), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.err.find("velmora: "), 0U) << outcome.err;
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(Tool, ShowsAnswersForPeopleAndForMachines)
{
    const char* const answer = R"({"Name":"x","Ret":607})";
    const struct {
        std::vector<std::string> options;
        const char* out;
    } kCases[] = {{{}, "{\n\t\"Name\":\t\"x\",\n\t\"Ret\":\t607\n}\n"},
                  {{"--json"}, "{\"Name\":\"x\",\"Ret\":607}\n"}};
    for (const auto& c : kCases) {
        const TempFolder folder;
        Request request;
        Outcome outcome;
        {
            FakeCamera camera({[&](Peer& peer) {
                request = peer.Answer(1042, answer);
                peer.AwaitClose();
            }});
            std::vector<std::string> arguments{"raw", "127.0.0.1:" + std::to_string(camera.port()), "1042",
                                               R"({"Name":"x"})", "--no-login"};
            arguments.insert(arguments.end(), c.options.begin(), c.options.end());
            outcome = Await(folder, Start(folder, arguments));
        }
        EXPECT_EQ(request.body, R"({"Name":"x"})");
        EXPECT_EQ(request.session, 0U);
        EXPECT_EQ(outcome.code, kExitCameraError);
        EXPECT_EQ(outcome.out, c.out);
        EXPECT_EQ(outcome.err, "");
    }
}

// The camera interrupts the recorder when the second keepalive has come: by then the session has been kept
// alive beside running media, and what Ctrl-C leaves must play.
TEST(Tool, KeepsAliveAndEndsWellOnCtrlC)
{
    const auto clip = EncodeClip(AV_CODEC_ID_H264, 208, 120, 10, 5);
    const TempFolder folder;
    std::promise<pid_t> tool;
    std::future<pid_t> started = tool.get_future();
    Outcome outcome;
    {
        FakeCamera camera({[&](Peer& peer) {
                               peer.Login(/* aliveInterval= */ 1);
                               peer.Monitor();
                               int keepalives = 0;
                               peer.Serve([&] {
                                   if (++keepalives == 2)
                                       kill(started.get(), SIGINT);
                               });
                           },
                           [&](Peer& peer) {
                               peer.Claim();
                               for (const ClipFrame& frame : clip)
                                   peer.SendFrame(frame.isKey ? KeyFrame(2, 25, 208, 120, frame.bytes)
                                                              : OtherFrame(frame.bytes),
                                                  32768);
                               peer.AwaitClose();
                           }});
        const pid_t pid = Start(folder, {"live", "-o", folder.File("c.mp4"),
                                         "127.0.0.1:" + std::to_string(camera.port()), "--json"});
        tool.set_value(pid);
        outcome = Await(folder, pid);
    }
    EXPECT_EQ(outcome.code, kExitOk) << outcome.err;
    const JsonPtr json(cJSON_Parse(outcome.out.c_str()));
    const cJSON* stream = cJSON_GetArrayItem(cJSON_GetObjectItem(json.get(), "streams"), 0);
    ASSERT_NE(stream, nullptr) << outcome.out;
    EXPECT_EQ(cJSON_GetObjectItem(stream, "frames")->valueint, 10);
    EXPECT_EQ(cJSON_GetObjectItem(stream, "keyFrames")->valueint, 2);
    EXPECT_STREQ(cJSON_GetObjectItem(stream, "codec")->valuestring, "H.264");
    const auto tracks = ReadBack(folder.File("c.mp4"));
    ASSERT_EQ(tracks.size(), 1U);
    EXPECT_EQ(tracks[0].decoded, 10);
}

} // namespace
