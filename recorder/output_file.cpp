#include "recorder/output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "recorder/failure.h"

namespace {
constexpr int kGiveUpCheckMs = 100;
}

OutputFile::OutputFile(const std::string& path, const std::atomic<bool>& giveUp)
    : path_(path), giveUp_(giveUp)
{
    // Non-blocking, or opening a named pipe would wait for its reader.
    fd_.reset(path == "-" ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                          : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666));
    struct stat status {};
    if (!fd_.isValid() || fstat(fd_.get(), &status) != 0)
        ThrowError(errno);
    isRegular_ = S_ISREG(status.st_mode);
}

void OutputFile::ThrowError(int error) const
{
    throw Failure(kExitLocal,
                  "cannot write " + (path_ == "-" ? "standard output" : path_) + ": " + strerror(error));
}

int OutputFile::WaitForRoom() const
{
    for (;;) {
        pollfd entry{fd_.get(), POLLOUT, 0};
        if (poll(&entry, 1, kGiveUpCheckMs) > 0)
            return 0;
        if (giveUp_)
            return ECANCELED;
    }
}

int OutputFile::Write(std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        // A pipe that poll() calls writable takes PIPE_BUF bytes without a wait.
        size_t piece = bytes.size();
        if (!isRegular_) {
            if (const int error = WaitForRoom())
                return error;
            piece = std::min<size_t>(piece, PIPE_BUF);
        }
        const ssize_t written = write(fd_.get(), bytes.data(), piece);
        if (written > 0)
            bytes = bytes.subspan(static_cast<size_t>(written));
        else if (written < 0 && errno != EINTR && errno != EAGAIN)
            return errno;
    }
    return 0;
}

int64_t OutputFile::Seek(int64_t offset, int whence)
{
    const off_t position = lseek(fd_.get(), offset, whence);
    return position < 0 ? -errno : position;
}

int OutputFile::Close()
{
    const int fd = fd_.release();
    return fd >= 0 && close(fd) != 0 ? errno : 0;
}

void SaveFile(const std::string& path, std::span<const uint8_t> bytes)
{
    const std::atomic<bool> giveUp = false;
    OutputFile file(path, giveUp);
    int error = file.Write(bytes);
    if (error == 0)
        error = file.Close();
    if (error != 0)
        file.ThrowError(error);
}
