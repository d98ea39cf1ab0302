// Descriptors and files that replace the operator's files only once they are whole.
#include "file_io.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace ndsh {

void UniqueFd::reset(int fd)
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = fd;
}

int write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        text.remove_prefix(static_cast<size_t>(n));
    }
    return 0;
}

bool ReplacingFile::open(UniqueFd dir, const std::string &name, mode_t mode, int &failure)
{
    discard();
    dir_ = std::move(dir);
    // The temporary's name does not derive from the target's, which may be as long as a name
    // can be; O_EXCL makes sure that nothing already there is written through.
    static unsigned serial = 0;
    constexpr int kAttempts = 100;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        std::string temp = ".ndsh-" + std::to_string(getpid()) + "-" + std::to_string(++serial);
        int fd = ::openat(dir_.get(), temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (fd >= 0) {
            file_.reset(fd);
            fchmod(fd, mode); // the umask may have taken bits away
            temp_ = temp;
            name_ = name;
            writeErrno_ = 0;
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    failure = errno;
    dir_.reset();
    return false;
}

void ReplacingFile::write(std::string_view text)
{
    if (file_ && writeErrno_ == 0)
        writeErrno_ = write_all(file_.get(), text);
}

int ReplacingFile::commit()
{
    if (!file_)
        return EBADF;
    int failure = writeErrno_;
    if (failure == 0 && fsync(file_.get()) != 0)
        failure = errno;
    if (failure == 0 && ::close(file_.release()) != 0)
        failure = errno;
    if (failure == 0 && renameat(dir_.get(), temp_.c_str(), dir_.get(), name_.c_str()) != 0)
        failure = errno;
    if (failure != 0) {
        discard();
        return failure;
    }
    fsync(dir_.get()); // the new name lasts too
    temp_.clear();
    dir_.reset();
    return 0;
}

void ReplacingFile::discard()
{
    if (!temp_.empty() && dir_)
        unlinkat(dir_.get(), temp_.c_str(), 0);
    file_.reset();
    dir_.reset();
    temp_.clear();
}

bool replace_file(UniqueFd dir, const std::string &name, std::string_view contents, mode_t mode, std::string &error)
{
    ReplacingFile file;
    int failure = 0;
    if (file.open(std::move(dir), name, mode, failure)) {
        file.write(contents);
        failure = file.commit();
    }
    if (failure != 0)
        error = strerror(failure);
    return failure == 0;
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
