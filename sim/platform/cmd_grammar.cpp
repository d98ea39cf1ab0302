// The shell's command language: definition parser, merged command tree, matcher, completion.
#include "cmd_grammar.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "ndplat.h"

namespace ndplat {

namespace {

constexpr std::array<const char *, kCliModeCount> kModeNames = {
    "CONF", "EN", "IF", "PORTIF", "MIF", "VLAN", "SUPERVLAN", "PORT", "LINK_AGGREGATION", "VXLAN", "STD",
};

struct NamedToken {
    const char *word;
    TokenKind kind;
    const char *display;
};

constexpr std::array<NamedToken, 11> kNamedTokens = {{
    {"_IPV6ADDR_", TokenKind::Ipv6Addr, "X:X::X:X"},
    {"_IPV6PREFIX_", TokenKind::Ipv6Prefix, "X:X::X:X/M"},
    {"_MACAddress_", TokenKind::MacAddress, "H.H.H"},
    {"_CONFPORTLIST_", TokenKind::ConfPortList, "PORTLIST"},
    {"_CONFPORTAGGNUM_", TokenKind::ConfPortAggNum, "<1-128>"},
    {"_WORD_", TokenKind::Word, "WORD"},
    {"_LINE_", TokenKind::Line, "LINE"},
    {"_PASSWORD_", TokenKind::Password, "PASSWORD"},
    {"_STRING_", TokenKind::String, "STRING"},
    {"_ipAddress_", TokenKind::IpAddress, "A.B.C.D"},
    {"_CR_", TokenKind::Cr, "<cr>"},
}};

constexpr int64_t kAggNumMax = 128;

// Blanks separate words of a typed line and may stand around separators of a definition.
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

bool allDigits(std::string_view s)
{
    return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A signed decimal number of at most 18 digits (so that it cannot overflow).
std::optional<int64_t> parseNumber(std::string_view s)
{
    bool negative = !s.empty() && s.front() == '-';
    if (negative)
        s.remove_prefix(1);
    if (!allDigits(s) || s.size() > 18)
        return std::nullopt;
    int64_t v = 0;
    for (char c : s)
        v = v * 10 + (c - '0');
    return negative ? -v : v;
}

bool equalsNoCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

bool startsWithNoCase(std::string_view text, std::string_view prefix)
{
    return prefix.size() <= text.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

// ---- parameter validation -------------------------------------------------------------------------

bool validIpv6(std::string_view s)
{
    if (s.empty() || s.size() >= INET6_ADDRSTRLEN)
        return false;
    std::string text(s);
    unsigned char buf[16];
    return inet_pton(AF_INET6, text.c_str(), buf) == 1;
}

bool validIpv4(std::string_view s)
{
    if (s.empty() || s.size() >= INET_ADDRSTRLEN)
        return false;
    std::string text(s);
    unsigned char buf[4];
    return inet_pton(AF_INET, text.c_str(), buf) == 1;
}

// A prefix with its length, or a plain address (a host prefix: the handler takes it as /128).
bool validIpv6Prefix(std::string_view s)
{
    size_t slash = s.rfind('/');
    if (slash == std::string_view::npos)
        return validIpv6(s);
    std::string_view len = s.substr(slash + 1);
    if (!allDigits(len) || len.size() > 3)
        return false;
    auto n = parseNumber(len);
    return n && *n <= 128 && validIpv6(s.substr(0, slash));
}

bool validMac(std::string_view s)
{
    if (s.size() == 14) { // HHHH.HHHH.HHHH
        for (size_t i = 0; i < s.size(); ++i) {
            bool dot = i == 4 || i == 9;
            if (dot ? s[i] != '.' : !isHex(s[i]))
                return false;
        }
        return true;
    }
    if (s.size() == 17) { // HH:HH:HH:HH:HH:HH or HH-HH-HH-HH-HH-HH
        char sep = s[2];
        if (sep != ':' && sep != '-')
            return false;
        for (size_t i = 0; i < s.size(); ++i) {
            bool separator = i % 3 == 2;
            if (separator ? s[i] != sep : !isHex(s[i]))
                return false;
        }
        return true;
    }
    return false;
}

// One element of a port list: an optional interface-type name, then M/P, M/S/P, or either
// with a port range "-Q"; after a type name a bare number (or range) names an aggregation.
bool validPortElement(std::string_view s)
{
    size_t i = 0;
    while (i < s.size() && (std::isalpha(static_cast<unsigned char>(s[i])) || (i > 0 && s[i] == '-')))
        ++i;
    bool named = i > 0;
    std::string_view rest = s.substr(i);
    size_t dash = rest.find('-');
    std::string_view path = rest.substr(0, dash);
    std::string_view last = dash == std::string_view::npos ? std::string_view() : rest.substr(dash + 1);
    std::vector<std::string_view> numbers;
    size_t start = 0;
    while (true) {
        size_t slash = path.find('/', start);
        numbers.push_back(path.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start));
        if (slash == std::string_view::npos)
            break;
        start = slash + 1;
    }
    if (numbers.size() > 3 || (numbers.size() == 1 && !named))
        return false;
    for (std::string_view n : numbers)
        if (!allDigits(n) || n.size() > 9)
            return false;
    if (dash == std::string_view::npos)
        return true;
    if (!allDigits(last) || last.size() > 9)
        return false;
    return *parseNumber(last) >= *parseNumber(numbers.back());
}

bool validPortList(std::string_view s)
{
    if (s.empty())
        return false;
    size_t start = 0;
    while (true) {
        size_t comma = s.find(',', start);
        std::string_view element = s.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
        if (!validPortElement(element))
            return false;
        if (comma == std::string_view::npos)
            return true;
        start = comma + 1;
    }
}

bool onlyChars(std::string_view s, const char *extra)
{
    return std::all_of(s.begin(), s.end(), [extra](char c) { return isHex(c) || std::strchr(extra, c) != nullptr; });
}

// Whether a partly typed word can still become a valid value (for `?` after a prefix).
bool acceptsPartial(const DefNode &token, std::string_view s)
{
    switch (token.kind) {
    case TokenKind::Range:
    case TokenKind::ConfPortAggNum: {
        int64_t low = token.kind == TokenKind::Range ? token.low : 1;
        int64_t high = token.kind == TokenKind::Range ? token.high : kAggNumMax;
        if (s == "-")
            return low < 0;
        // More digits only move the value away from zero.
        auto v = parseNumber(s);
        if (!v)
            return false;
        return *v >= 0 ? *v <= high : *v >= low;
    }
    case TokenKind::Ipv6Addr:
        return onlyChars(s, ":.");
    case TokenKind::Ipv6Prefix:
        return onlyChars(s, ":./");
    case TokenKind::MacAddress:
        return onlyChars(s, ".:-");
    case TokenKind::IpAddress:
        return std::all_of(s.begin(), s.end(), [](char c) { return (c >= '0' && c <= '9') || c == '.'; });
    case TokenKind::ConfPortList:
        return std::all_of(s.begin(), s.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '/' || c == '-' || c == ',';
        });
    case TokenKind::Word:
    case TokenKind::Line:
    case TokenKind::Password:
    case TokenKind::String:
        return true;
    case TokenKind::Keyword:
    case TokenKind::Cr:
        return false;
    }
    return false;
}

// Specific parameters win over free words when both accept a typed word; LINE comes last.
int paramRank(TokenKind kind)
{
    switch (kind) {
    case TokenKind::Word:
    case TokenKind::Password:
    case TokenKind::String:
        return 1;
    case TokenKind::Line:
        return 2;
    default:
        return 0;
    }
}

// ---- definition parser ------------------------------------------------------------------------------

class DefParser {
public:
    explicit DefParser(std::string_view text) : s_(text) {}

