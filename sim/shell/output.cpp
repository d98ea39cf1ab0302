// The output path of a command: capture of file descriptor 1, output modifiers, the pager and
// the console question.
//
// Handlers print with printf and with dprintf on descriptor 1. While a command runs, that
// descriptor is the write end of a pipe that a thread of the shell drains as it fills. What was
// drained is handed on at each pager call of the platform and at the end of the command, so a
// paged listing reaches the terminal page by page while the handler is still running, and the
// operator's "q" is known to the handler at its next SHELL_MoreBreakOutput. Between pager calls
// the drained text waits, in the order it came, up to kHandOnBytes; past that it is handed on
// at once, so a handler that never calls the pager holds at most that much of the shell's
// memory.
#include <fcntl.h>
#include <poll.h>
#include <re2/re2.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "ndsh.h"

namespace ndsh {

namespace {

constexpr int kDefaultHeight = 24;
constexpr int kContextLines = 2; // "include context": two lines before and after a match
constexpr const char *kMorePrompt = "--More--";
constexpr const char *kMoreErase = "\r        \r";
constexpr int kInterruptKey = 3; // ^C

// Set by SIGINT (^C while a command runs); the command's output stops from then on.
volatile sig_atomic_t gInterrupted = 0;

constexpr size_t kReadChunk = 64 << 10;

// One key from the terminal without waiting for a line; -1 at the end of input.
int read_key(int fd)
{
    termios saved{};
    bool restore = tcgetattr(fd, &saved) == 0;
    if (restore) {
        termios raw = saved;
        // ^C arrives as a key here (the pager quits on it), not as a signal.
        raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO | ISIG));
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        tcsetattr(fd, TCSANOW, &raw);
    }
    unsigned char key = 0;
    ssize_t n;
    do
        n = ::read(fd, &key, 1);
    while (n < 0 && errno == EINTR);
    if (restore)
        tcsetattr(fd, TCSANOW, &saved);
    return n == 1 ? key : -1;
}

// One line from the terminal (the operator's answer); empty at the end of input.
std::string read_answer(int fd)
{
    std::string line;
    char c;
    for (;;) {
        ssize_t n = ::read(fd, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n != 1 || c == '\n' || c == '\r')
            break;
        line += c;
    }
    return line;
}

} // namespace

// ---- output ----

Output &Output::instance()
{
    static Output output;
    return output;
}

Output::~Output()
{
    stop_capture();
}

void Output::init(bool interactive, bool answerYes)
{
    interactive_ = interactive;
    answerYes_ = answerYes;
    fflush(stdout);
    termFd_.reset(fcntl(1, F_DUPFD_CLOEXEC, 3));
    pending_.reserve(kHandOnBytes + kReadChunk);
}

void Output::set_length(int lines)
{
    length_ = lines;
}

int Output::length() const
{
    int set = length_;
    if (set >= 0)
        return set;
    winsize size{};
    if (ioctl(term(), TIOCGWINSZ, &size) == 0 && size.ws_row > 1)
        return size.ws_row;
    return kDefaultHeight;
}

bool Output::begin(const Modifier &modifier, std::string &error)
{
    if (capturing_) {
        // A command run from inside another one shares the outer command's output path.
        sync();
        ++nested_;
        return true;
    }
    {
        // The drain thread lives between commands: it finds the state reset whole or not at all.
        std::lock_guard<std::mutex> hold(mutex_);
        modifier_ = modifier;
        gInterrupted = 0;
        quit_ = false;
        begun_ = false;
        pending_.clear();
        partial_.clear();
        before_.clear();
        afterLeft_ = 0;
        lineNo_ = 0;
        lastShown_ = 0;
        counted_ = 0;
        section_.clear();
        sectionMatch_ = false;
        linesShown_ = 0;
        switch (modifier.kind) {
        case Modifier::Kind::Count:
            if (modifier.pattern.empty())
                break; // every line counts
            [[fallthrough]];
        case Modifier::Kind::Begin:
        case Modifier::Kind::Include:
        case Modifier::Kind::IncludeContext:
        case Modifier::Kind::Exclude:
        case Modifier::Kind::Section:
            pattern_ = compile_pattern(modifier.pattern, error);
            if (!pattern_)
                return false;
            break;
        case Modifier::Kind::Redirect:
            if (!redirect_.open(Session::instance().state_dir() + "/flash", modifier.pattern, error))
                return false;
            break;
        case Modifier::Kind::None:
            break;
        }
        paging_ = interactive_ && length() > 0 && modifier.kind != Modifier::Kind::Redirect;
    }
    if (!start_capture(error)) {
        pattern_.reset();
        redirect_.discard();
        modifier_ = Modifier{};
        return false;
    }
    return true;
}

