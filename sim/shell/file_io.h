// Files the shell writes for the operator: a descriptor guard, and the replacement of a file
// that never leaves a half-written or empty file in place of a good one.
#ifndef NDSH_FILE_IO_H
#define NDSH_FILE_IO_H

#include <sys/types.h>

#include <string>
#include <string_view>

namespace ndsh {

// Owns a file descriptor and closes it when it goes.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1);

private:
    int fd_ = -1;
};

// Replaces the file `name` of the directory `dirFd` with `contents`: written to a new temporary
// file beside it (O_EXCL, `mode` whatever the umask), synced, renamed over the old one, and the
// directory synced. False with the reason when any step failed; the old file is then untouched
// and the temporary file removed.
bool replace_file(int dirFd, const std::string &name, std::string_view contents, mode_t mode, std::string &error);

// Everything written to a descriptor by `produce(fd)`, collected in memory (a memfd), so that
// output of code that writes to a descriptor can be checked before it goes anywhere durable.
template <typename Produce> bool collect_output(Produce produce, std::string &text, std::string &error);
bool read_all(int fd, std::string &text, std::string &error);
int memory_file(std::string &error);

template <typename Produce> bool collect_output(Produce produce, std::string &text, std::string &error)
{
    UniqueFd fd(memory_file(error));
    if (!fd)
        return false;
    produce(fd.get());
    return read_all(fd.get(), text, error);
}

} // namespace ndsh

#endif
