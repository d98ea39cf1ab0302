// The output path of a command: capture of file descriptor 1, output modifiers, the pager and
// the console question.
//
// Handlers print with printf and with dprintf on descriptor 1. While a command runs, that
// descriptor is an in-memory file; each pager call of the platform and the end of the command
// read what arrived since the last look, so a paged listing reaches the terminal page by page
// while the handler is still running, and the operator's "q" is known to the handler at its
// next SHELL_MoreBreakOutput.
#include <fcntl.h>
#include <regex.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "ndsh.h"

namespace ndsh {

namespace {

constexpr int kDefaultHeight = 24;
constexpr int kContextLines = 2; // "include context": two lines before and after a match
constexpr const char *kMorePrompt = "--More--";
constexpr const char *kMoreErase = "\r        \r";

void write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        text.remove_prefix(static_cast<size_t>(n));
    }
}


// One key from the terminal without waiting for a line; -1 at the end of input.
int read_key(int fd)
{
    termios saved{};
    bool restore = tcgetattr(fd, &saved) == 0;
    if (restore) {
        termios raw = saved;
        raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
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

std::string join_words(const std::vector<std::string> &words, size_t from)
{
    std::string text;
    for (size_t i = from; i < words.size(); ++i) {
        if (!text.empty())
            text += ' ';
        text += words[i];
    }
    return text;
}

bool parse_modifier(const std::vector<std::string> &argv, Modifier &modifier, std::string &error)
{
    modifier = Modifier{};
    size_t bar = 0;
    while (bar < argv.size() && argv[bar] != "|")
        ++bar;
    if (bar + 1 >= argv.size())
        return true;
    const std::string &what = argv[bar + 1];
    if (what == "begin") {
        modifier.kind = Modifier::Kind::Begin;
        modifier.pattern = join_words(argv, bar + 2);
    } else if (what == "include") {
        if (bar + 3 < argv.size() && argv[bar + 2] == "context") {
            modifier.kind = Modifier::Kind::IncludeContext;
            modifier.pattern = join_words(argv, bar + 3);
        } else {
            modifier.kind = Modifier::Kind::Include;
            modifier.pattern = join_words(argv, bar + 2);
        }
    } else if (what == "exclude") {
        modifier.kind = Modifier::Kind::Exclude;
        modifier.pattern = join_words(argv, bar + 2);
    } else if (what == "redirect") {
        if (bar + 3 < argv.size() && argv[bar + 2] == "file") {
            modifier.kind = Modifier::Kind::Redirect;
            modifier.pattern = argv[bar + 3];
        } else {
            error = "% Redirection by FTP is not available on this switch.";
            return false;
        }
    } else {
        error = "% Unknown output modifier.";
        return false;
    }
    return true;
}

Output &Output::instance()
{
    static Output output;
    return output;
}

void Output::init(bool interactive, bool answerYes)
{
    interactive_ = interactive;
    answerYes_ = answerYes;
    fflush(stdout);
    termFd_ = fcntl(1, F_DUPFD_CLOEXEC, 3);
    if (termFd_ < 0)
        termFd_ = 1;
    captureFd_ = memfd_create("ndsh-output", MFD_CLOEXEC);
}

void Output::set_length(int lines)
{
    length_ = lines;
}

int Output::length() const
{
    if (length_ >= 0)
        return length_;
    winsize size{};
    if (ioctl(termFd_, TIOCGWINSZ, &size) == 0 && size.ws_row > 1)
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
    modifier_ = modifier;
    quit_ = false;
    begun_ = false;
    partial_.clear();
    before_.clear();
    afterLeft_ = 0;
    linesShown_ = 0;
    switch (modifier.kind) {
    case Modifier::Kind::Begin:
    case Modifier::Kind::Include:
    case Modifier::Kind::IncludeContext:
    case Modifier::Kind::Exclude: {
        auto *re = new regex_t;
        if (regcomp(re, modifier.pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
            delete re;
            error = "% Invalid regular expression.";
            return false;
        }
        regex_ = re;
        break;
    }
    case Modifier::Kind::Redirect:
        redirectFd_ = ::open(modifier.pattern.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (redirectFd_ < 0) {
            error = "% Cannot open file " + modifier.pattern + ".";
            return false;
        }
        break;
    case Modifier::Kind::None:
        break;
    }
    paging_ = interactive_ && length() > 0 && modifier.kind != Modifier::Kind::Redirect;
    if (captureFd_ >= 0) {
        fflush(stdout);
        if (ftruncate(captureFd_, 0) == 0 && lseek(captureFd_, 0, SEEK_SET) == 0) {
            savedFd_ = dup(1);
            if (savedFd_ >= 0 && dup2(captureFd_, 1) == 1)
                capturing_ = true;
        }
    }
    return true;
}

void Output::sync()
{
    if (!capturing_)
        return;
    fflush(stdout);
    std::string text;
    char buffer[8192];
    off_t offset = 0;
    for (;;) {
        ssize_t n = pread(captureFd_, buffer, sizeof buffer, offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        text.append(buffer, static_cast<size_t>(n));
        offset += n;
    }
    // fd 1 shares the capture's file offset, so rewinding here rewinds the handler's writes.
    if (ftruncate(captureFd_, 0) != 0 || lseek(captureFd_, 0, SEEK_SET) != 0)
        return;
    filter(text, false);
}

void Output::end()
{
    if (nested_ > 0) {
        --nested_;
        sync();
        return;
    }
    if (capturing_) {
        sync();
        fflush(stdout);
        dup2(savedFd_, 1);
        close(savedFd_);
        savedFd_ = -1;
        capturing_ = false;
    }
    filter("", true);
    if (regex_) {
        regfree(static_cast<regex_t *>(regex_));
        delete static_cast<regex_t *>(regex_);
        regex_ = nullptr;
    }
    if (redirectFd_ >= 0) {
        close(redirectFd_);
        redirectFd_ = -1;
    }
    modifier_ = Modifier{};
    paging_ = false;
}

void Output::filter(std::string_view text, bool final)
{
    switch (modifier_.kind) {
    case Modifier::Kind::None:
        emit(text);
        return;
    case Modifier::Kind::Redirect:
        if (redirectFd_ >= 0)
            write_all(redirectFd_, text);
        return;
    default:
        break;
    }
    partial_.append(text);
    size_t start = 0;
    for (size_t nl; (nl = partial_.find('\n', start)) != std::string::npos; start = nl + 1)
        filter_line(partial_.substr(start, nl - start), true);
    partial_.erase(0, start);
    if (final && !partial_.empty()) {
        std::string last;
        last.swap(partial_);
        filter_line(last, false);
    }
}

void Output::filter_line(const std::string &line, bool newline)
{
    bool match = regex_ && regexec(static_cast<regex_t *>(regex_), line.c_str(), 0, nullptr, 0) == 0;
    std::string text = newline ? line + "\n" : line;
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
    case Modifier::Kind::IncludeContext:
        if (match) {
            for (const std::string &b : before_)
                emit(b);
            before_.clear();
            emit(text);
            afterLeft_ = kContextLines;
        } else if (afterLeft_ > 0) {
            emit(text);
            --afterLeft_;
        } else {
            before_.push_back(text);
            if (before_.size() > static_cast<size_t>(kContextLines))
                before_.erase(before_.begin());
        }
        break;
    default:
        emit(text);
        break;
    }
}

void Output::emit(std::string_view text)
{
    if (quit_ || text.empty())
        return;
    if (paging_)
        page(text);
    else
        write_terminal(text);
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
        write_terminal(text.substr(0, take));
        if (nl != std::string_view::npos)
            ++linesShown_;
        text.remove_prefix(take);
    }
}

bool Output::more_prompt()
{
    write_all(termFd_, kMorePrompt);
    int key = read_key(0);
    write_all(termFd_, kMoreErase);
    int limit = length() - 1;
    switch (key) {
    case ' ':
        linesShown_ = 0;
        return true;
    case '\r':
    case '\n':
        linesShown_ = limit > 1 ? limit - 1 : 0;
        return true;
    case 'q':
    case 'Q':
    case 3:  // ^C
    case -1: // the terminal went away
        return false;
    default:
        linesShown_ = 0;
        return true;
    }
}

void Output::orient()
{
    sync();
}

int32_t Output::more_break()
{
    sync();
    return quit_ ? 1 : 0;
}

int32_t Output::more_format()
{
    sync();
    return 0;
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
    fflush(stdout);
    write_all(termFd_, text);
    if (!text.empty())
        last_ = text.back();
}

void Output::newline_if_needed()
{
    if (last_ != '\n')
        write_terminal("\n");
}

} // namespace ndsh
