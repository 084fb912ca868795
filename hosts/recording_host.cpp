#include "hosts/recording_host.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "common/log.h"
#include "common/unique_fd.h"

namespace {

constexpr char kRecording[] = "/media/SDCard/recording";
constexpr int kMode = 0644;

void Write(const UniqueFd& file, const char* line)
{
    if (file.isValid() && write(file.get(), line, strlen(line)) < 0)
        LogError("%s: %s: %s\n", kRecordingHostName, kRecording, strerror(errno));
}

} // namespace

int RunRecordingHost()
{
    // Blocked before others can find this process by its name.
    sigset_t told;
    sigemptyset(&told);
    for (const int number : {SIGTERM, SIGINT})
        sigaddset(&told, number);
    sigprocmask(SIG_BLOCK, &told, nullptr);
    prctl(PR_SET_NAME, kRecordingHostName); // killall goes by this one, not by the arguments

    UniqueFd file(open(kRecording, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode));
    if (!file.isValid())
        LogWarn("%s: nothing is recorded: %s: %s\n", kRecordingHostName, kRecording, strerror(errno));
    Write(file, "recording\n");
    int number = 0;
    sigwait(&told, &number);
    Write(file, "closed\n");
    if (file.isValid())
        (void)fsync(file.get());
    file.reset();
    printf("%s: told to stop, its files are closed\n", kRecordingHostName);
    return 0;
}
