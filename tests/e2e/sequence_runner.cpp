// Plays data/*.seq: each case is a test of its own, against a server of its own.
//
//   case "what is proved"          begins a case
//   open NAME                      connects; NAME below is any connection so opened
//   NAME session N                 requests carry this session from now on
//   NAME > ID [len=N] [BODY]       sends a request; len= announces another length than the body's
//   NAME +> ID [len=N] [BODY]      the same, but holds it back to travel in one segment with the next one;
//                                  the reply awaited is that of the first
//   NAME >raw HEX...               sends bytes
//   NAME < ID BODY | *PART*        the next message is this reply; its header is checked to the byte
//   log "TEXT" [N]                 waits until the log holds the text (N times)
//   nolog "TEXT"                   the log does not hold it
//   stdout "TEXT"                  waits for standard output
//
// In bodies and texts \xNN is a byte and <<TEXT*N>> a repetition; in texts \n, \" are what they are in C.

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>

#include "tests/e2e/harness/camera_test.h"

namespace {

struct Line {
    int number;
    std::string text;
};

std::string Expand(const std::string& text, bool quoted)
{
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text.compare(i, 2, "\\x") == 0) {
            out += static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else if (quoted && text[i] == '\\') {
            out += text[++i] == 'n' ? '\n' : text[i];
        } else if (text.compare(i, 2, "<<") == 0) {
            const size_t star = text.find('*', i);
            const std::string repeated = Expand(text.substr(i + 2, star - i - 2), quoted);
            for (int times = std::stoi(text.substr(star + 1)); times > 0; times--)
                out += repeated;
            i = text.find(">>", i) + 1;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string Rest(std::istream& words)
{
    std::string rest;
    std::getline(words >> std::ws, rest);
    return rest;
}

struct Connection {
    ProtocolClient client = ProtocolClient();
    std::string held = {}; // bytes that wait for the next request
    uint32_t heldSequence = 0;
};

void SendRequest(Connection& connection, std::istream& words, bool hold)
{
    uint16_t id = 0;
    words >> id;
    std::string body = Rest(words);
    std::optional<uint32_t> announced;
    if (body.starts_with("len=")) {
        announced = static_cast<uint32_t>(std::stoul(body.substr(4)));
        body.erase(0, body.find(' ') + 1);
    }
    const bool isFirst = connection.held.empty();
    connection.held += connection.client.Request(id, Expand(body, false), announced);
    if (isFirst)
        connection.heldSequence = connection.client.sequence;
    if (hold)
        return;
    connection.client.SendBytes(connection.held);
    connection.client.sequence = connection.heldSequence;
    connection.held.clear();
}

void SendHex(ProtocolClient& client, std::istream& words)
{
    std::string bytes;
    for (unsigned byte; words >> std::hex >> byte;)
        bytes += static_cast<char>(byte);
    client.SendBytes(bytes);
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

void Talk(Connection& connection, std::istream& words)
{
    std::string verb;
    words >> verb;
    if (verb == "session")
        words >> std::setbase(0) >> connection.client.session;
    else if (verb == ">" || verb == "+>")
        SendRequest(connection, words, verb == "+>");
    else if (verb == ">raw")
        SendHex(connection.client, words);
    else if (verb == "<")
        ExpectReply(connection.client, words);
    else
        throw std::runtime_error("no such verb");
}

class Sequence : public RunningCamera {
  public:
    explicit Sequence(std::vector<Line> lines) : lines_(std::move(lines)) {}

  private:
    void TestBody() override
    {
        for (const Line& line : lines_) {
            SCOPED_TRACE("line " + std::to_string(line.number) + ": " + line.text);
            try {
                Play(line.text);
            } catch (const std::exception& failure) {
                FAIL() << failure.what();
            }
            if (HasFailure())
                return;
        }
    }

    void Play(const std::string& line)
    {
        std::istringstream words(line);
        std::string subject;
        words >> subject;
        if (subject == "open")
            connections_[Rest(words)];
        else if (subject == "log" || subject == "nolog" || subject == "stdout")
            CheckText(subject, Rest(words));
        else
            Talk(connections_.at(subject), words);
    }

    void CheckText(const std::string& kind, const std::string& rest)
    {
        const size_t quote = rest.rfind('"');
        const std::string text = Expand(rest.substr(1, quote - 1), true);
        const std::string times = rest.substr(quote + 1);
        if (kind == "log")
            server->WaitForLog(text, times.empty() ? 1 : std::stoi(times));
        else if (kind == "stdout")
            server->WaitForOutput(text);
        else
            EXPECT_EQ(server->CountLog(text), 0);
    }

    std::vector<Line> lines_;
    std::map<std::string, Connection> connections_;
};

void Register(const std::filesystem::path& file, std::string name, const std::vector<Line>& lines)
{
    for (char& c : name)
        c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
    testing::RegisterTest(("Sequence_" + file.stem().string()).c_str(), name.c_str(), nullptr, nullptr,
                          file.c_str(), lines.at(0).number,
                          [lines]() -> RunningCamera* { return new Sequence(lines); });
}

void RegisterFile(const std::filesystem::path& file)
{
    std::ifstream in(file);
    std::string name;
    std::vector<Line> lines;
    int number = 0;
    for (std::string text; std::getline(in, text);) {
        number++;
        text.erase(0, text.find_first_not_of(' '));
        if (text.starts_with("case ")) {
            if (!name.empty())
                Register(file, name, lines);
            name = text.substr(6, text.size() - 7);
            lines.clear();
        } else if (!text.empty() && text[0] != '#') {
            lines.push_back({number, text});
        }
    }
    Register(file, name, lines);
}

} // namespace

int main(int argc, char** argv)
{
    for (const auto& entry : std::filesystem::directory_iterator(VELMORA_SEQUENCES))
        RegisterFile(entry.path());
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
