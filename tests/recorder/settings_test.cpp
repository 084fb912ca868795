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
    for (const TableRow& row : ReadTable(VELMORA_RECORDER_DATA "/differences.tsv", 4)) {
        const JsonPtr before(cJSON_Parse(row[0].c_str()));
        const JsonPtr now(cJSON_Parse(row[1].c_str()));
        std::string lines, wanted;
        for (const JsonDifference& difference : CompareJson(before.get(), now.get()))
            lines += DifferenceLine(difference) + "\n";
        for (const JsonDifference& difference : CompareWanted(before.get(), now.get()))
            wanted += DifferenceLine(difference) + "\n";
        EXPECT_EQ(lines, row[2] == "-" ? "" : row[2]);
        EXPECT_EQ(wanted, row[3] == "-" ? "" : row[3]);
    }
}

} // namespace
