// Shared helpers of the unit tests: a fresh emulated platform per test, output capture, the
// plug-in loaded as the shell loads it, and readable assertions on the requests sent.
#ifndef ND_TEST_SUPPORT_H
#define ND_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "nd_cli_types.h"
#include "ndplat.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace ndtest {

// Every test starts on a freshly reset platform and must leave no allocation and no client
// context behind.
class PlatformTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

private:
    long allocationsAtStart_ = 0;
};

// Suspends the leak checker while it lives, for memory that is left allocated on purpose or
// by libc itself (dprintf's buffer on a failed write).
class LeakCheckPause {
public:
    LeakCheckPause() {}
    ~LeakCheckPause() {}
    LeakCheckPause(const LeakCheckPause &) = delete;
    LeakCheckPause &operator=(const LeakCheckPause &) = delete;

private:
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler disabler_;
#endif
};

// Captures what the code under test prints on standard output.
class Stdout {
public:
    Stdout();
    ~Stdout();
    std::string take(); // the text since the start, and stops capturing
private:
    bool capturing_;
};

// Captures what is written to a file descriptor (the running-configuration handlers' output).
class FdCapture {
public:
    FdCapture();
    ~FdCapture();
    int fd() const { return fd_; }
    std::string text(); // everything written so far
private:
    int fd_;
    std::string path_;
};

// libnd-cli.so opened with dlopen, as the shell opens it.
class LoadedPlugin {
public:
    LoadedPlugin();
    ~LoadedPlugin();
    bool ok() const { return handle_ != nullptr; }
    const char *error() const { return error_.c_str(); }
    void *symbol(const char *name) const;
    template <typename T> T fn(const char *name) const { return reinterpret_cast<T>(symbol(name)); }
    // Calls dl_nd_cli_init through the exported pointer dl_cli_init.
    uint32_t start();

private:
    void *handle_;
    std::string error_;
};

// An item's value bytes, built from host-order integers or raw text.
std::vector<uint8_t> u32_bytes(uint32_t v);
std::vector<uint8_t> u16_bytes(uint16_t v);
std::vector<uint8_t> text_bytes(const char *s, size_t length);

// The handler of the n-th recorded command registration (0-based).
SHELL_CMD_FN cmd_handler(size_t index);

// Calls a command handler with words as the shell passes them (argv[argc] is null).
int32_t run_handler(SHELL_CMD_FN fn, const std::vector<std::string> &words);

// Everything read from fd until it closes or `limitMs` have passed.
std::vector<uint8_t> read_until_closed(int fd, int limitMs);

// A blocking connection to the Unix socket at `path`; -1 when nothing accepts there.
int connect_unix(const std::string &path);

// Runs argv (argv[0] looked up in PATH, never through a shell) with standard input from
// /dev/null and answers its standard output; `status` gets its exit status (-1 when it could
// not be run or was killed). Standard error goes to `err` when given, else nowhere.
std::string run_capture(const std::vector<std::string> &argv, int &status, std::string *err = nullptr);

// A new directory under /tmp/<prefix>-<pid>/ (socket paths must be short), numbered in the
// order asked for; the whole tree of the prefix is removed when the program ends.
std::string fresh_scratch_dir(const std::string &prefix);

} // namespace ndtest

#endif
