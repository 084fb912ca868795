#include "app/options.h"

#include "tests/captured_output.h"

namespace {

constexpr char kLongName[] = "0123456789012345678901234567890123456789012345678901234567890123";

const struct OptionsCase {
    const char* name;
    std::vector<const char*> arguments;
    bool isAccepted;
    int port;
    int clientType;
    std::string interfaceName;
} kOptionsCases[] = {
    {"All", {"-p", "9000", "-t", "12", "-i", "wlan0"}, true, 9000, 12, "wlan0"},
    {"CapitalsInAnyOrder", {"-I", "wlan0", "-P", "9000"}, true, 9000, 10, "wlan0"},
    {"OthersAreSkipped", {"x", "-v", "--port", "-p", "1", "9"}, true, 1, 10, "eth0"},
    {"AValueMayLookLikeAnOption", {"-i", "-p", "-t", "-7"}, true, 8000, -7, "-p"},
    {"TheLastCounts", {"-p", "1", "-p", "65535"}, true, 65535, 10, "eth0"},
    {"LongNameIsCut", {"-i", kLongName}, true, 8000, 10, std::string(kLongName, 63)},
    {"PortAsAtoiReadsIt", {"-p", " +80abc"}, true, 80, 10, "eth0"},
    {"PortWithAFraction", {"-p", "80.9"}, true, 80, 10, "eth0"},
    {"PortZero", {"-p", "0"}, false, 0, 0, ""},
    {"PortBelowZero", {"-p", "-1"}, false, 0, 0, ""},
    {"PortBeyondSixteenBits", {"-p", "65536"}, false, 0, 0, ""},
    {"PortThatWrapsToOne", {"-p", "65537"}, false, 0, 0, ""},
    {"PortInHexadecimal", {"-p", "0x50"}, false, 0, 0, ""},
    {"PortByName", {"-p", "http"}, false, 0, 0, ""},
    {"EmptyPort", {"-p", ""}, false, 0, 0, ""},
    {"PortBeyondALong", {"-p", "99999999999999999999"}, false, 0, 0, ""},
    {"PortBeyondAnInt", {"-p", "4294967377"}, false, 0, 0, ""},
};

TEST(Options, AreReadOverTheirDefaults)
{
    for (const OptionsCase& c : kOptionsCases) {
        SCOPED_TRACE(c.name);
        std::vector<char*> argv{const_cast<char*>("Velmora_server")};
        for (const char* argument : c.arguments)
            argv.push_back(const_cast<char*>(argument));
        Options options{.port = 8000, .clientType = 10, .interfaceName = "eth0"};
        const CapturedOutput log;
        EXPECT_EQ(ParseOptions(static_cast<int>(argv.size()), argv.data(), &options), c.isAccepted);
        if (!c.isAccepted)
            continue;
        EXPECT_EQ(options.port, c.port);
        EXPECT_EQ(options.clientType, c.clientType);
        EXPECT_EQ(options.interfaceName, c.interfaceName);
        EXPECT_EQ(log.Text(), c.interfaceName != "eth0" ? "[Trace]: dev = " + c.interfaceName + "\n" : "");
    }
    Options options{};
    EXPECT_TRUE(ParseOptions(0, nullptr, &options)); // no program name either
}

} // namespace