    DefParseResult run()
    {
        DefParseResult r;
        skipBlanks();
        if (!parseList(r.nodes, 0))
            return fail();
        skipBlanks();
        // Surplus closing braces after the last node are tolerated, as the shell does.
        while (pos_ < s_.size() && (s_[pos_] == '}' || isBlank(s_[pos_])))
            ++pos_;
        if (pos_ != s_.size())
            return error("unexpected text after the last node"), fail();
        r.ok = true;
        return r;
    }

private:
    static constexpr int kMaxDepth = 64;

    std::string_view s_;
    size_t pos_ = 0;
    size_t errPos_ = 0;
    std::string err_;

    bool error(const char *what)
    {
        if (err_.empty()) {
            errPos_ = pos_;
            err_ = what;
        }
        return false;
    }

    DefParseResult fail()
    {
        DefParseResult r;
        r.ok = false;
        r.errorPosition = errPos_;
        r.error = err_;
        return r;
    }

    void skipBlanks()
    {
        while (pos_ < s_.size() && isBlank(s_[pos_]))
            ++pos_;
    }

    bool eat(char c)
    {
        skipBlanks();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }

    bool parseList(std::vector<DefNode> &out, int depth)
    {
        if (depth > kMaxDepth)
            return error("nesting too deep");
        do {
            skipBlanks();
            DefNode node;
            if (!parseNode(node, depth))
                return false;
            out.push_back(std::move(node));
        } while (eat(','));
        return true;
    }

