#include "hosts/process_runner.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "common/log.h"

namespace {

using namespace std::chrono_literals;
constexpr std::chrono::milliseconds kFirstBackOff = 500ms;
constexpr std::chrono::milliseconds kLongestBackOff = 8000ms;
constexpr std::chrono::seconds kRanWell = 10s; // longer than this: the back-off starts afresh
constexpr std::chrono::seconds kGrace = 2s;

// In the child, between fork and exec: nothing here allocates or takes a lock.
[[noreturn]] void Become(const char* program, char* const* arguments, pid_t parent)
{
    for (const int number : {SIGINT, SIGTERM, SIGUSR1, SIGUSR2, SIGPIPE})
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent)
        execv(program, arguments);
    _exit(127);
}

pid_t Spawn(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    const pid_t parent = getpid();
    // No signal reaches the child while it still has this program's handlers.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before);
    const pid_t pid = fork();
    if (pid == 0)
        Become(program.c_str(), pointers.data(), parent);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return pid;
}

void LogEnd(const std::string& name, int status)
{
    if (WIFSIGNALED(status))
        LogWarn("%s ended by signal %d\n", name.c_str(), WTERMSIG(status));
    else
        LogWarn("%s ended with status %d\n", name.c_str(), WEXITSTATUS(status));
}

} // namespace

void ProcessRunner::Start()
{
    ended_ = false;
    thread_ = std::thread([this] { Run(); });
}

void ProcessRunner::Signal(int number)
{
    if (pid_ > 0)
        kill(pid_, number);
}

void ProcessRunner::Stop()
{
    if (!thread_.joinable())
        return;
    {
        std::unique_lock lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
        Signal(SIGTERM);
        if (!changed_.wait_for(lock, kGrace, [this] { return ended_; }))
            Signal(SIGKILL);
    }
    thread_.join();
}

void ProcessRunner::Run()
{
    auto backOff = kFirstBackOff;
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        const auto startedAt = std::chrono::steady_clock::now();
        RunOnce(lock);
        if (atEnd_ == AtEnd::kLeave)
            break;
        if (std::chrono::steady_clock::now() - startedAt > kRanWell)
            backOff = kFirstBackOff;
        changed_.wait_for(lock, backOff, [this] { return stopping_; });
        backOff = std::min(backOff * 2, kLongestBackOff);
    }
    ended_ = true;
    changed_.notify_all();
}

void ProcessRunner::RunOnce(std::unique_lock<std::mutex>& lock)
{
    pid_ = Spawn(program_, arguments_);
    const pid_t pid = pid_;
    if (pid < 0) {
        LogError("%s cannot be started: %s\n", arguments_[0].c_str(), strerror(errno));
        return;
    }
    LogInfo("%s started as process %d\n", arguments_[0].c_str(), static_cast<int>(pid));
    // Its end is seen first and collected under the lock: until then the number is still its own and nobody
    // else gets the signal.
    lock.unlock();
    siginfo_t end{};
    while (waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    lock.lock();
    int status = 0;
    waitpid(pid, &status, 0);
    pid_ = -1;
    if (!stopping_)
        LogEnd(arguments_[0], status);
}
