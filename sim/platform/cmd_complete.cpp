// Completion and help of a partly typed line: the candidates that `?` lists and TAB extends.
#include <algorithm>

#include "cmd_tree.h"

namespace ndplat {

using namespace cmdtree;

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

// An interface-type name typed alone: its numbers come next. False when no port list follows.
bool offerPortNumbers(const TNode &node, size_t mode, Completion &r)
{
    for (const auto &c : node.children)
        if (c->token.kind == TokenKind::ConfPortList && c->modes[mode].present && c->modes[mode].visible)
            r.candidates.push_back(Candidate{token_display(c->token), c->modes[mode].help, false, false});
    return !r.candidates.empty();
}

// Follows the complete words of the line (all but a partial last one). The node they lead to,
// or null when they already decide the completion: a word that matches nothing, a type name
// whose numbers come next, or a LINE that takes the rest.
const TNode *followWords(const TNode &root, size_t mode, const std::vector<Word> &words, size_t full,
                         bool partial, Completion &r)
{
    const TNode *node = &root;
    for (size_t i = 0; i < full; ++i) {
        const std::string_view *next = i + 1 < full ? &words[i + 1].text : nullptr;
        Choice choice = choose(*node, mode, words[i].text, next);
        if (choice.status == MatchStatus::Unknown && i + 1 == full && !partial && is_type_name(words[i].text) &&
            offerPortNumbers(*node, mode, r))
            return nullptr;
        if (choice.status != MatchStatus::Ok) {
            r.status = choice.status;
            r.wordIndex = i;
            r.column = words[i].column;
            return nullptr;
        }
        node = choice.node;
        i += choice.words - 1;
        if (node->token.kind == TokenKind::Line) {
            // Everything after LINE belongs to it, a word being typed too; only the end of the
            // command is left.
            const ModeInfo &info = node->modes[mode];
            if (info.ends && info.endVisible)
                r.candidates.push_back(Candidate{"<cr>", info.crHelp, false, true});
            return nullptr;
        }
    }
    return node;
}

// The longest start that every keyword shares.
std::string commonStart(const std::vector<Candidate> &keywords)
{
    std::string common = keywords.front().text;
    for (const Candidate &k : keywords) {
        size_t n = 0;
        while (n < common.size() && n < k.text.size() && common[n] == k.text[n])
            ++n;
        common.resize(n);
    }
    return common;
}

// The visible children of node that the prefix can start: keywords alphabetically (and the
// start they share), then parameters in registration order.
void offerChildren(const TNode &node, size_t mode, Completion &r)
{
    std::vector<Candidate> keywords, params;
    for (const auto &c : node.children) {
        const ModeInfo &info = c->modes[mode];
        if (!info.present || !info.visible || !leadsVisible(*c, mode))
            continue;
        if (c->token.kind == TokenKind::Keyword) {
            if (starts_with_no_case(c->token.word, r.prefix))
                keywords.push_back(Candidate{c->token.word, info.help, true, false});
        } else if (r.prefix.empty() || accepts_partial(c->token, r.prefix)) {
            params.push_back(Candidate{token_display(c->token), info.help, false, false});
        }
    }
    std::sort(keywords.begin(), keywords.end(),
              [](const Candidate &a, const Candidate &b) { return a.text < b.text; });
    if (!keywords.empty())
        r.common = commonStart(keywords);
    r.candidates = std::move(keywords);
    r.candidates.insert(r.candidates.end(), params.begin(), params.end());
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
    std::vector<Word> words = split_words(line);
    bool partial = !line.empty() && !is_blank(line.back()) && !words.empty();
    size_t full = partial ? words.size() - 1 : words.size();
    if (partial) {
        r.prefix = std::string(words.back().text);
        r.prefixColumn = words.back().column;
    } else {
        r.prefixColumn = line.size();
    }
    const TNode *node = followWords(impl_->root, mode, words, full, partial, r);
    if (!node)
        return r;
    offerChildren(*node, mode, r);
    const ModeInfo &here = node->modes[mode];
    if (!partial && node != &impl_->root && here.ends && here.endVisible)
        r.candidates.push_back(Candidate{"<cr>", here.crHelp, false, true});
    return r;
}

} // namespace ndplat