    bool parseWord(DefNode &node)
    {
        size_t start = pos_;
        while (pos_ < s_.size() && !isBlank(s_[pos_]) && std::strchr("(){},'", s_[pos_]) == nullptr)
            ++pos_;
        if (pos_ == start)
            return error("expected a word");
        node.word = std::string(s_.substr(start, pos_ - start));
        node.position = start;
        const std::string &w = node.word;
        if (w.size() < 2 || w.front() != '_' || w.back() != '_') {
            node.kind = TokenKind::Keyword;
            return true;
        }
        for (const NamedToken &t : kNamedTokens)
            if (w == t.word) {
                node.kind = t.kind;
                return true;
            }
        // _A_B_: an inclusive integer range.
        std::string_view inner = std::string_view(w).substr(1, w.size() - 2);
        size_t sep = inner.find('_', inner.size() > 0 && inner[0] == '-' ? 1 : 0);
        if (sep != std::string_view::npos) {
            auto low = parseNumber(inner.substr(0, sep));
            auto high = parseNumber(inner.substr(sep + 1));
            if (low && high && *low <= *high) {
                node.kind = TokenKind::Range;
                node.low = *low;
                node.high = *high;
                return true;
            }
        }
        pos_ = start;
        return error("unknown parameter token");
    }

    bool parseModes(DefNode &node)
    {
        do {
            skipBlanks();
            size_t start = pos_;
            while (pos_ < s_.size() && (std::isalnum(static_cast<unsigned char>(s_[pos_])) || s_[pos_] == '_'))
                ++pos_;
            auto mode = cli_mode_from_name(s_.substr(start, pos_ - start));
            if (!mode) {
                pos_ = start;
                return error("expected a mode");
            }
            node.modes |= cli_mode_bit(*mode);
        } while (eat('|'));
        return true;
    }

