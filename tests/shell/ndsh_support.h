// Drives the built ndsh for the shell's tests: as a subprocess with its options, standard
// input and output, and on a pseudo-terminal for the interactive parts.
#ifndef NDSH_SUPPORT_H
#define NDSH_SUPPORT_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace ndshtest {

// A fresh state directory, removed at the end; an ND service started on it is stopped first.
class StateDir {
public:
    StateDir();
    ~StateDir();
    const std::string &path() const { return path_; }
    std::string file(const std::string &relative) const { return path_ + "/" + relative; }

private:
    std::string path_;
};

// Runs `ndsvc --stop` for the state directory when a service ever ran there; its exit status.
int stop_service(const StateDir &state);
int stop_service(const std::string &stateDir);
// Stops the service of a state directory that is not a StateDir of its own, on every way out.
struct ServiceGuard {
    std::string stateDir;
    ~ServiceGuard() { stop_service(stateDir); }
};
// The pid in the state directory's ndsvc.pid, -1 without one.
long service_pid(const StateDir &state);
// Whether the process runs (a zombie does not).
bool process_alive(long pid);

struct Result {
    int status = -1; // exit status
    std::string out, err;
};

// How ndsh is run besides its arguments.
struct RunOptions {
    long fileSizeLimit = -1; // RLIMIT_FSIZE in bytes (SIGXFSZ ignored, so writes fail with EFBIG)
};

// Runs ndsh with these arguments in the state directory, feeding `input` on standard input.
Result ndsh(const StateDir &state, const std::vector<std::string> &args, const std::string &input = "",
         const std::vector<std::string> &env = {}, const RunOptions &options = {});

// The usual arguments: the probe plug-in, no ND service.
std::vector<std::string> probe_args(std::vector<std::string> more = {});

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text);
size_t count(const std::string &text, const std::string &what);

// ndsh interactive on a pseudo-terminal of `rows` lines.
class Pty {
public:
    Pty(const StateDir &state, const std::vector<std::string> &args, int rows = 24, int cols = 100);
    ~Pty();
    // Reads until `text` appears in what came since the last expect; false after the timeout.
    bool expect(const std::string &text, int timeoutMs = 5000);
    void send(const std::string &keys);
    // Types a line and waits for the prompt that follows it; false after the timeout.
    bool command(const std::string &line, const std::string &prompt)
    {
        send(line + "\r");
        return expect(prompt);
    }
    // Everything read so far, and what came since the last expect matched.
    const std::string &all() const { return all_; }
    std::string since_mark() const { return all_.substr(mark_); }
    int wait_exit(int timeoutMs = 5000); // exit status, -1 on timeout
    void drain(int ms);                  // reads whatever arrives within ms

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string all_;
    size_t mark_ = 0;
};

} // namespace ndshtest

#endif
