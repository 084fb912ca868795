// Everything that a recorder reads and changes by name, over the wire: the real server on the settings of a
// real parameter host. Settings, replies and changes are data.

#include <sys/shm.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "hosts/parameter_host.h"
#include "protocol/json_fields.h"
#include "tests/e2e/harness/camera_test.h"
#include "tests/e2e/harness/expand.h"

namespace {

namespace fs = std::filesystem;

constexpr char kMac[] = "02:00:5E:A1:B2:C3"; // of every sandbox
constexpr char kSilence[] = "";
constexpr char kDone[] = R"({"Name":"","Ret":100,"SessionID":"SESSION"})";

std::string Named(const std::string& name)
{
    return R"({"Name":")" + name + "\"}";
}

std::string Replace(std::string text, std::string_view what, std::string_view with)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

// Data of the tests, as JSON; read for as long as the program runs.
struct Json {
    const cJSON* item;

    Json operator[](const char* key) const { return {cJSON_GetObjectItemCaseSensitive(item, key)}; }
    Json operator[](int index) const { return {cJSON_GetArrayItem(item, index)}; }
    [[nodiscard]] int size() const { return cJSON_GetArraySize(item); }
    [[nodiscard]] size_t number() const { return static_cast<size_t>(item->valuedouble); }
    [[nodiscard]] std::string text() const { return item->valuestring; }
    [[nodiscard]] std::string compact() const
    {
        char* const printed = cJSON_PrintUnformatted(item);
        std::string result = printed;
        cJSON_free(printed);
        return result;
    }
};

Json Rows(const std::string& name, const char* member = "rows")
{
    static std::map<std::string, JsonPtr> files;
    std::stringstream text;
    text << std::ifstream(VELMORA_SEQUENCES "/configuration/" + name + ".json").rdbuf();
    JsonPtr& file = files.try_emplace(name, cJSON_Parse(text.str().c_str())).first->second;
    const Json rows = Json{file.get()}[member];
    if (rows.size() == 0)
        throw std::runtime_error("no rows in " + name);
    return rows;
}

// Writes a row [what, offset, bytes, number or text].
void Store(char* settings, Json row)
{
    const auto number = static_cast<uint32_t>(row[3].number());
    const std::string text(reinterpret_cast<const char*>(&number), sizeof number); // little-endian
    (cJSON_IsString(row[3].item) != 0 ? row[3].text() : text)
        .copy(settings + row[1].number(), row[2].number());
}

class Configuration : public Camera {
  protected:
    Configuration()
    {
        parameters.reset(); // there is a real one
        host.emplace("", [] {}).Start();
        block_ = ShmAttachment(shmget(kSysConfigKey, 0, 0));
        StoreDistinctSettings();
        StartServer();
        recorder.emplace().Login();
    }
    ~Configuration() override
    {
        server.reset(); // before the host that it waits for
        host->Stop();
        host->Release(true);
    }

    // Settings of which no two are alike, so that a value in a wrong place shows.
    void StoreDistinctSettings()
    {
        static const Json rows = Rows("settings");
        memset(settings(), 0, kSysConfigBytes);
        for (int row = 0; row < rows.size(); row++)
            Store(settings(), rows[row]);
    }
    [[nodiscard]] char* settings() const { return reinterpret_cast<char*>(block_.get()); }

    // Expects the reply with this text for SESSION, or none.
    void ExpectAnswer(uint16_t id, const std::string& body, std::string_view expected)
    {
        SCOPED_TRACE(body.substr(0, 300));
        char session[16];
        snprintf(session, sizeof session, "0x%08x", recorder->session);
        EXPECT_EQ(Exchange(*recorder, id, body, expected != kSilence),
                  Replace(std::string(expected), "SESSION", session));
    }
    // Expects the members somewhere in the reply, one behind the other.
    void ExpectMembers(uint16_t id, const std::string& name, Json members)
    {
        const std::string object = members.compact();
        const std::string body = recorder->Ask(id, Named(name)).body;
        EXPECT_NE(body.find(object.substr(1, object.size() - 2)), std::string::npos)
            << body << "\nlacks " << object;
    }
    static std::string SetBody(const std::string& name, const std::string& object)
    {
        return R"({"MAC":")" + std::string(kMac) + R"(","Name":")" + name + "\",\"" + name + "\":" + object +
               "}";
    }

    std::optional<ParameterHost> host;
    std::optional<ProtocolClient> recorder;

  private:
    ShmAttachment block_;
};