    bool parseNode(DefNode &node, int depth)
    {
        if (!parseWord(node))
            return false;
        if (!eat('('))
            return error("expected '('");
        if (!parseModes(node))
            return false;
        if (!eat(','))
            return error("expected ','");
        skipBlanks();
        size_t start = pos_;
        while (pos_ < s_.size() && s_[pos_] >= '0' && s_[pos_] <= '9')
            ++pos_;
        auto flags = parseNumber(s_.substr(start, pos_ - start));
        if (!flags || *flags > 0xFFFFFFFFll) {
            pos_ = start;
            return error("expected a flags number");
        }
        node.flags = static_cast<uint32_t>(*flags);
        if (!eat(','))
            return error("expected ','");
        skipBlanks();
        if (s_.substr(pos_, 4) == "HIDE") {
            pos_ += 4;
            node.hidden = true;
            if (!eat(','))
                return error("expected ','");
            skipBlanks();
        }
        if (pos_ >= s_.size() || s_[pos_] != '\'')
            return error("expected a quoted help text");
        size_t close = s_.find('\'', pos_ + 1);
        if (close == std::string_view::npos)
            return error("unterminated help text");
        node.help = std::string(s_.substr(pos_ + 1, close - pos_ - 1));
        pos_ = close + 1;
        if (!eat(')'))
            return error("expected ')'");
        if (eat('{')) {
            if (node.kind == TokenKind::Cr) {
                --pos_;
                return error("_CR_ cannot have children");
            }
            if (!parseList(node.children, depth + 1))
                return false;
            if (!eat('}'))
                return error("expected '}'");
        }
        return true;
    }
};

// ---- merged tree ---------------------------------------------------------------------------------------

struct ModeInfo {
    bool present = false;
    bool visible = false;
    std::string help;
    bool ends = false;     // a command ends here in this mode
    bool endVisible = false;
    std::string crHelp;
    SHELL_CMD_FN fn = nullptr;
};

struct TNode {
    DefNode token; // kind, word, bounds (children unused)
    std::array<ModeInfo, kCliModeCount> modes{};
    std::vector<std::unique_ptr<TNode>> children;
};

template <typename F> void forEachMode(CliModeMask mask, F f)
{
    for (size_t m = 0; m < kCliModeCount; ++m)
        if (mask & (1u << m))
            f(m);
}

void bindEnd(TNode &node, CliModeMask mask, bool hidden, const std::string &crHelp, SHELL_CMD_FN fn)
{
    forEachMode(mask, [&](size_t m) {
        ModeInfo &info = node.modes[m];
        if (!info.ends) {
            info.ends = true;
            info.fn = fn;
            info.crHelp = crHelp;
        }
        if (!hidden && !info.endVisible) {
            info.endVisible = true;
            info.crHelp = crHelp;
        }
    });
}

void mergeList(TNode &parent, const std::vector<DefNode> &list, bool hiddenAbove, SHELL_CMD_FN fn)
{
    for (const DefNode &d : list) {
        bool hidden = hiddenAbove || d.hidden;
        if (d.kind == TokenKind::Cr) {
            bindEnd(parent, d.modes, hidden, d.help, fn);
            continue;
        }
        TNode *child = nullptr;
        for (auto &c : parent.children)
            if (c->token.kind == d.kind && c->token.word == d.word)
                child = c.get();
        if (!child) {
            auto fresh = std::make_unique<TNode>();
            fresh->token.kind = d.kind;
            fresh->token.word = d.word;
            fresh->token.low = d.low;
            fresh->token.high = d.high;
            fresh->token.help = d.help;
            child = fresh.get();
            parent.children.push_back(std::move(fresh));
        }
        forEachMode(d.modes, [&](size_t m) {
            ModeInfo &info = child->modes[m];
            if (!info.present)
                info.help = d.help;
            info.present = true;
            // '' means no help: a later visible registration may supply one.
            if (!hidden && (!info.visible || (info.help.empty() && !d.help.empty()))) {
                info.visible = true;
                info.help = d.help;
            }
        });
        if (d.children.empty())
            bindEnd(*child, d.modes, hidden, std::string(), fn);
        else
            mergeList(*child, d.children, hidden, fn);
    }
}

struct Word {
    std::string_view text;
    size_t column;
};

std::vector<Word> splitWords(std::string_view line)
{
    std::vector<Word> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isBlank(line[i]))
            ++i;
        size_t start = i;
        while (i < line.size() && !isBlank(line[i]))
            ++i;
        if (i > start)
            words.push_back(Word{line.substr(start, i - start), start});
    }
    return words;
}

std::string_view restOfLine(std::string_view line, size_t column)
{
    std::string_view rest = line.substr(column);
    while (!rest.empty() && isBlank(rest.back()))
        rest.remove_suffix(1);
    return rest;
}

struct Choice {
    MatchStatus status; // Ok, Unknown or Ambiguous
    const TNode *node;
    size_t words = 1; // typed words taken: 2 for a port list written "gigabitethernet 0/1"
};

bool isTypeName(std::string_view w)
{
    return !w.empty() && std::all_of(w.begin(), w.end(), [](char c) {
        return std::isalpha(static_cast<unsigned char>(c)) || c == '-';
    });
}

