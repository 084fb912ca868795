// The program as a user runs it, and what its get, set, diff and restore do to a camera that has some
// objects.

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "recorder/json.h"
#include "tests/recorder/run_tool.h"
#include "tests/table.h"

namespace {

// A camera with some configuration objects, of which it lets the time zone be set.
struct ConfigCamera {
    std::map<std::string, Bytes> objects = {{"General.General", R"({"LocalNo":0})"},
                                            {"Record.[0]", R"({"PreRecord":5})"},
                                            {"System.TimeZone", R"({"timeMin":60})"}};
    int sets = 0;

    void operator()(Peer& peer)
    {
        for (Request request = peer.Read(); request.id != 0; request = peer.Read()) {
            const JsonPtr body(cJSON_Parse(request.body.c_str()));
            Bytes answer = R"({"AliveInterval":20,"Ret":100})";
            if (request.id == 1042)
                answer = Get(GetJsonString(body.get(), "Name"));
            if (request.id == 1040) {
                sets++;
                if (const cJSON* zone = cJSON_GetObjectItem(body.get(), "System.TimeZone"))
                    objects["System.TimeZone"] = PrintJson(zone, false);
            }
            peer.Send(Wire(request.id + 1U, request.seqNum, answer));
        }
    }
    Bytes Get(const Bytes& name)
    {
        return objects.contains(name) ? R"({"Ret":100,")" + name + "\":" + objects[name] + "}"
                                      : R"({"Ret":607})";
    }
};

Script ScriptOf(const std::string& camera, ConfigCamera* settings)
{
    if (camera == "settings")
        return std::ref(*settings);
    if (camera == "silent")
        return &Peer::AwaitClose;
    if (camera == "closes")
        return [](Peer& peer) { EXPECT_EQ(peer.Read().id, 1000); };
    if (camera == "echo")
        return [](Peer& peer) {
            const Request request = peer.Read();
            peer.Send(Wire(request.id + 1U, request.seqNum, request.body));
        };
    return [camera](Peer& peer) { peer.Answer(camera); };
}

TEST(Tool, EndsWithItsCodeItsOutputAndOneLine)
{
    const TemporaryDirectory folder;
    std::ofstream(folder.File("new.json")) << R"({"LocalNo":4})";
    for (const auto& [name, record, zone] : {std::tuple{"same.json", "5", "60"}, {"before.json", "9", "0"}})
        std::ofstream(folder.File(name)) << R"({"General.General":{"LocalNo":0},"Record.[0]":{"PreRecord":)"
                                         << record << R"(},"System.TimeZone":{"timeMin":)" << zone << "}}";
    for (const TableRow& row : ReadTable(VELMORA_RECORDER_DATA "/commands.tsv", 6)) {
        SCOPED_TRACE(row[0]);
        ConfigCamera settings;
        Outcome outcome{};
        {
            FakeCamera camera(row[1] == "-" ? std::vector<Script>{}
                                            : std::vector{ScriptOf(row[1], &settings)});
            outcome = RunTool(folder, camera, row[0]);
        }
        const bool fails = row[4] != "-";
        EXPECT_EQ(std::to_string(outcome.code), row[2]) << outcome.err;
        EXPECT_EQ(outcome.out, row[3] == "-" ? "" : row[3] + "\n");
        EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), fails ? 1 : 0);
        EXPECT_TRUE(!fails || outcome.err.starts_with("velmora: ")) << outcome.err;
        EXPECT_TRUE(!fails || outcome.err.find(row[4]) != std::string::npos) << outcome.err;
        EXPECT_EQ(std::to_string(settings.sets), row[5]);
    }
}

} // namespace
