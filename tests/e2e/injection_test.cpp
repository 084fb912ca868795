// Nothing that came from outside reaches a shell or names a file: every text of every request, and all
// texts of the settings, are set to what a shell, a path or a format would act on (data/injection/), while
// a shell that writes down how it was called stands in for the system's.

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "protocol/json_fields.h"
#include "tests/answering_host.h"
#include "tests/e2e/harness/camera_test.h"

namespace {

namespace fs = std::filesystem;

constexpr char kTexts[] = VELMORA_SEQUENCES "/injection/texts.txt";
constexpr char kRequests[] = VELMORA_SEQUENCES "/injection/requests.txt";

std::vector<std::string> Lines(const std::string& file)
{
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        if (!line.starts_with('#'))
            lines.push_back(line);
    return lines;
}

// All files of the sandbox's own, which are those that somebody could have made: not the machine's.
std::set<std::string> OwnFiles()
{
    const auto device = [](const fs::path& path) {
        struct stat status {};
        return lstat(path.c_str(), &status) == 0 ? status.st_dev : 0;
    };
    std::set<std::string> files;
    for (fs::recursive_directory_iterator entry("/"), end; entry != end; ++entry) {
        if (device(entry->path()) == device("/"))
            files.insert(entry->path());
        else
            entry.disable_recursion_pending();
    }
    return files;
}

class Injection : public Camera, public testing::WithParamInterface<size_t> {
  protected:
    void SetUp() override
    {
        // Whatever is named without a folder would be made here.
        const char* const prepare =
            "cd /param && cp /bin/sh /sandbox/bin/real-sh && cp /bin/sleep /sandbox/bin/RecHost && "
            "printf '#!/sandbox/bin/real-sh\necho \"$*\" >> /sandbox/shell\n"
            "exec /sandbox/bin/real-sh \"$@\"\n' > /sandbox/bin/recording-sh && "
            "chmod +x /sandbox/bin/recording-sh && touch /sandbox/shell && "
            "{ /sandbox/bin/RecHost 1000 & } && "
            "mount --bind /sandbox/bin/recording-sh \"$(readlink -f /bin/sh)\"";
        ASSERT_EQ(std::system(prepare), 0);
        fs::current_path("/param");
        StartServer({"-p", std::to_string(kServerPort)});
        media->WaitForQueries();
        files = OwnFiles();
    }
    // Sends the body once for each of its texts, which is replaced.
    void SendEach(uint16_t id, const cJSON* body, cJSON* item, const std::string& text)
    {
        for (; item != nullptr; item = item->next) {
            SendEach(id, body, item->child, text);
            if (cJSON_IsString(item) == 0)
                continue;
            const std::string original = item->valuestring;
            cJSON_SetValuestring(item, text.c_str());
            char* const printed = cJSON_PrintUnformatted(body);
            ProtocolClient client;
            client.Send(id, printed);
            server->WaitForLog(" cmd = " + std::to_string(id));
            cJSON_free(printed);
            cJSON_SetValuestring(item, original.c_str());
            server->ExpectHealthy();
            server->ForgetWritten();
            sent++;
        }
    }

    AnsweringHost answering;
    std::set<std::string> files;
    int sent = 0;
};

TEST_P(Injection, ReachesNeitherAShellNorAFile)
{
    const std::string text = Lines(kTexts).at(GetParam());
    SCOPED_TRACE(text);
    for (size_t at = 0; at < kSysConfigBytes; at++) // texts end where their fields do
        parameters->Set(at, text[at % text.size()]);
    for (const std::string& line : Lines(kRequests)) {
        SCOPED_TRACE(line);
        const JsonPtr body(cJSON_Parse(line.substr(line.find(' ')).c_str()));
        ASSERT_NE(body, nullptr);
        SendEach(static_cast<uint16_t>(std::stoi(line)), body.get(), body->child, text);
    }
    const std::set<std::string> allowed{"-c ps -ef|grep RecHost|grep -v grep", "-c killall RecHost",
                                        "/sandbox/bin/killall RecHost"};
    const std::vector<std::string> run = Lines("/sandbox/shell");
    EXPECT_EQ(std::set(run.begin(), run.end()), allowed);
    EXPECT_EQ(OwnFiles(), files);
    std::cout << sent << " messages\n";
}

INSTANTIATE_TEST_SUITE_P(Texts, Injection, testing::Range<size_t>(0, Lines(kTexts).size()));

} // namespace
