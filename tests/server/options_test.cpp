#include "app/options.h"

#include "tests/captured_output.h"
#include "tests/table.h"

namespace {

TEST(Options, AreReadOverTheirDefaults)
{
    for (const TableRow& row : ReadTable(VELMORA_ROWS "/options.tsv", 2)) {
        SCOPED_TRACE(row[0]);
        std::vector<std::string> arguments{"Velmora_server"};
        std::istringstream text(row[0] + "|");
        for (std::string argument; std::getline(text, argument, '|');)
            arguments.push_back(argument);
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        Options options{.port = 8000, .clientType = 10, .interfaceName = "eth0"};
        const CapturedOutput log;
        const bool isAccepted = ParseOptions(static_cast<int>(argv.size()), argv.data(), &options);
        const std::string name = options.interfaceName;
        const std::string read =
            std::to_string(options.port) + " " + std::to_string(options.clientType) + " " + name;
        EXPECT_EQ(isAccepted ? read : "refused", row[1]);
        if (isAccepted) {
            EXPECT_EQ(log.Text(), name != "eth0" ? "[Trace]: dev = " + name + "\n" : "");
        }
    }
    Options options{};
    EXPECT_TRUE(ParseOptions(0, nullptr, &options)); // no program name either
}

} // namespace
