// get, set, diff and restore towards a camera that has some of the objects.

#include <gtest/gtest.h>

#include <utility>

#include "recorder/device_report.h"
#include "recorder/failure.h"
#include "tests/recorder/run_tool.h"

namespace {

JsonPtr Parse(const char* text)
{
    return JsonPtr(cJSON_Parse(text));
}

void Save(const TempFolder& folder, const char* name, const std::string& text)
{
    FILE* const file = fopen(folder.File(name).c_str(), "w");
    ASSERT_NE(file, nullptr);
    fputs(text.c_str(), file);
    fclose(file);
}

ConfigCamera SomeCamera()
{
    ConfigCamera camera;
    camera.objects["General.General"] = Parse(R"({"LocalNo":0})");
    camera.objects["Record.[0]"] = Parse(R"({"PreRecord":5})");
    camera.objects["System.TimeZone"] = Parse(R"({"timeMin":60})");
    camera.apply = [&objects = camera.objects](const cJSON* set) {
        if (const cJSON* zone = cJSON_GetObjectItem(set, "System.TimeZone"))
            objects["System.TimeZone"] = CopyJson(zone);
        return true;
    };
    return camera;
}

TEST(Configuration, IsReadChangedAndCompared)
{
    const std::string all = R"({"General.General":{"LocalNo":0},"Record.[0]":{"PreRecord":5},)";
    const struct {
        const char* words;
        int code;
        std::string out;
        const char* error; // part of it
        size_t sets;
    } kCases[] = {
        {"get $HOST Record.[0] --json", kExitOk, R"({"PreRecord":5})", "", 0},
        {"get $HOST --all --json", kExitOk, all + R"("System.TimeZone":{"timeMin":60}})", "", 0},
        {"get $HOST No.Such", kExitCameraError, "", "serves no configuration object 'No.Such'", 0},
        {"get $HOST", kExitUsage, "", "--all", 0},
        {"set $HOST System.TimeZone '{\"timeMin\":-60}'", kExitOk, "System.TimeZone/timeMin: 60 -> -60", "",
         1},
        {"set $HOST General.General @new.json", kExitDiffers, "",
         "not taken by the camera: General.General/LocalNo: 4 -> 0", 1},
        {"set $HOST Record.[0] '{}'", kExitUsage, "", "read-only", 0},
        {"set $HOST System.TimeZone '{} x'", kExitUsage, "", "is not JSON", 0},
        {"set $HOST System.TimeZone @none", kExitLocal, "", "cannot read none", 0},
        {"diff $HOST same.json", kExitOk, "", "", 0},
        {"diff $HOST before.json", kExitDiffers,
         "Record.[0]/PreRecord: 9 -> 5\nSystem.TimeZone/timeMin: 0 -> 60", "", 0},
        {"restore $HOST before.json --json", kExitDiffers,
         R"({"restored":["System.TimeZone"],"skipped":["Record.[0]"],"failed":[],)"
         R"("remaining":[{"path":"Record.[0]/PreRecord","before":9,"now":5}]})",
         "Record.[0]/PreRecord: 9 -> 5", 1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.words);
        const TempFolder folder;
        Save(folder, "new.json", R"({"LocalNo":4})");
        Save(folder, "same.json", all + R"("System.TimeZone":{"timeMin":60}})");
        Save(
            folder, "before.json",
            R"({"General.General":{"LocalNo":0},"Record.[0]":{"PreRecord":9},"System.TimeZone":{"timeMin":0}})");
        ConfigCamera camera = SomeCamera();
        const bool connects = c.code != kExitUsage && c.code != kExitLocal;
        Outcome outcome{};
        {
            FakeCamera server(connects ? std::vector<Script>{std::ref(camera)} : std::vector<Script>{});
            outcome = RunTool(folder, server, c.words);
        }
        EXPECT_EQ(outcome.code, c.code) << outcome.err;
        EXPECT_EQ(outcome.out, c.out.empty() ? "" : c.out + "\n");
        EXPECT_EQ(outcome.err.empty(), c.error[0] == '\0') << outcome.err;
        EXPECT_NE(outcome.err.find(c.error), std::string::npos) << outcome.err;
        EXPECT_EQ(camera.sets.size(), c.sets);
    }
}

TEST(Configuration, InfoIsReadable)
{
    const JsonPtr device = Parse(
        R"({"Login":{"DeviceType":"IPC"},"SystemInfo":{"SerialNo":"S\u0007"},"StorageInfo":[[{"TotalSpace":"0",)"
        R"("RemainSpace":"0","Status":0}]],"Abilities":{"SystemFunction":{"TipShow":{"A":true,"B":false}},)"
        R"("EncodeCapability":{"EncodeInfo":[{"CompressionMask":"0x00000180","Enable":true,"HaveAudio":true,)"
        R"("ResolutionMask":"0x84004800","StreamType":"MainStream"},{"Enable":false,"StreamType":"X"}]}}})");
    EXPECT_EQ(DeviceText(device.get()),
              "System\n  type                IPC\n  serial number       S.\nStorage\n"
              "  partition 0         total 0, free 0, status 0\nStreams\n"
              "  MainStream          H.264 H.265; sizes 720P 1080P WSVGA bit 31; audio\nAbilities\n"
              "Functions that are on\n  TipShow             A\n");
}

// An encoder that compares codecs as the camera does, and drops the first set after a start of live video.
struct Encoder {
    ConfigCamera camera;
    bool drops;