TEST_F(Configuration, EveryReplyIsTheOneThatIsWrittenDown)
{
    constexpr struct {
        const char* directory;
        uint16_t id;
        int names;
    } kRows[] = {
        {"get", kGetConfigReq, 26}, {"ability", kGetAbilityReq, 14}, {"information", kSysinfoReq, 2}};
    const auto read = [](const fs::path& path) {
        std::string line;
        std::ifstream file(path);
        std::getline(file, line);
        return line;
    };
    const fs::path replies = VELMORA_SEQUENCES "/replies";
    for (const auto& row : kRows) {
        int names = 0;
        for (const fs::directory_entry& file : fs::directory_iterator(replies / row.directory)) {
            ExpectAnswer(row.id, Named(file.path().stem()), read(file));
            names++;
        }
        EXPECT_EQ(names, row.names);
    }
    ProtocolClient stranger; // a search comes without a session
    EXPECT_EQ(stranger.Ask(kDevSearchReq, "is not read").body, read(replies / "search.json"));
}

TEST_F(Configuration, RepliesFollowTheSettings)
{
    const Json rows = Rows("variations");
    for (int i = 0; i < rows.size(); i++) {
        const Json row = rows[i];
        SCOPED_TRACE(row["what"].text());
        StoreDistinctSettings();
        for (int setting = 0; setting < row["settings"].size(); setting++)
            Store(settings(), row["settings"][setting]);
        if (row["sizes"].item != nullptr) // of the maker's
            std::ofstream("/var/cfg/CustomTools.cfg") << row["sizes"].text();
        ExpectMembers(static_cast<uint16_t>(row["id"].number()), row["name"].text(), row["part"]);
    }
}

TEST_F(Configuration, WhatIsSetIsReadBack)
{
    const Json rows = Rows("changes");
    for (int i = 0; i < rows.size(); i++) {
        const Json row = rows[i];
        ExpectAnswer(kSetConfigReq, SetBody(row["set"].text(), row["object"].compact()), kDone);
        for (int part = 0; part < row["parts"].size(); part++)
            ExpectMembers(kGetConfigReq, row["get"].text(), row["parts"][part]);
    }
    EXPECT_EQ(LoadLe<uint16_t>(settings() + block::kWidth(1)), 720);
    EXPECT_EQ(LoadLe<int32_t>(settings() + block::kBitRate(1)), 768 * 1024);
    EXPECT_EQ(settings()[block::kEncoding(2)], 2) << "the third stream goes with the main stream";
    EXPECT_EQ(static_cast<uint8_t>(settings()[1300]), 128) << "brightness 50";
}

TEST_F(Configuration, HostileValuesChangeNothingBeyondTheirPlace)
{
    const Json values = Rows("hostile", "values");
    const Json rows = Rows("hostile");
    for (int i = 0; i < rows.size(); i++) {
        const Json row = rows[i];
        for (int v = 0; v < values.size(); v++) {
            const std::string value = Expand(values[v].text(), false);
            SCOPED_TRACE("% is " + value.substr(0, 20));
            StoreDistinctSettings();
            std::string expected(settings(), kSysConfigBytes);
            ExpectAnswer(kSetConfigReq,
                         SetBody(row["name"].text(), Replace(row["object"].compact(), R"("%")", value)),
                         row["isAnswered"].item->type == cJSON_True ? kDone : kSilence);
            const std::string changed(settings(), kSysConfigBytes);
            const Json allowed = row[value == "null" ? "afterNulls" : "carried"];
            for (int place = 0; place < allowed.size(); place++)
                if (value == "null")
                    Store(expected.data(), allowed[place]);
                else
                    expected.replace(allowed[place][1].number(), allowed[place][2].number(), changed,
                                     allowed[place][1].number(), allowed[place][2].number());
            const auto differs = std::mismatch(changed.begin(), changed.end(), expected.begin()).first;
            EXPECT_EQ(static_cast<size_t>(differs - changed.begin()), kSysConfigBytes)
                << row["name"].text() << ": the byte that differs";
        }
    }
    EXPECT_EQ(recorder->Login(), 2U); // nothing has hurt it
}

} // namespace
