// The output modifiers a command may end with: their words, their regular expressions (RE2,
// within limits of length, nesting and memory) and the file of "| redirect file".
#include <fcntl.h>
#include <re2/re2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ndsh.h"

namespace ndsh {

namespace {

// ---- patterns ----

// The index of the ']' that closes the bracket expression opened at `open` (the pattern's end
// when none does). A ']' first in the list is a member, and so is everything in "[:...:]".
size_t bracket_end(std::string_view p, size_t open)
{
    size_t i = open + 1;
    if (i < p.size() && p[i] == '^')
        ++i;
    if (i < p.size() && p[i] == ']')
        ++i;
    while (i < p.size()) {
        char c = p[i];
        if (c == ']')
            return i;
        if (c == '\\') {
            i += 2;
        } else if (c == '[' && i + 1 < p.size() && (p[i + 1] == ':' || p[i + 1] == '.' || p[i + 1] == '=')) {
            const char close[] = {p[i + 1], ']', 0};
            size_t end = p.find(close, i + 2);
            i = end == std::string_view::npos ? i + 1 : end + 2;
        } else {
            ++i;
        }
    }
    return p.size();
}

// How deeply the pattern's parentheses nest (escaped ones and those in brackets do not count).
int nesting_depth(std::string_view p)
{
    int depth = 0, deepest = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        char c = p[i];
        if (c == '\\')
            ++i;
        else if (c == '[')
            i = bracket_end(p, i);
        else if (c == '(')
            deepest = std::max(deepest, ++depth);
        else if (c == ')' && depth > 0)
            --depth;
    }
    return deepest;
}

// GNU's word edges \< and \> become RE2's word boundary \b (which also holds at both edges);
// RE2 would take them for the plain characters.
std::string with_word_edges(std::string_view p)
{
    std::string out;
    out.reserve(p.size());
    for (size_t i = 0; i < p.size(); ++i) {
        char c = p[i];
        if (c == '\\' && i + 1 < p.size()) {
            char next = p[++i];
            out += c;
            out += next == '<' || next == '>' ? 'b' : next;
        } else if (c == '[') {
            size_t end = std::min(bracket_end(p, i), p.size() - 1);
            out.append(p.substr(i, end - i + 1));
            i = end;
        } else {
            out += c;
        }
    }
    return out;
}

// What is wrong with a pattern that does not compile, in a few words.
std::string pattern_fault(const re2::RE2 &re)
{
    std::string arg = re.error_arg();
    constexpr size_t kMaxShown = 24;
    if (arg.size() > kMaxShown)
        arg = arg.substr(0, kMaxShown) + "...";
    switch (re.error_code()) {
    case re2::RE2::ErrorBadEscape:
        return "unsupported escape " + arg;
    case re2::RE2::ErrorBadCharClass:
        return "unknown character class " + arg;
    case re2::RE2::ErrorBadCharRange:
        return (arg.rfind("[:", 0) == 0 ? "unknown character class " : "bad character range ") + arg;
    case re2::RE2::ErrorMissingBracket:
        return "missing closing bracket";
    case re2::RE2::ErrorMissingParen:
        return "missing closing parenthesis";
    case re2::RE2::ErrorUnexpectedParen:
        return "unexpected closing parenthesis";
    case re2::RE2::ErrorTrailingBackslash:
        return "trailing backslash";
    case re2::RE2::ErrorRepeatArgument:
        return "nothing to repeat before " + arg;
    case re2::RE2::ErrorRepeatSize:
        return "bad repetition count " + arg;
    case re2::RE2::ErrorRepeatOp:
        return "bad repetition operator " + arg;
    default:
        return "malformed";
    }
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
    } else if (what == "section") {
        modifier.kind = Modifier::Kind::Section;
        modifier.pattern = join_words(argv, bar + 2);
    } else if (what == "count") {
        modifier.kind = Modifier::Kind::Count;
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

// ---- guards ----

void PatternDeleter::operator()(re2::RE2 *re) const
{
    delete re;
}

Pattern compile_pattern(const std::string &text, std::string &error)
{
    if (text.size() > kMaxPatternLength) {
        error = "% Regular expression too long (at most " + std::to_string(kMaxPatternLength) + " characters).";
        return nullptr;
    }
    if (nesting_depth(text) > kMaxPatternDepth) {
        error = "% Regular expression nested too deeply (at most " + std::to_string(kMaxPatternDepth) +
                " levels of parentheses).";
        return nullptr;
    }
    // POSIX extended syntax with the GNU classes \w \s \b; bytes, not UTF-8, as the C locale
    // matched them. Only whether a line matches is asked.
    re2::RE2::Options options;
    options.set_encoding(re2::RE2::Options::EncodingLatin1);
    options.set_posix_syntax(true);
    options.set_longest_match(true);
    options.set_perl_classes(true);
    options.set_word_boundary(true);
    options.set_one_line(true);
    options.set_never_capture(true);
    options.set_log_errors(false);
    options.set_max_mem(kPatternMaxMem);
    Pattern re(new re2::RE2(with_word_edges(text), options));
    if (re->ok())
        return re;
    if (re->error_code() == re2::RE2::ErrorPatternTooLarge)
        error = "% Regular expression too complex (over " + std::to_string(kPatternMaxMem >> 20) +
                " MB when compiled).";
    else
        error = "% Invalid regular expression (" + pattern_fault(*re) + ").";
    return nullptr;
}

bool RedirectFile::open(const std::string &flashDir, const std::string &typed, std::string &error)
{
    discard();
    auto refuse = [&](const std::string &why) {
        error = "% Cannot redirect to " + typed + ": " + why + ".";
        return false;
    };
    constexpr std::string_view kFlash = "/flash";
    std::string_view rest = typed;
    if (rest.substr(0, kFlash.size()) == kFlash && (rest.size() == kFlash.size() || rest[kFlash.size()] == '/'))
        rest.remove_prefix(kFlash.size());
    else if (!rest.empty() && rest[0] == '/')
        return refuse("only files under /flash/ can be written");
    std::vector<std::string> parts;
    for (size_t start = 0; start <= rest.size();) {
        size_t slash = rest.find('/', start);
        std::string_view part = rest.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        if (part == "..")
            return refuse("\"..\" is not allowed in the path");
        if (!part.empty() && part != ".")
            parts.emplace_back(part);
        if (slash == std::string_view::npos)
            break;
        start = slash + 1;
    }
    if (parts.empty() || rest.back() == '/')
        return refuse("no file name given");

    UniqueFd dir(::open(flashDir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir)
        return refuse(std::string("/flash cannot be opened (") + strerror(errno) + ")");
    std::string walked(kFlash);
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        walked += "/" + parts[i];
        int fd = ::openat(dir.get(), parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            if (errno == ENOENT)
                return refuse("there is no directory " + walked);
            if (errno == ENOTDIR || errno == ELOOP)
                return refuse(walked + " is not a directory (symbolic links are not followed)");
            return refuse(walked + " cannot be opened (" + strerror(errno) + ")");
        }
        dir.reset(fd);
    }
    const std::string &name = parts.back();
    struct stat st {};
    if (fstatat(dir.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode))
        return refuse("it is a directory");

    int failure = 0;
    if (!file_.open(std::move(dir), name, 0600, failure))
        return refuse(strerror(failure));
    typed_ = typed;
    return true;
}

bool RedirectFile::commit(std::string &error)
{
    if (!file_.is_open())
        return true;
    int failure = file_.commit();
    if (failure != 0)
        error = "% Cannot write " + typed_ + ": " + strerror(failure) + ".";
    return failure == 0;
}

} // namespace ndsh
