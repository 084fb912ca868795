// Plays data/*.seq: each file is a test, each case in it meets a server of its own.
//
//   case "what is proved" [ARGUMENT...]  begins a case: nothing is connected, the server is new
//   usage ARGUMENT...              starts a server, which ends at once
//   open NAME                      connects; NAME below is any connection so opened
//   search NAME                    a search socket at the other end of the camera's network, as a connection
//   NAME session N                 requests carry this session from now on
//   NAME > ID [len=N] [BODY]       sends a request; len= announces another length than the body's
//   NAME >raw BYTES                sends bytes
//   NAME < ID BODY | *PART*        the next message is this reply; its header is checked to the byte
//   NAME silent                    nothing has arrived
//   NAME close                     closes it
//   log "TEXT" [N]                 waits until the log holds the text (N times)
//   nolog "TEXT"                   the log does not hold it
//   logged "TEXT" N                the log holds it N times by now
//   stdout "TEXT"                  waits for standard output
//
// Bodies, bytes and texts are expanded (harness/expand.h).

#include <arpa/inet.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>

#include <fstream>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/e2e/harness/camera_test.h"
#include "tests/e2e/harness/expand.h"

namespace {

constexpr std::streamsize kLongestLine = 100000;

std::string Rest(std::istream& words)
{
    std::string rest;
    std::getline(words >> std::ws, rest);
    return rest;
}

void SendRequest(ProtocolClient& client, std::istream& words)
{
    uint16_t id = 0;
    words >> id;
    std::string body = Rest(words);
    std::optional<uint32_t> announced;
    if (body.starts_with("len=")) {
        announced = static_cast<uint32_t>(std::stoul(body.substr(4)));
        body.erase(0, body.find(' ') + 1);
    }
    client.SendBytes(client.Request(id, Expand(body, false), announced));
}

void ExpectReply(ProtocolClient& client, std::istream& words)
{
    uint16_t id = 0;
    words >> id;
    const std::string expected = Rest(words);
    const std::string body = client.ReceiveReply(id).body;
    if (expected.starts_with('*'))
        EXPECT_NE(body.find(expected.substr(1, expected.size() - 2)), std::string::npos) << body;
    else
        EXPECT_EQ(body, expected);
}

// A connected socket drops what others send, its own broadcasts too.
UniqueFd OpenSearchSocket()
{
    UniqueFd fd;
    std::thread([&fd] { // goes to the other end, and stays there
        const UniqueFd network(open("/sandbox/recorder.ns", O_RDONLY | O_CLOEXEC));
        if (setns(network.get(), CLONE_NEWNET) == 0)
            fd.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    })
        .join();
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    sockaddr_in address{AF_INET, htons(kSearchPort), {INADDR_BROADCAST}, {}}; // to which the camera answers
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    address.sin_addr.s_addr = inet_addr(getenv("CAMERA"));
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

void CheckText(const ServerProcess& server, const std::string& kind, const std::string& rest)
{
    const size_t quote = rest.rfind('"');
    const std::string text = Expand(rest.substr(1, quote - 1), true);
    const std::string times = rest.substr(quote + 1);
    if (kind == "log")
        server.WaitForLog(text, times.empty() ? 1 : std::stoi(times));
    else if (kind == "stdout")
        server.WaitForOutput(text);
    else
        EXPECT_EQ(server.CountLog(text), times.empty() ? 0 : std::stoi(times));
}

std::vector<std::string> Words(std::istream& words)
{
    return {std::istream_iterator<std::string>(words), {}};
}

class Sequences : public Camera, public testing::WithParamInterface<std::string> {
  protected:
    void StartInVain(const std::vector<std::string>& arguments)
    {
        EXPECT_EQ(server.emplace(arguments).WaitForExit(), 0);
    }
    void Play(const std::string& line)
    {
        std::istringstream words(line);
        std::string subject, verb;
        words >> subject;
        if (subject == "case") {
            words.ignore(kLongestLine, '"').ignore(kLongestLine, '"');
            return connections_.clear(), StartServer(Words(words));
        }
        if (subject == "usage")
            return StartInVain(Words(words));
        if (subject == "open")
            return static_cast<void>(connections_[Rest(words)]);
        if (subject == "search")
            return static_cast<void>(connections_.emplace(Rest(words), OpenSearchSocket()));
        if (subject == "log" || subject == "nolog" || subject == "logged" || subject == "stdout")
            return CheckText(*server, subject, Rest(words));
        ProtocolClient& client = connections_.at(subject);
        words >> verb;
        if (verb == "session")
            words >> std::setbase(0) >> client.session;
        else if (verb == ">")
            SendRequest(client, words);
        else if (verb == ">raw")
            client.SendBytes(Expand(Rest(words), false));
        else if (verb == "<")
            ExpectReply(client, words);
        else if (verb == "silent")
            EXPECT_FALSE(client.HasInput());
        else if (verb == "close")
            client.Close();
        else
            throw std::runtime_error("no such verb");
    }

    std::map<std::string, ProtocolClient> connections_;
};

TEST_P(Sequences, AreAnsweredToTheLetter)
{
    const std::string file = VELMORA_SEQUENCES "/" + GetParam() + ".seq";
    std::ifstream in(file);
    int number = 0;
    for (std::string line; !HasFailure() && std::getline(in, line);) {
        SCOPED_TRACE(file + ":" + std::to_string(++number) + ": " + line);
        if (line.empty() || line[0] == '#')
            continue;
        try {
            Play(line);
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
    EXPECT_TRUE(server) << "no case in " << file;
}

INSTANTIATE_TEST_SUITE_P(Data, Sequences,
                         testing::Values("configuration", "connections", "framing", "hostile", "login",
                                         "monitor", "operate", "search"),
                         [](const auto& test) { return test.param; });

} // namespace