// A port list may be typed with a blank between the interface-type name and its numbers.
bool portListOfTwo(std::string_view word, const std::string_view *next)
{
    return next && isTypeName(word) && validPortList(std::string(word) + std::string(*next));
}

// The child that a typed word selects: an exact keyword first, then a unique keyword prefix,
// then the best-ranked parameter that accepts the word.
Choice choose(const TNode &node, size_t mode, std::string_view word, const std::string_view *next)
{
    const TNode *prefixMatch = nullptr;
    int prefixCount = 0;
    for (const auto &c : node.children) {
        if (!c->modes[mode].present || c->token.kind != TokenKind::Keyword)
            continue;
        if (equalsNoCase(c->token.word, word))
            return Choice{MatchStatus::Ok, c.get()};
        if (startsWithNoCase(c->token.word, word)) {
            prefixMatch = c.get();
            ++prefixCount;
        }
    }
    if (prefixCount > 1)
        return Choice{MatchStatus::Ambiguous, nullptr};
    if (prefixCount == 1)
        return Choice{MatchStatus::Ok, prefixMatch};
    const TNode *best = nullptr;
    int bestRank = 99;
    bool tie = false;
    size_t taken = 1;
    for (const auto &c : node.children) {
        if (!c->modes[mode].present || c->token.kind == TokenKind::Keyword)
            continue;
        size_t words = 1;
        if (!token_accepts(c->token, word)) {
            if (c->token.kind != TokenKind::ConfPortList || !portListOfTwo(word, next))
                continue;
            words = 2;
        }
        int rank = paramRank(c->token.kind);
        if (rank < bestRank) {
            best = c.get();
            bestRank = rank;
            tie = false;
            taken = words;
        } else if (rank == bestRank) {
            tie = true;
        }
    }
    if (!best)
        return Choice{MatchStatus::Unknown, nullptr};
    return Choice{tie ? MatchStatus::Ambiguous : MatchStatus::Ok, best, taken};
}

} // namespace

struct CommandTree::Impl {
    TNode root;
    size_t count = 0;
};

// ---- public functions ------------------------------------------------------------------------------------

const char *cli_mode_name(CliMode mode)
{
    size_t i = static_cast<size_t>(mode);
    return i < kCliModeCount ? kModeNames[i] : "?";
}

std::optional<CliMode> cli_mode_from_name(std::string_view name)
{
    for (size_t i = 0; i < kCliModeCount; ++i)
        if (name == kModeNames[i])
            return static_cast<CliMode>(i);
    return std::nullopt;
}

DefParseResult parse_definition(std::string_view definition)
{
    return DefParser(definition).run();
}

bool token_accepts(const DefNode &token, std::string_view word)
{
    switch (token.kind) {
    case TokenKind::Range: {
        auto v = parseNumber(word);
        return v && *v >= token.low && *v <= token.high;
    }
    case TokenKind::ConfPortAggNum: {
        if (!allDigits(word))
            return false;
        auto v = parseNumber(word);
        return v && *v >= 1 && *v <= kAggNumMax;
    }
    case TokenKind::Ipv6Addr:
        return validIpv6(word);
    case TokenKind::Ipv6Prefix:
        return validIpv6Prefix(word);
    case TokenKind::MacAddress:
        return validMac(word);
    case TokenKind::ConfPortList:
        return validPortList(word);
    case TokenKind::IpAddress:
        return validIpv4(word);
    case TokenKind::Word:
    case TokenKind::Line:
    case TokenKind::Password:
    case TokenKind::String:
        return !word.empty();
    case TokenKind::Keyword:
    case TokenKind::Cr:
        return false;
    }
    return false;
}

std::string token_display(const DefNode &token)
{
    if (token.kind == TokenKind::Keyword)
        return token.word;
    if (token.kind == TokenKind::Range)
        return "<" + std::to_string(token.low) + "-" + std::to_string(token.high) + ">";
    for (const NamedToken &t : kNamedTokens)
        if (t.kind == token.kind)
            return t.display;
    return token.word;
}

