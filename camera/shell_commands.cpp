#include "camera/shell_commands.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "common/log.h"

namespace {

constexpr int kExecFailed = 127;

// The child's process id, or -1. The parent stands still until the child runs the shell.
pid_t StartShell(const char* command)
{
    // NOLINTNEXTLINE: the child only executes or leaves, which vfork allows
    const pid_t child = vfork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", command, static_cast<char*>(nullptr));
        _exit(kExecFailed);
    }
    return child;
}

// The raw status, or -1.
int WaitForChild(pid_t child)
{
    int status = -1;
    pid_t waited;
    do
        waited = waitpid(child, &status, 0);
    while (waited < 0 && errno == EINTR);
    return waited == child ? status : -1;
}

} // namespace

int Command_System(ShellCommand shellCommand)
{
    const char* const command = shellCommand.text();
    if (command == nullptr)
        return -1;
    const pid_t child = StartShell(command);
    if (child < 0) {
        LogTrace("%s %d:execute cmd [%s] failed! ret = %d\n", __func__, __LINE__, command, child);
        return -1;
    }
    (void)WaitForChild(child);
    return 0;
}

int Common_DoSystem(ShellCommand shellCommand)
{
    const char* const command = shellCommand.text();
    if (command == nullptr) {
        LogTrace("%s : %d cmd is NULL\n", __func__, __LINE__);
        return -1;
    }
    const pid_t child = StartShell(command);
    return child < 0 ? -1 : WaitForChild(child);
}

FILE* OpenShell(ShellCommand command)
{
    return popen(command.text(), "re");
}

void CloseShell(FILE* output)
{
    (void)pclose(output); // what it has written counts, not how it ended
}
