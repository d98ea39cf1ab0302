// Small helpers every part of the service benchmark shares: wall time, whole-file reads,
// counting, word lists for execve and the command handlers, and an owned file descriptor.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ndbench {

using Clock = std::chrono::steady_clock;

double sinceMs(Clock::time_point start);
std::string readFile(const std::string &path);
size_t countOf(const std::string &text, const std::string &what);

// Owned words and the null-terminated array of pointers into them that execve and the
// shell's command handlers take. Not copied: the pointers point into this object.
class Words {
public:
    explicit Words(std::vector<std::string> words);
    Words(const Words &) = delete;
    Words &operator=(const Words &) = delete;
    char **get() { return pointers_.data(); }
    int32_t count() const { return static_cast<int32_t>(words_.size()); }

private:
    std::vector<std::string> words_;
    std::vector<char *> pointers_;
};

// A file descriptor, closed when the guard ends.
class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd();
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }

private:
    int fd_;
};

} // namespace ndbench