bool Output::start_capture(std::string &error)
{
    if (!open_capture(error))
        return false;
    fflush(stdout);
    savedFd_.reset(fcntl(1, F_DUPFD_CLOEXEC, 3));
    if (!savedFd_ || dup2(captureWrite_.get(), 1) != 1) {
        error = std::string("% Cannot capture the command's output (") + strerror(errno) + ").";
        savedFd_.reset();
        return false;
    }
    capturing_ = true;
    return true;
}

// The pipe and the thread that drains it are made by the first command and serve every later
// one: a command then costs two dup2 calls, not a thread, a pipe and an eventfd.
bool Output::open_capture(std::string &error)
{
    if (drainer_.joinable())
        return true;
    auto fail = [&](int why) {
        error = std::string("% Cannot capture the command's output (") + strerror(why) + ").";
        captureRead_.reset();
        captureWrite_.reset();
        wake_.reset();
        return false;
    };
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return fail(errno);
    captureRead_.reset(fds[0]);
    captureWrite_.reset(fds[1]);
    if (fcntl(captureRead_.get(), F_SETFL, O_NONBLOCK) != 0)
        return fail(errno);
    wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_)
        return fail(errno);
    try {
        drainer_ = std::thread(&Output::drain_loop, this);
    } catch (const std::system_error &e) {
        return fail(e.code().value());
    }
    return true;
}

