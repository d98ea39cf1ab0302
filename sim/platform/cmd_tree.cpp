// The merged command tree: registrations merged into it, typed lines matched against it, and
// the one tree of the platform that every plug-in registers into.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <mutex>

#include "cmd_tree.h"
#include "ndplat.h"

namespace ndplat {

using namespace cmdtree;

namespace {

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

std::string_view restOfLine(std::string_view line, size_t column)
{
    std::string_view rest = line.substr(column);
    while (!rest.empty() && is_blank(rest.back()))
        rest.remove_suffix(1);
    return rest;
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

// A port list may be typed with a blank between the interface-type name and its numbers.
bool portListOfTwo(const DefNode &token, std::string_view word, const std::string_view *next)
{
    return next && is_type_name(word) && token_accepts(token, std::string(word) + std::string(*next));
}

} // namespace

namespace cmdtree {

std::vector<Word> split_words(std::string_view line)
{
    std::vector<Word> words;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && is_blank(line[i]))
            ++i;
        size_t start = i;
        while (i < line.size() && !is_blank(line[i]))
            ++i;
        if (i > start)
            words.push_back(Word{line.substr(start, i - start), start});
    }
    return words;
}

bool is_type_name(std::string_view w)
{
    return !w.empty() && std::all_of(w.begin(), w.end(), [](char c) {
        return std::isalpha(static_cast<unsigned char>(c)) || c == '-';
    });
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
        if (equals_no_case(c->token.word, word))
            return Choice{MatchStatus::Ok, c.get()};
        if (starts_with_no_case(c->token.word, word)) {
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
            if (c->token.kind != TokenKind::ConfPortList || !portListOfTwo(c->token, word, next))
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

} // namespace cmdtree

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
    std::vector<Word> words = split_words(line);
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