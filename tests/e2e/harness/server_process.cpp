#include "tests/e2e/harness/server_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/captured_output.h"
#include "tests/e2e/harness/patience.h"

const char* ServerProcess::Path()
{
    const char* path = getenv("VELMORA_SERVER");
    return path != nullptr ? path : VELMORA_SERVER_DEFAULT;
}

ServerProcess::ServerProcess(std::vector<std::string> arguments, std::string path)
    : log_(memfd_create("log", MFD_CLOEXEC)), output_(memfd_create("output", MFD_CLOEXEC))
{
    // Or two threads that write at once could put their lines in one place: a file in memory has no lock
    // on its position.
    fcntl(log_.get(), F_SETFL, O_APPEND);
    fcntl(output_.get(), F_SETFL, O_APPEND);
    std::vector<char*> argv{path.data()};
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(output_.get(), STDOUT_FILENO);
        dup2(log_.get(), STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
}

ServerProcess::~ServerProcess()
{
    if (reaped_)
        return;
    kill(pid_, SIGTERM);
    kill(pid_, SIGCONT); // or a stopped one would not see it
    waitpid(pid_, nullptr, 0);
}

void ServerProcess::WaitFor(const UniqueFd& where, const std::string& text, int times)
{
    WaitUntil("the server to write '" + text + "'",
              [&] { return CountOf(ContentsOf(where), text) >= times; });
}

int ServerProcess::CountLog(const std::string& text) const
{
    return CountOf(ContentsOf(log_), text);
}

void ServerProcess::WaitUntilStopped() const
{
    siginfo_t stop{};
    WaitUntil("the process to stop", [&] {
        waitid(P_PID, static_cast<id_t>(pid_), &stop, WSTOPPED | WNOHANG | WNOWAIT);
        return stop.si_pid == pid_;
    });
}

int ServerProcess::CountOutput(const std::string& text) const
{
    return CountOf(ContentsOf(output_), text);
}

void ServerProcess::ForgetWritten()
{
    EXPECT_EQ(ftruncate(log_.get(), 0), 0); // the next line then begins the file
    EXPECT_EQ(ftruncate(output_.get(), 0), 0);
}

int ServerProcess::WaitForExit()
{
    int status = 0;
    WaitUntil("the server's end", [&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

size_t ServerProcess::CountEntries(const char* directory) const
{
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid_) + "/" + directory);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

void ServerProcess::ExpectHealthy()
{
    int status = 0;
    if (!reaped_ && waitpid(pid_, &status, WNOHANG) != 0) {
        reaped_ = true;
        ADD_FAILURE() << "the server died, wait status " << status;
    }
    const std::string log = ContentsOf(log_);
    for (const char* complaint : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:",
                                  "WARNING: ThreadSanitizer", "*** stack smashing", "*** buffer overflow"})
        EXPECT_EQ(CountOf(log, complaint), 0);
    if (testing::Test::HasFailure())
        std::cout << "The end of the server's log:\n"
                  << log.substr(log.size() - std::min<size_t>(log.size(), 6000));
}
