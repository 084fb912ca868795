#include "bench/soak_child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>

SoakChild::SoakChild(const std::vector<std::string>& command)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe for a process");
    output_ = UniqueFd(ends[0]);
    const UniqueFd input(ends[1]);
    std::vector<std::string> words = command;
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(input.get(), STDOUT_FILENO);
        dup2(input.get(), STDERR_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    if (pid_ < 0)
        throw std::runtime_error("cannot start " + command.front());
}

SoakChild::SoakChild(SoakChild&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), output_(std::move(other.output_))
{
}

SoakChild& SoakChild::operator=(SoakChild&& other) noexcept
{
    if (this != &other) {
        Kill();
        pid_ = std::exchange(other.pid_, -1);
        output_ = std::move(other.output_);
    }
    return *this;
}

void SoakChild::WaitForLine(int seconds)
{
    pollfd readable{.fd = output_.get(), .events = POLLIN, .revents = 0};
    char text[256];
    if (poll(&readable, 1, seconds * 1000) != 1 || read(output_.get(), text, sizeof text) <= 0)
        throw std::runtime_error("a process of the soak does not start");
}

void SoakChild::Signal(int number) const
{
    if (pid_ > 0)
        kill(pid_, number);
}

void SoakChild::End()
{
    Signal(SIGTERM);
    Reap();
}

void SoakChild::Kill()
{
    Signal(SIGKILL);
    Reap();
}

void SoakChild::Reap()
{
    if (pid_ > 0)
        waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

bool SoakChild::HasEnded() const
{
    siginfo_t state{};
    return waitid(P_PID, static_cast<id_t>(pid_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           state.si_pid != 0;
}