void Output::stop_capture()
{
    if (!drainer_.joinable())
        return;
    const uint64_t one = 1;
    while (::write(wake_.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    drainer_.join();
    captureRead_.reset();
    captureWrite_.reset();
    wake_.reset();
}

void Output::drain_loop()
{
    for (;;) {
        pollfd fds[2] = {{wake_.get(), POLLIN, 0}, {captureRead_.get(), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (fds[0].revents)
            return;
        if (fds[1].revents) {
            std::lock_guard<std::mutex> hold(mutex_);
            drain_locked(false);
        }
    }
}

void Output::drain_locked(bool all)
{
    char buffer[kReadChunk];
    for (;;) {
        // The shell holds the write end: an empty pipe reads as EAGAIN, never as its end.
        ssize_t n = ::read(captureRead_.get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        pending_.append(buffer, static_cast<size_t>(n));
        if (pending_.size() >= kHandOnBytes) {
            filter(pending_, false);
            pending_.clear();
            if (!all)
                break; // let the command's own pager call in
        }
    }
    if (all && !pending_.empty()) {
        filter(pending_, false);
        pending_.clear();
    }
}

void Output::sync()
{
    if (!capturing_)
        return;
    // Before the lock: the drain thread may be needed to make room in the pipe.
    fflush(stdout);
    std::lock_guard<std::mutex> hold(mutex_);
    drain_locked(true);
}

bool Output::end()
{
    if (nested_ > 0) {
        --nested_;
        sync();
        return true;
    }
    if (capturing_) {
        fflush(stdout);
        dup2(savedFd_.get(), 1);
        savedFd_.reset();
        // Every write of the command is in the pipe by now; what the drain thread took is
        // in pending_ once its lock is free.
        {
            std::lock_guard<std::mutex> hold(mutex_);
            drain_locked(true);
        }
        capturing_ = false;
    }
    {
        std::lock_guard<std::mutex> hold(mutex_);
        filter("", true);
        if (modifier_.kind == Modifier::Kind::Section)
            flush_section();
        else if (modifier_.kind == Modifier::Kind::Count)
            emit("Number of lines: " + std::to_string(counted_) + "\n");
    }
    pattern_.reset();
    std::string error;
    bool written = redirect_.commit(error);
    modifier_ = Modifier{};
    paging_ = false;
    if (!written) {
        newline_if_needed();
        write_terminal(error + "\n");
    }
    return written;
}

void Output::filter(std::string_view text, bool final)
{
    switch (modifier_.kind) {
    case Modifier::Kind::None:
        emit(text);
        return;
    case Modifier::Kind::Redirect:
        redirect_.write(text);
        return;
    default:
        break;
    }
    // Lines go to filter_line whole, with their newline; a line that grows past kMaxLineBytes
    // goes in pieces of that size, so that an endless line holds no more than that.
    while (!text.empty()) {
        size_t room = kMaxLineBytes - partial_.size();
        size_t nl = text.substr(0, room + 1).find('\n');
        size_t take;
        if (nl != std::string_view::npos)
            take = nl + 1;
        else if (text.size() > room)
            take = room;
        else {
            partial_.append(text);
            break;
        }
        if (partial_.empty()) {
            filter_line(text.substr(0, take));
        } else {
            partial_.append(text.substr(0, take));
            filter_line(partial_);
            partial_.clear();
        }
        text.remove_prefix(take);
    }
    if (final && !partial_.empty()) {
        filter_line(partial_);
        partial_.clear();
    }
}

// "include context": a matching line with up to kContextLines before and after it.
void Output::filter_context(std::string_view text, bool match)
{
    ++lineNo_;
    if (match) {
        // Groups that do not touch are told apart by a "--" line, as grep -C does.
        long first = lineNo_ - static_cast<long>(before_.size());
        if (lastShown_ > 0 && first > lastShown_ + 1)
            emit("--\n");
        for (const std::string &b : before_)
            emit(b);
        before_.clear();
        emit(text);
        lastShown_ = lineNo_;
        afterLeft_ = kContextLines;
    } else if (afterLeft_ > 0) {
        emit(text);
        lastShown_ = lineNo_;
        --afterLeft_;
    } else {
        before_.emplace_back(text);
        if (before_.size() > static_cast<size_t>(kContextLines))
            before_.erase(before_.begin());
    }
}

void Output::filter_line(std::string_view text)
{
    std::string_view line = text;
    if (!line.empty() && line.back() == '\n')
        line.remove_suffix(1);
    bool match = pattern_ && re2::RE2::PartialMatch(re2::StringPiece(line.data(), line.size()), *pattern_);
    switch (modifier_.kind) {
    case Modifier::Kind::Begin:
        begun_ = begun_ || match;
        if (begun_)
            emit(text);
        break;
    case Modifier::Kind::Include:
        if (match)
            emit(text);
        break;
    case Modifier::Kind::Exclude:
        if (!match)
            emit(text);
        break;
    case Modifier::Kind::Count:
        // Without a pattern, every line that is not empty.
        if (pattern_ ? match : !line.empty())
            ++counted_;
        break;
    case Modifier::Kind::Section:
        // A section is a line that does not start with a blank and the indented lines under
        // it; it is shown whole when any of its lines matches.
        if (line.empty() || (line[0] != ' ' && line[0] != '\t'))
            flush_section();
        section_.append(text);
        sectionMatch_ = sectionMatch_ || match;
        break;
    case Modifier::Kind::IncludeContext:
        filter_context(text, match);
        break;
    default:
        emit(text);
        break;
    }
}

void Output::flush_section()
{
    if (sectionMatch_)
        emit(section_);
    section_.clear();
    sectionMatch_ = false;
}

void Output::emit(std::string_view text)
{
    if (gInterrupted)
        quit_ = true;
    if (quit_ || text.empty())
        return;
    if (paging_)
        page(text);
    else
        put(text);
}

void Output::put(std::string_view text)
{
    write_all(term(), text);
    if (!text.empty())
        last_ = text.back();
}

void Output::page(std::string_view text)
{
    int limit = length() - 1;
    if (limit < 1)
        limit = 1;
    while (!text.empty()) {
        if (linesShown_ >= limit && !more_prompt()) {
            quit_ = true;
            return;
        }
        size_t nl = text.find('\n');
        size_t take = nl == std::string_view::npos ? text.size() : nl + 1;
        put(text.substr(0, take));
        if (nl != std::string_view::npos)
            ++linesShown_;
        text.remove_prefix(take);
    }
}

bool Output::more_prompt()
{
    write_all(term(), kMorePrompt);
    int limit = length() - 1;
    // Only these keys act; any other is ignored and the prompt keeps waiting.
    for (;;) {
        int key = read_key(0);
        switch (key) {
        case ' ':
            write_all(term(), kMoreErase);
            linesShown_ = 0;
            return true;
        case '\r':
        case '\n':
            write_all(term(), kMoreErase);
            linesShown_ = limit > 1 ? limit - 1 : 0;
            return true;
        case 'q':
        case 'Q':
        case kInterruptKey:
        case -1: // the terminal went away
            write_all(term(), kMoreErase);
            return false;
        default:
            break;
        }
    }
}

void Output::orient()
{
    sync();
}

int32_t Output::more_break()
{
    sync();
    if (gInterrupted) {
        std::lock_guard<std::mutex> hold(mutex_);
        quit_ = true;
    }
    return quit() ? 1 : 0;
}

void Output::interrupt()
{
    gInterrupted = 1;
}

void Output::clear_interrupt()
{
    gInterrupted = 0;
}

int32_t Output::more_format()
{
    sync();
    return 0;
}

bool Output::quit() const
{
    std::lock_guard<std::mutex> hold(mutex_);
    return quit_;
}

int32_t Output::console(const char *question)
{
    sync();
    if (question)
        write_terminal(question);
    if (unattended_)
        return 1;
    if (!interactive_)
        return answerYes_ ? 1 : 0;
    std::string answer = read_answer(0);
    return !answer.empty() && (answer[0] == 'y' || answer[0] == 'Y') ? 1 : 0;
}

void Output::write_terminal(std::string_view text)
{
    // Outside a command, what the shell itself printed with stdio comes first. During one,
    // standard output is the capture: flushing it here could wait on the drain thread.
    if (!capturing_)
        fflush(stdout);
    std::lock_guard<std::mutex> hold(mutex_);
    put(text);
}

void Output::newline_if_needed()
{
    std::lock_guard<std::mutex> hold(mutex_);
    if (last_ != '\n')
        put("\n");
}

void Output::at_line_start()
{
    std::lock_guard<std::mutex> hold(mutex_);
    last_ = '\n';
}

} // namespace ndsh
