// The definition strings of the shell's commands: mode names, the definition parser, and what
// each parameter token accepts and how it is shown.
#include "cmd_grammar.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "cmd_tree.h"

namespace ndplat {

namespace cmdtree {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }

bool equals_no_case(std::string_view a, std::string_view b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

bool starts_with_no_case(std::string_view text, std::string_view prefix)
{
    return prefix.size() <= text.size() && equals_no_case(text.substr(0, prefix.size()), prefix);
}

} // namespace cmdtree

namespace {

using cmdtree::is_blank;

// clang-format off
constexpr std::array<const char *, kCliModeCount> kModeNames = {
    "CONF", "EN", "IF", "PORTIF", "MIF", "VLAN", "SUPERVLAN", "PORT", "LINK_AGGREGATION", "VXLAN", "STD",
};
// clang-format on

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

// ---- parameter validation -------------------------------------------------------------------------

// Whether inet_pton takes s as an address of the family, whose text is shorter than textMax.
bool validAddress(int family, size_t textMax, std::string_view s)
{
    if (s.empty() || s.size() >= textMax)
        return false;
    std::string text(s);
    unsigned char buf[16];
    return inet_pton(family, text.c_str(), buf) == 1;
}

bool validIpv6(std::string_view s) { return validAddress(AF_INET6, INET6_ADDRSTRLEN, s); }

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
        while (pos_ < s_.size() && (s_[pos_] == '}' || is_blank(s_[pos_])))
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
        while (pos_ < s_.size() && is_blank(s_[pos_]))
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
        while (pos_ < s_.size() && !is_blank(s_[pos_]) && std::strchr("(){},'", s_[pos_]) == nullptr)
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

} // namespace

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
        return validAddress(AF_INET, INET_ADDRSTRLEN, word);
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

bool cmdtree::accepts_partial(const DefNode &token, std::string_view s)
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

} // namespace ndplat
