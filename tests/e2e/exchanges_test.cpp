// Plays data/exchanges/*.tsv: each line is a request, the exact reply to it and what it does. All requests of
// a file go over one connection to one server.
//
//   = NAME TEXT                             NAME below stands for the text
//   what, request, text, reply[, effect]    separated by tabs
//
// The request is an id and a body, in which the text stands for the % (harness/expand.h). A reply of "-" is
// none. The effect is what the request makes the server ask of the parameter host, or "log TEXT": what the
// server writes about the request holds the text, or "nolog TEXT": does not. No effect: nothing is asked.

#include <fstream>
#include <map>
#include <sstream>

#include "tests/answering_host.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/e2e/harness/expand.h"

namespace {

class Exchanges : public RunningCamera, public testing::WithParamInterface<std::string> {
  protected:
    // What a cell of a row stands for.
    std::string Cell(std::istream& row)
    {
        std::string text;
        std::getline(row, text, '\t');
        return names_.contains(text) ? names_[text] : text;
    }
    void Define(const std::string& line)
    {
        const size_t text = line.find(' ', 2);
        names_[line.substr(2, text - 2)] = line.substr(text + 1);
    }
    void Play(std::istream& row)
    try {
        const std::string what = Cell(row);
        std::string request = Cell(row);
        const std::string text = Cell(row), reply = Cell(row), effect = Cell(row);
        request.replace(request.find('%'), 1, text);
        server->ExpectHealthy();
        server->ForgetWritten();
        const auto id = static_cast<uint16_t>(std::stoi(request));
        const std::string body = Expand(request.substr(request.find(' ') + 1), false);
        EXPECT_EQ(Exchange(*client_, id, body, reply != "-"), reply == "-" ? "" : reply);
        const size_t words = effect.find("log ");
        EXPECT_EQ(host_.TakeText(), words == std::string::npos ? Expand(effect, true) : "");
        if (words == std::string::npos)
            return;
        EXPECT_EQ(server->CountLog(Expand(effect.substr(words + 4), true)) > 0, words == 0);
    } catch (const std::exception& failure) {
        FAIL() << failure.what();
    }

    AnsweringHost host_;
    std::map<std::string, std::string> names_;
    std::optional<ProtocolClient> client_;
};

TEST_P(Exchanges, HaveTheirReplyAndTheirEffect)
{
    const std::string file = VELMORA_SEQUENCES "/exchanges/" + GetParam() + ".tsv";
    std::ifstream in(file);
    client_.emplace();
    int number = 0, rows = 0;
    for (std::string line; !HasFatalFailure() && std::getline(in, line);) {
        SCOPED_TRACE(file + ":" + std::to_string(++number) + ": " + line);
        std::istringstream row(line);
        if (line.starts_with("= "))
            Define(line);
        else if (line.find('\t') != std::string::npos)
            Play(row), rows++;
        else
            ASSERT_TRUE(line.empty() || line[0] == '#') << "no row";
    }
    EXPECT_GT(rows, 0);
}

INSTANTIATE_TEST_SUITE_P(Data, Exchanges,
                         testing::Values("addresses", "dates", "json", "names", "ports", "ptz", "stores"),
                         [](const auto& test) { return test.param; });

} // namespace