    Encoder(const char* encode, bool liveStarted) : drops(liveStarted)
    {
        camera.objects["Simplify.Encode"] = Parse(encode);
        camera.apply = [this](const cJSON* set) {
            if (std::exchange(drops, false))
                return false;
            Apply(cJSON_GetObjectItem(set, "Simplify.Encode.[0]"));
            return true;
        };
    }

    void Apply(const cJSON* set)
    {
        cJSON* formats = camera.objects["Simplify.Encode"]->child;
        const std::string main = *Codec(formats, "MainFormat");
        bool changed = false;
        for (int pass = 0; pass < cJSON_GetArraySize(set); pass++)
            for (const char* format : {"ExtraFormat", "MainFormat"})
                if (const auto codec = Codec(set, format); codec && (changed || *codec != main)) {
                    changed = true;
                    cJSON* video = cJSON_GetObjectItem(cJSON_GetObjectItem(formats, format), "Video");
                    SetMember(video, "Compression", JsonPtr(cJSON_CreateString(codec->c_str())));
                }
    }

    static std::optional<std::string> Codec(const cJSON* formats, const char* format)
    {
        const char* text =
            GetJsonString(cJSON_GetObjectItem(cJSON_GetObjectItem(formats, format), "Video"), "Compression");
        return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
    }
};

std::string Formats(const char* extra, const char* main)
{
    return std::string(R"([{"ExtraFormat":{"Video":{"Compression":")") + extra +
           R"("}},"MainFormat":{"Video":{"Compression":")" + main + R"("}}}])";
}

TEST(Configuration, EveryPairOfCodecsIsRestored)
{
    const struct {
        const char *extraBefore, *mainBefore, *extraNow, *mainNow;
        size_t sets;
        bool liveStarted = false;
    } kCases[] = {
        {"H.264", "H.264", "H.265", "H.265", 1},
        {"H.264", "H.265", "H.265", "H.264", 1},
        {"H.265", "H.264", "H.264", "H.264", 2, true}, // sent once more
        {"H.264", "H.264", "H.265", "H.264", 3},       // by way of another codec on the main stream
    };
    for (const auto& c : kCases) {
        const std::string before = R"({"Simplify.Encode":)" + Formats(c.extraBefore, c.mainBefore) + "}";
        SCOPED_TRACE(before);
        const TempFolder folder;
        Save(folder, "before.json", before);
        Encoder encoder(Formats(c.extraNow, c.mainNow).c_str(), c.liveStarted);
        Outcome outcome{};
        {
            FakeCamera server({std::ref(encoder.camera)});
            outcome = RunTool(folder, server, "restore $HOST before.json");
        }
        EXPECT_EQ(outcome.code, kExitOk) << outcome.err;
        EXPECT_EQ(PrintJson(encoder.camera.objects["Simplify.Encode"].get(), false),
                  Formats(c.extraBefore, c.mainBefore));
        EXPECT_EQ(encoder.camera.sets.size(), c.sets);
    }
}

} // namespace