const char *match_message(MatchStatus status)
{
    switch (status) {
    case MatchStatus::Unknown:
        return "% Unknown command.";
    case MatchStatus::Ambiguous:
        return "% Ambiguous command.";
    case MatchStatus::Incomplete:
        return "% Incomplete command.";
    case MatchStatus::Ok:
    case MatchStatus::Empty:
        break;
    }
    return "";
}

CommandTree::CommandTree() : impl_(std::make_unique<Impl>()) {}
CommandTree::~CommandTree() = default;

DefParseResult CommandTree::add(std::string_view definition, SHELL_CMD_FN fn)
{
    DefParseResult parsed = parse_definition(definition);
    if (parsed.ok) {
        mergeList(impl_->root, parsed.nodes, false, fn);
        ++impl_->count;
    }
    return parsed;
}

void CommandTree::clear()
{
    impl_->root.children.clear();
    impl_->count = 0;
}

size_t CommandTree::registrations() const { return impl_->count; }

MatchResult CommandTree::match(CliMode cliMode, std::string_view line) const
{
    MatchResult r;
    size_t mode = static_cast<size_t>(cliMode);
    if (mode >= kCliModeCount) {
        r.status = MatchStatus::Unknown;
        return r;
    }
    std::vector<Word> words = splitWords(line);
    if (words.empty())
        return r;
    const TNode *node = &impl_->root;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string_view *next = i + 1 < words.size() ? &words[i + 1].text : nullptr;
        Choice choice = choose(*node, mode, words[i].text, next);
        if (choice.status != MatchStatus::Ok) {
            r.status = choice.status;
            r.wordIndex = i;
            r.column = words[i].column;
            r.argv.clear();
            return r;
        }
        node = choice.node;
        if (node->token.kind == TokenKind::Line) {
            r.argv.emplace_back(restOfLine(line, words[i].column));
            break;
        }
        if (choice.words == 2) {
            size_t end = words[i + 1].column + words[i + 1].text.size();
            r.argv.emplace_back(line.substr(words[i].column, end - words[i].column));
            ++i;
            continue;
        }
        r.argv.emplace_back(node->token.kind == TokenKind::Keyword ? std::string_view(node->token.word) : words[i].text);
    }
    const ModeInfo &info = node->modes[mode];
    if (!info.ends) {
        r.status = MatchStatus::Incomplete;
        r.wordIndex = words.size();
        r.column = words.back().column + words.back().text.size();
        r.argv.clear();
        return r;
    }
    r.status = MatchStatus::Ok;
    r.fn = info.fn;
    return r;
}

namespace {

// Whether something visible can be typed after `node` in the mode: its visible end, or a
// visible child from which it goes on so. Keeps `?` from offering a word that leads only to
// hidden commands.
bool leadsVisible(const TNode &node, size_t mode, int depth = 0)
{
    const ModeInfo &info = node.modes[mode];
    if (info.ends && info.endVisible)
        return true;
    if (node.token.kind == TokenKind::Line || depth > 64)
        return false;
    for (const auto &c : node.children)
        if (c->modes[mode].present && c->modes[mode].visible && leadsVisible(*c, mode, depth + 1))
            return true;
    return false;
}

} // namespace

