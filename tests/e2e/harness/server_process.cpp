#include "tests/e2e/harness/server_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/e2e/harness/patience.h"

namespace {

int CountOf(const std::string& where, const std::string& text)
{
    int count = 0;
    for (size_t at = where.find(text); at != std::string::npos; at = where.find(text, at + text.size()))
        count++;
    return count;
}

size_t CountEntries(pid_t pid, const char* directory)
{
    const auto path = "/proc/" + std::to_string(pid) + "/" + directory;
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path), {}));
}

} // namespace

const char* ServerProcess::Path()
{
    const char* path = getenv("VELMORA_SERVER");
    return path != nullptr ? path : VELMORA_SERVER_DEFAULT;
}

ServerProcess::ServerProcess(std::vector<std::string> arguments)
{
    std::string path = Path();
    std::vector<char*> argv{path.data()};
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    int error[2], output[2];
    if (pipe2(error, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipes");
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(output[1], STDOUT_FILENO);
        dup2(error[1], STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(error[1]);
    close(output[1]);
    errorPipe_.reset(error[0]);
    outputPipe_.reset(output[0]);
    collector_ = std::thread(&ServerProcess::Collect, this);
}

ServerProcess::~ServerProcess()
{
    if (!reaped_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    collector_.join();
}

void ServerProcess::Collect()
{
    pollfd pipes[] = {{errorPipe_.get(), POLLIN, 0}, {outputPipe_.get(), POLLIN, 0}};
    std::string* const texts[] = {&log_, &output_};
    while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
        poll(pipes, 2, -1);
        for (int i = 0; i < 2; i++) {
            char bytes[65536];
            if (pipes[i].revents == 0)
                continue;
            const ssize_t count = read(pipes[i].fd, bytes, sizeof bytes);
            const std::lock_guard locked(lock_);
            if (count > 0)
                texts[i]->append(bytes, static_cast<size_t>(count));
            else
                pipes[i].fd = -1;
            grown_.notify_all();
        }
    }
    const std::lock_guard locked(lock_);
    ended_ = true;
    grown_.notify_all();
}

void ServerProcess::WaitFor(const std::string& where, const std::string& text, int times)
{
    std::unique_lock locked(lock_);
    const bool came = grown_.wait_until(locked, Clock::now() + Patience(),
                                        [&] { return ended_ || CountOf(where, text) >= times; });
    if (!came || CountOf(where, text) < times)
        throw std::runtime_error("the server has not written " + std::to_string(times) + " times '" + text +
                                 "'; the end of its log:\n" +
                                 log_.substr(log_.size() - std::min<size_t>(log_.size(), 4000)));
}

int ServerProcess::CountLog(const std::string& text)
{
    const std::lock_guard locked(lock_);
    return CountOf(log_, text);
}

std::string ServerProcess::Log()
{
    const std::lock_guard locked(lock_);
    return log_;
}

std::string ServerProcess::Output()
{
    const std::lock_guard locked(lock_);
    return output_;
}

int ServerProcess::WaitForExit()
{
    int status = 0;
    WaitUntil("the server's end", [&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    reaped_ = true;
    std::unique_lock locked(lock_);
    grown_.wait(locked, [&] { return ended_; });
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

size_t ServerProcess::CountDescriptors() const
{
    return CountEntries(pid_, "fd");
}

size_t ServerProcess::CountThreads() const
{
    return CountEntries(pid_, "task");
}

void ServerProcess::ExpectHealthy()
{
    if (!reaped_) {
        int status = 0;
        reaped_ = waitpid(pid_, &status, WNOHANG) != 0;
        EXPECT_FALSE(reaped_) << "the server died, wait status " << status;
    }
    for (const char* complaint : {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "runtime error:",
                                  "WARNING: ThreadSanitizer", "stack smashing", "buffer overflow detected"}) {
        const std::string log = Log();
        const size_t at = log.find(complaint);
        EXPECT_EQ(at, std::string::npos) << log.substr(at, 6000);
    }
}
