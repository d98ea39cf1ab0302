// Durable replacement of the shell's files (the startup configuration).
#include "file_io.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace ndsh {

void UniqueFd::reset(int fd)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

namespace {

bool write_all(int fd, std::string_view data)
{
    while (!data.empty()) {
        ssize_t n = write(fd, data.data(), data.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

} // namespace

bool replace_file(int dirFd, const std::string &name, std::string_view contents, mode_t mode, std::string &error)
{
    // A name of our own beside the target: created exclusively, so nothing planted there is
    // followed or reused.
    std::string temporary;
    UniqueFd fd;
    for (int attempt = 0; attempt < 100 && !fd; ++attempt) {
        temporary = "." + name + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        fd.reset(openat(dirFd, temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        if (!fd && errno != EEXIST)
            break;
    }
    if (!fd) {
        error = strerror(errno);
        return false;
    }
    bool ok = fchmod(fd.get(), mode) == 0 && write_all(fd.get(), contents) && fsync(fd.get()) == 0;
    int saved = errno;
    fd.reset();
    if (ok && renameat(dirFd, temporary.c_str(), dirFd, name.c_str()) != 0) {
        ok = false;
        saved = errno;
    }
    if (!ok) {
        unlinkat(dirFd, temporary.c_str(), 0);
        error = strerror(saved);
        return false;
    }
    // The rename itself is durable only once the directory is.
    fsync(dirFd);
    return true;
}

int memory_file(std::string &error)
{
    int fd = memfd_create("ndsh-output", MFD_CLOEXEC);
    if (fd < 0)
        error = strerror(errno);
    return fd;
}

bool read_all(int fd, std::string &text, std::string &error)
{
    text.clear();
    if (lseek(fd, 0, SEEK_SET) != 0) {
        error = strerror(errno);
        return false;
    }
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n == 0)
            return true;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            error = strerror(errno);
            return false;
        }
        text.append(buf, static_cast<size_t>(n));
    }
}

} // namespace ndsh
