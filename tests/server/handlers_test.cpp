// Plays data/*.tsv: each line is a request to the handlers, its reply, and what it makes the camera do.
//
//   = NAME TEXT                         NAME below stands for the text
//   @ OFFSET BYTES ...                  the parameter block holds the bytes there from now on
//   request, text, reply[, effect, log] separated by tabs
//
// The request is an id and a body, in which the text stands for the %. A reply of "-" is none, "any" one that
// is written down elsewhere. The effect is what the parameter host is asked for, as CODE:BYTES, then the
// time that the clock is set to, and "alarms" if the connection has been subscribed to them. The log holds
// the texts between | in this order.

#include <ctime>
#include <fstream>
#include <map>
#include <sstream>

#include "server/ProtocolAccess.h"
#include "tests/camera/camera_setup.h"
#include "tests/e2e/harness/expand.h"
#include "tests/exchange.h"

namespace {

std::string g_clock; // what the system's clock was set to, had it been let

} // namespace

extern "C" int __wrap_clock_settime(clockid_t, const timespec*);
int __wrap_clock_settime(clockid_t, const timespec* time)
{
    g_clock += "clock:" + std::to_string(time->tv_sec) + " ";
    return 0;
}
extern "C" void __wrap__Z7SleepMsj(uint32_t);
void __wrap__Z7SleepMsj(uint32_t) {} // the pauses between settings take no time here

namespace {

class Handlers : public testing::TestWithParam<std::string> {
  protected:
    Handlers() { memset(Host().block, 0, kBlockBytes); }

    std::string Meant(const std::string& text)
    {
        return names_.contains(text) ? names_[text] : Expand(text, false);
    }
    std::string MeantByWords(const std::string& text)
    {
        std::string all;
        std::istringstream words(text);
        for (std::string word; words >> word; all += Meant(word) + " ") {
        }
        return all;
    }
    static void Store(std::istringstream& words)
    {
        std::string hex;
        for (size_t offset = 0; words >> offset >> hex;)
            for (size_t at = 0; at < hex.size(); at += 2)
                Host().block[offset++] = static_cast<uint8_t>(std::stoi(hex.substr(at, 2), nullptr, 16));
    }
    static std::string Effect(const TestConnection& recorder)
    {
        const std::string asked = Host().TakeText();
        return asked + (asked.empty() ? "" : " ") + std::exchange(g_clock, {}) +
               (GetAlarmFlag(recorder.fd()) == 1 ? "alarms " : "");
    }
    void Play(std::istringstream& row)
    {
        std::string request, text, reply, effect, log;
        for (std::string* cell : {&request, &text, &reply, &effect, &log})
            std::getline(row, *cell, '\t');
        request = Meant(request);
        request.replace(request.find('%'), 1, text);
        const TestConnection recorder(0xA);
        const auto id = static_cast<uint16_t>(std::stoi(request));
        Answer answer{};
        const std::string written = ErrorOutputOf([&] {
            answer = ExchangeOn(recorder.fd(), ProtocolNetworkProcess, MakeRequest(id, request.substr(5)));
        });
        EXPECT_EQ(reply == "any" ? "any" : answer.body, reply == "-" ? "" : Meant(reply));
        EXPECT_EQ(answer.bytes == 0, reply == "-");
        EXPECT_EQ(Effect(recorder), MeantByWords(effect));
        std::istringstream texts(Expand(log, false));
        for (size_t place = 0; std::getline(texts, text, '|');)
            ASSERT_NE(place = written.find(text, place), std::string::npos) << text << "\n" << written;
    }

    std::map<std::string, std::string> names_;
};

TEST_P(Handlers, DoWhatTheirRowsSay)
{
    std::ifstream file(VELMORA_ROWS "/" + GetParam() + ".tsv");
    int rows = 0;
    for (std::string line, mark, name; std::getline(file, line);) {
        SCOPED_TRACE(line);
        std::istringstream row(line);
        if (line.starts_with("= "))
            row >> mark >> name >> std::ws, std::getline(row, names_[name]);
        else if (line.starts_with("@ "))
            row >> mark, Store(row);
        else if (!line.empty() && line[0] != '#')
            Play(row), rows++;
    }
    EXPECT_GT(rows, 0);
}
INSTANTIATE_TEST_SUITE_P(Data, Handlers, testing::Values("device", "encode", "ptz", "settings"),
                         [](const auto& test) { return test.param; });

} // namespace
