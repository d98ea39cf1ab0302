// The operator's side: libedit line editing with history, TAB completion and `?` help from
// the merged command tree; and the non-interactive runs (-c, -f, a pipe).
#include <fcntl.h>
#include <histedit.h>
#include <sys/stat.h>
#include <unistd.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ndplat.h"
#include "ndsh.h"

namespace ndsh {

namespace {

const char *prompt_text(EditLine *)
{
    static std::string text;
    text = Session::instance().prompt();
    return text.c_str();
}

unsigned char on_help(EditLine *el, int)
{
    const LineInfo *li = el_line(el);
    std::string partial(li->buffer, static_cast<size_t>(li->cursor - li->buffer));
    Output::instance().write_terminal("?\n");
    Session::instance().help(partial);
    return CC_REDISPLAY;
}

unsigned char on_tab(EditLine *el, int)
{
    const LineInfo *li = el_line(el);
    std::string partial(li->buffer, static_cast<size_t>(li->cursor - li->buffer));
    ndplat::Completion c = Session::instance().complete(partial);
    if (c.status != ndplat::MatchStatus::Ok)
        return CC_REFRESH_BEEP;
    size_t words = 0;
    const ndplat::Candidate *only = nullptr;
    for (const ndplat::Candidate &candidate : c.candidates)
        if (!candidate.cr) {
            ++words;
            only = &candidate;
        }
    bool unique = words == 1 && only->keyword && only->text == c.common;
    if (c.common.size() > c.prefix.size() || (unique && !c.prefix.empty())) {
        std::string insert = c.common.substr(c.prefix.size());
        if (unique)
            insert += ' ';
        el_insertstr(el, insert.c_str());
        return CC_REFRESH;
    }
    if (!c.candidates.empty()) {
        Output::instance().write_terminal("\n" + format_help(c));
        return CC_REDISPLAY;
    }
    return CC_REFRESH_BEEP;
}

// ^C at the prompt: the line typed so far is dropped and a fresh prompt is shown.
unsigned char on_interrupt(EditLine *el, int)
{
    const LineInfo *li = el_line(el);
    el_cursor(el, static_cast<int>(li->lastchar - li->cursor));
    el_deletestr(el, static_cast<int>(li->lastchar - li->buffer));
    Output::instance().write_terminal("^C\n");
    return CC_REDISPLAY;
}

constexpr const char *kHistoryFile = "ndsh_history";
constexpr size_t kHistoryKept = 1000;

// The history of earlier sessions on this state directory, oldest first (the last
// kHistoryKept lines).
std::vector<std::string> load_history(const std::string &path)
{
    std::vector<std::string> lines;
    FILE *f = fopen(path.c_str(), "re");
    if (!f)
        return lines;
    char *buffer = nullptr;
    size_t size = 0;
    ssize_t n;
    while ((n = getline(&buffer, &size, f)) > 0) {
        std::string line(buffer, static_cast<size_t>(n));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.pop_back();
        if (!line.empty())
            lines.push_back(line);
    }
    free(buffer);
    fclose(f);
    if (lines.size() > kHistoryKept)
        lines.erase(lines.begin(), lines.end() - static_cast<long>(kHistoryKept));
    return lines;
}

// Rewrites the history file with what is kept, owner-only, so that it does not grow without end.
void store_history(const std::string &path, const std::vector<std::string> &lines)
{
    std::string text;
    size_t from = lines.size() > kHistoryKept ? lines.size() - kHistoryKept : 0;
    for (size_t i = from; i < lines.size(); ++i)
        text += lines[i] + "\n";
    std::string tmp = path + ".new";
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    fchmod(fd, 0600);
    bool good = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    if (good)
        rename(tmp.c_str(), path.c_str());
    else
        unlink(tmp.c_str());
}

// ^C while a command runs (the terminal sends SIGINT then): the command's output stops.
void on_sigint(int)
{
    Output::interrupt();
}

// The line editor: emacs keys, the history, TAB completion, `?` help, and ^C as a key of the
// editor rather than a signal while a line is edited.
EditLine *open_editor(History *hist)
{
    EditLine *el = el_init("ndsh", stdin, stdout, stderr);
    el_set(el, EL_PROMPT, prompt_text);
    el_set(el, EL_EDITOR, "emacs");
    el_set(el, EL_HIST, history, hist);
    el_set(el, EL_ADDFN, "ndsh-complete", "Complete the word", on_tab);
    el_set(el, EL_ADDFN, "ndsh-help", "Show the possible words", on_help);
    el_set(el, EL_BIND, "^I", "ndsh-complete", nullptr);
    el_set(el, EL_BIND, "?", "ndsh-help", nullptr);
    el_set(el, EL_SETTY, "-d", "-isig", nullptr);
    el_set(el, EL_ADDFN, "ndsh-interrupt", "Drop the line", on_interrupt);
    el_set(el, EL_BIND, "^C", "ndsh-interrupt", nullptr);
    return el;
}

} // namespace

std::string format_help(const ndplat::Completion &completion)
{
    size_t width = 0;
    for (const ndplat::Candidate &c : completion.candidates)
        width = std::max(width, c.text.size());
    std::string text;
    for (const ndplat::Candidate &c : completion.candidates) {
        text += "  " + c.text;
        if (!c.help.empty())
            text += std::string(width - c.text.size() + 2, ' ') + c.help;
        text += "\n";
    }
    return text;
}

int run_terminal()
{
    // ^C never ends the switch's shell (the operator leaves with exit or ^D): while a command
    // runs it stops the command's output, at the prompt it drops the line.
    struct sigaction sa {};
    sa.sa_handler = on_sigint;
    sa.sa_flags = SA_RESTART;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    History *hist = history_init();
    HistEvent event;
    history(hist, &event, H_SETSIZE, 1000);
    EditLine *el = open_editor(hist);

    Session &session = Session::instance();
    Output &out = Output::instance();
    // History kept across sessions in the state directory.
    std::string historyPath = session.state_dir() + "/" + kHistoryFile;
    std::vector<std::string> kept = load_history(historyPath);
    for (const std::string &line : kept) {
        history(hist, &event, H_ENTER, line.c_str());
        session.history_add(line);
    }
    while (!session.finished()) {
        out.newline_if_needed();
        // The editor's terminal mode before the prompt appears: the editor itself would switch
        // at its first read, after printing the prompt, and a key typed in between (^C above
        // all) would reach the terminal driver instead of the editor.
        el_set(el, EL_PREP_TERM, 1);
        int count = 0;
        const char *got = el_gets(el, &count);
        if (!got) {
            out.write_terminal("\n");
            break;
        }
        out.at_line_start();
        std::string line(got, static_cast<size_t>(count));
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.pop_back();
        if (line.find_first_not_of(' ') != std::string::npos) {
            history(hist, &event, H_ENTER, line.c_str());
            kept.push_back(line);
            store_history(historyPath, kept);
            if (kept.size() > 2 * kHistoryKept)
                kept.erase(kept.begin(), kept.end() - static_cast<long>(kHistoryKept));
        }
        session.execute(line);
    }
    history_end(hist);
    el_end(el);
    return 0;
}

// A line fails when the shell rejected it (grammar, output modifier, a refusal of the shell's own
// commands, a redirect that could not be written) or when, while it ran, a request did not get
// its answer from the ND service (unreachable, connection closed, timed out, malformed answer)
// or was answered "busy" (17), as ndplat::service_failures() counts them. The status is 1 when
// any line failed, else 0.
int run_lines(const std::vector<std::string> &lines, bool echo)
{
    Session &session = Session::instance();
    Output &out = Output::instance();
    bool failed = false;
    for (const std::string &line : lines) {
        if (echo) {
            out.newline_if_needed();
            out.write_terminal(session.prompt() + line + "\n");
        }
        unsigned long serviceFailures = ndplat::service_failures();
        if (!session.execute(line) || ndplat::service_failures() != serviceFailures)
            failed = true;
        if (session.finished())
            break;
    }
    return failed ? 1 : 0;
}

} // namespace ndsh