Completion CommandTree::complete(CliMode cliMode, std::string_view line) const
{
    Completion r;
    size_t mode = static_cast<size_t>(cliMode);
    if (mode >= kCliModeCount) {
        r.status = MatchStatus::Unknown;
        return r;
    }
    std::vector<Word> words = splitWords(line);
    bool partial = !line.empty() && !isBlank(line.back()) && !words.empty();
    size_t full = partial ? words.size() - 1 : words.size();
    if (partial) {
        r.prefix = std::string(words.back().text);
        r.prefixColumn = words.back().column;
    } else {
        r.prefixColumn = line.size();
    }
    const TNode *node = &impl_->root;
    for (size_t i = 0; i < full; ++i) {
        const std::string_view *next = i + 1 < full ? &words[i + 1].text : nullptr;
        Choice choice = choose(*node, mode, words[i].text, next);
        if (choice.status == MatchStatus::Unknown && i + 1 == full && !partial && isTypeName(words[i].text)) {
            // An interface-type name typed alone: its numbers come next.
            for (const auto &c : node->children)
                if (c->token.kind == TokenKind::ConfPortList && c->modes[mode].present && c->modes[mode].visible)
                    r.candidates.push_back(Candidate{token_display(c->token), c->modes[mode].help, false, false});
            if (!r.candidates.empty())
                return r;
        }
        if (choice.status != MatchStatus::Ok) {
            r.status = choice.status;
            r.wordIndex = i;
            r.column = words[i].column;
            return r;
        }
        node = choice.node;
        i += choice.words - 1;
        if (node->token.kind == TokenKind::Line) {
            // Everything after LINE belongs to it, a word being typed too; only the end of the
            // command is left.
            const ModeInfo &info = node->modes[mode];
            if (info.ends && info.endVisible)
                r.candidates.push_back(Candidate{"<cr>", info.crHelp, false, true});
            return r;
        }
    }
    std::vector<Candidate> keywords, params;
    for (const auto &c : node->children) {
        const ModeInfo &info = c->modes[mode];
        if (!info.present || !info.visible || !leadsVisible(*c, mode))
            continue;
        if (c->token.kind == TokenKind::Keyword) {
            if (startsWithNoCase(c->token.word, r.prefix))
                keywords.push_back(Candidate{c->token.word, info.help, true, false});
        } else if (r.prefix.empty() || acceptsPartial(c->token, r.prefix)) {
            params.push_back(Candidate{token_display(c->token), info.help, false, false});
        }
    }
    std::sort(keywords.begin(), keywords.end(),
              [](const Candidate &a, const Candidate &b) { return a.text < b.text; });
    if (!keywords.empty()) {
        std::string common = keywords.front().text;
        for (const Candidate &k : keywords) {
            size_t n = 0;
            while (n < common.size() && n < k.text.size() && common[n] == k.text[n])
                ++n;
            common.resize(n);
        }
        r.common = common;
    }
    r.candidates = std::move(keywords);
    r.candidates.insert(r.candidates.end(), params.begin(), params.end());
    const ModeInfo &here = node->modes[mode];
    if (!partial && node != &impl_->root && here.ends && here.endVisible)
        r.candidates.push_back(Candidate{"<cr>", here.crHelp, false, true});
    return r;
}

// ---- the platform's tree -----------------------------------------------------------------------------------

namespace {

struct PlatformTree {
    std::mutex mutex;
    CommandTree tree;
    std::vector<DefinitionError> errors;
};

PlatformTree &platformTree()
{
    static PlatformTree t;
    return t;
}

uint32_t mergeRegistration(const CmdRegistration &registration)
{
    PlatformTree &t = platformTree();
    std::lock_guard<std::mutex> hold(t.mutex);
    DefParseResult parsed = t.tree.add(registration.definition, registration.fn);
    if (parsed.ok)
        return 0;
    t.errors.push_back(DefinitionError{registration.definition, parsed.errorPosition, parsed.error});
    fprintf(stderr, "%% Bad command definition at position %zu (%s): %s\n", parsed.errorPosition,
            parsed.error.c_str(), registration.definition.c_str());
    return 1;
}

void resetPlatformTree()
{
    PlatformTree &t = platformTree();
    std::lock_guard<std::mutex> hold(t.mutex);
    t.tree.clear();
    t.errors.clear();
}

const bool installed = (cmd_registration_sink_set(mergeRegistration), on_reset(resetPlatformTree), true);

} // namespace

std::vector<DefinitionError> definition_errors()
{
    std::lock_guard<std::mutex> hold(platformTree().mutex);
    return platformTree().errors;
}

MatchResult match_line(CliMode mode, std::string_view line)
{
    std::lock_guard<std::mutex> hold(platformTree().mutex);
    return platformTree().tree.match(mode, line);
}

Completion complete_line(CliMode mode, std::string_view partialLine)
{
    std::lock_guard<std::mutex> hold(platformTree().mutex);
    return platformTree().tree.complete(mode, partialLine);
}

size_t registered_commands()
{
    std::lock_guard<std::mutex> hold(platformTree().mutex);
    return platformTree().tree.registrations();
}

} // namespace ndplat
