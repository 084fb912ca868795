#include "recorder/settings.h"

#include <gtest/gtest.h>

#include "recorder/failure.h"
#include "tests/table.h"

namespace {

TEST(Settings, SendWhatTheCameraTakesAndKeepTheRest)
{
    for (const TableRow& row : ReadTable(VELMORA_RECORDER_DATA "/settings.tsv", 4)) {
        SCOPED_TRACE(row[0] + " " + row[2]);
        const ConfigName& object = *FindConfigName(row[0]);
        const JsonPtr present(cJSON_Parse(row[1].c_str()));
        const JsonPtr wish(cJSON_Parse(row[2].c_str()));
        std::string sent = "-";
        try {
            const std::string body = SetRequestBody(object, ReadAsked(object, wish.get()).get(),
                                                    ConfigElement(object, present.get()), "0x00000007");
            const JsonPtr request(cJSON_Parse(body.c_str()));
            if (request)
                sent = PrintJson(cJSON_GetObjectItem(request.get(), object.setName), false);
            if (const char* mac = GetJsonString(request.get(), "MAC"))
                sent += mac;
            EXPECT_EQ(body.find(std::string(R"("Name":")") + object.setName + "\""), request ? 1 : body.npos);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kExitUsage);
            sent = "!" + std::string(failure.what());
        }
        const bool isRefused = row[3].starts_with("!") && sent.starts_with("!");
        EXPECT_TRUE(isRefused ? sent.find(row[3].substr(1)) != sent.npos : sent == row[3]) << sent;
    }
}

TEST(Json, NamesEveryLeafThatDiffers)
{
    // Before, now, the lines of all differences, and of those that are wanted.
    const char* const kTrees[][4] = {
        {R"({"a":[1,{"b":true}]})", R"({"a":[1,{"b":true}]})", "", ""},
        {R"({"a":[1,{"b":true}]})", R"({"a":[2,{"b":1},3],"c":{}})",
         "a/0: 1 -> 2\na/1/b: true -> 1\na/2: (none) -> 3\nc: (none) -> {}\n",
         "a/0: 1 -> 2\na/1/b: true -> 1\n"},
        {R"({"a":"0x0A","b":"0xa"})", R"({"a":"0x0000000a"})",
         "a: \"0x0A\" -> \"0x0000000a\"\nb: \"0xa\" -> (none)\n", "b: \"0xa\" -> (none)\n"},
        {"{\"\x1b[2J\":1}", "{}", ".[2J: 1 -> (none)\n", ".[2J: 1 -> (none)\n"}, // nothing a terminal obeys
    };
    for (const auto& [before, now, all, wanted] : kTrees) {
        const JsonPtr a(cJSON_Parse(before));
        const JsonPtr b(cJSON_Parse(now));
        std::string lines, wantedLines;
        for (const JsonDifference& difference : CompareJson(a.get(), b.get()))
            lines += DifferenceLine(difference) + "\n";
        for (const JsonDifference& difference : CompareWanted(a.get(), b.get()))
            wantedLines += DifferenceLine(difference) + "\n";
        EXPECT_EQ(lines, all);
        EXPECT_EQ(wantedLines, wanted);
    }
}

} // namespace
