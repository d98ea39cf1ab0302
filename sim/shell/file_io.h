// Files the shell writes for the operator: a descriptor guard, and the replacement of a file
// that never leaves a half-written or empty file in place of a good one.
#ifndef NDSH_FILE_IO_H
#define NDSH_FILE_IO_H

#include <sys/types.h>

#include <string>
#include <string_view>

namespace ndsh {

// An open file descriptor, closed when its owner goes.
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

// Writes all of `text`; 0, or the errno of the write that failed.
int write_all(int fd, std::string_view text);

// A file that replaces `name` in a directory only once it is whole: the text goes to a new
// temporary file beside it (O_EXCL, never following a link, `mode` whatever the umask), which
// commit() syncs and renames over the target, then syncs the directory. Until then, and when
// anything failed, the target stays as it was; the temporary is removed unless committed.
class ReplacingFile {
public:
    ReplacingFile() = default;
    ~ReplacingFile() { discard(); }
    ReplacingFile(const ReplacingFile &) = delete;
    ReplacingFile &operator=(const ReplacingFile &) = delete;

    // Takes the directory descriptor. False with the errno when the temporary cannot be made.
    bool open(UniqueFd dir, const std::string &name, mode_t mode, int &failure);
    bool is_open() const { return static_cast<bool>(file_); }
    void write(std::string_view text);
    // 0, or the errno of the first step that failed (a write, the sync, the rename).
    int commit();
    void discard();

private:
    UniqueFd dir_, file_;
    std::string name_, temp_;
    int writeErrno_ = 0;
};

// Replaces the file `name` of the directory `dir` with `contents`, as ReplacingFile does. False
// with the reason when any step failed.
bool replace_file(UniqueFd dir, const std::string &name, std::string_view contents, mode_t mode, std::string &error);

// Everything that `produce(fd)` writes to the descriptor it is given, collected in memory (a
// memfd), so that output of code that writes to a descriptor can be checked before it goes
// anywhere durable.
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
