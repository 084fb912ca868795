// Runs a fuzz target over files and folders of inputs, each once. A finding ends the program; what it was
// about is then the last name on standard error.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/wrapped.h"

namespace {

int g_inputs = 0;

void Run(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++g_inputs;
}

} // namespace

int main(int argc, char** argv)
{
    if (LLVMFuzzerInitialize(&argc, &argv) != 0)
        return EXIT_FAILURE;
    for (int i = 1; i < argc; ++i)
        if (!std::filesystem::is_directory(argv[i]))
            Run(argv[i]);
        else
            for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
                Run(entry.path());
    fprintf(stderr, "%d inputs\n", g_inputs);
    return g_inputs > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
