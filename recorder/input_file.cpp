#include "recorder/input_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "recorder/failure.h"

namespace {

constexpr size_t kMostBytes = 4 << 20; // far more than any camera's configuration

struct FileClose {
    void operator()(FILE* file) const { fclose(file); }
};

} // namespace

JsonPtr ReadJsonFile(const std::string& path)
{
    const std::string name = path == "-" ? "standard input" : path;
    const std::unique_ptr<FILE, FileClose> opened(path == "-" ? nullptr : fopen(path.c_str(), "re"));
    FILE* const file = path == "-" ? stdin : opened.get();
    const auto fail = [&name](const char* why) {
        throw Failure(kExitLocal, "cannot read " + name + ": " + why);
    };
    if (file == nullptr)
        fail(strerror(errno));
    std::string text;
    char piece[4096];
    for (size_t got = 0; (got = fread(piece, 1, sizeof piece, file)) > 0;) {
        text.append(piece, got);
        if (text.size() > kMostBytes)
            fail("it is too long");
    }
    if (ferror(file) != 0)
        fail(strerror(errno));
    return ParseJson(text, name);
}
