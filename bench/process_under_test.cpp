#include "bench/process_under_test.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace {

std::string ReadText(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

ProcessUnderTest::ProcessUnderTest(const std::string& path, std::vector<std::string> arguments) : path_(path)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&files, 1, 2);
    arguments.insert(arguments.begin(), path);
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int error = posix_spawn(&pid_, path.c_str(), &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0)
        throw std::runtime_error("cannot start " + path + ": " + strerror(error));
}

ProcessUnderTest::~ProcessUnderTest()
{
    if (pid_ < 0)
        return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

void ProcessUnderTest::CheckAlive() const
{
    siginfo_t state{};
    if (waitid(P_PID, static_cast<id_t>(pid_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 && state.si_pid != 0)
        throw std::runtime_error(path_ + " ended by itself with status " + std::to_string(state.si_status));
}

uint64_t FieldOf(const std::string& text, const std::string& name)
{
    const std::string label = '\n' + name + ':';
    const size_t at = ('\n' + text).find(label);
    return at == std::string::npos ? 0 : strtoull(text.c_str() + at + label.size() - 1, nullptr, 10);
}

ProcessCounters ReadCounters(pid_t pid)
{
    ProcessCounters sum;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        const uint64_t runNs = strtoull(ReadText(task.path() / "schedstat").c_str(), nullptr, 10);
        const std::string name = ReadText(task.path() / "comm");
        sum.runNs += runNs;
        // The server's, whose name the kernel cuts, and the floor's.
        sum.lookNs += name == "AVStreamGetAVDa\n" || name == "RingReader\n" ? runNs : 0;
        sum.wakeUps += FieldOf(ReadText(task.path() / "status"), "voluntary_ctxt_switches");
    }
    return sum;
}

ProcessMemory ReadMemory(pid_t pid)
{
    const std::string rollup = ReadText("/proc/" + std::to_string(pid) + "/smaps_rollup");
    return {.pssBytes = FieldOf(rollup, "Pss") * 1024, .rssBytes = FieldOf(rollup, "Rss") * 1024};
}
