// Inside the command language: the merged tree's nodes and the helpers that the definition
// parser, the matcher and completion share. Not for callers outside the grammar.
#ifndef NDPLAT_CMD_TREE_H
#define NDPLAT_CMD_TREE_H

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cmd_grammar.h"

namespace ndplat::cmdtree {

// Blanks separate words of a typed line and may stand around separators of a definition.
bool is_blank(char c);
bool equals_no_case(std::string_view a, std::string_view b);
bool starts_with_no_case(std::string_view text, std::string_view prefix);
// Whether a partly typed word can still become a valid value (for `?` after a prefix).
bool accepts_partial(const DefNode &token, std::string_view s);

// What a node of the merged tree is in one mode.
struct ModeInfo {
    bool present = false;
    bool visible = false;
    std::string help;
    bool ends = false; // a command ends here in this mode
    bool endVisible = false;
    std::string crHelp;
    SHELL_CMD_FN fn = nullptr;
};

struct TNode {
    DefNode token; // kind, word, bounds (children unused)
    std::array<ModeInfo, kCliModeCount> modes{};
    std::vector<std::unique_ptr<TNode>> children;
};

// A word of a typed line and the byte offset where it starts.
struct Word {
    std::string_view text;
    size_t column;
};
std::vector<Word> split_words(std::string_view line);

// An interface-type name ("gigabitethernet") that a port list may follow as a word of its own.
bool is_type_name(std::string_view w);

struct Choice {
    MatchStatus status; // Ok, Unknown or Ambiguous
    const TNode *node;
    size_t words = 1; // typed words taken: 2 for a port list written "gigabitethernet 0/1"
};
// The child of node that a typed word (followed by *next, if any) selects in a mode.
Choice choose(const TNode &node, size_t mode, std::string_view word, const std::string_view *next);

} // namespace ndplat::cmdtree

struct ndplat::CommandTree::Impl {
    cmdtree::TNode root;
    size_t count = 0;
};

#endif
