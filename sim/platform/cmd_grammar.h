// The shell's command language: the definition-string grammar that plug-ins register their
// commands with, the command tree merged from every registration, the matcher that turns a
// typed line into a handler call, and the candidates offered by `?` and TAB.
//
// Definition grammar (one string per registration):
//   list  := node { "," blanks node }
//   node  := word "(" modes "," flags "," [ "HIDE" "," ] help ")" [ blanks "{" blanks list blanks "}" ]
//   modes := MODE { "|" MODE }        flags := decimal number        help := '...' ('' none)
//   word  := a keyword, or a parameter token written between underscores:
//            _A_B_ (integer range, inclusive), _IPV6ADDR_, _IPV6PREFIX_, _MACAddress_,
//            _CONFPORTLIST_, _CONFPORTAGGNUM_, _WORD_, _LINE_, _PASSWORD_, _STRING_,
//            _ipAddress_, and _CR_ (the command may end at the parent node).
// Blanks (space, tab, and line-ending characters) are accepted around every separator. Children in one list are alternatives; a path
// ends at a node without children or at a node that has a _CR_ child.
//
// Accepted forms of the parameter tokens:
//   range         decimal digits (a leading "-" when the range allows it), value within A..B
//   IPV6ADDR      any address inet_pton(AF_INET6) accepts
//   IPV6PREFIX    ADDRESS/LEN with LEN 0..128 in at most three digits
//   MACAddress    HHHH.HHHH.HHHH, or six two-digit hex groups joined by ":" or by "-"
//   CONFPORTLIST  a comma-separated list of ports "S/P" or "M/S/P", or port ranges "S/P-Q"
//                 (P <= Q), each optionally preceded by an interface-type name
//                 ("gigabitethernet0/1", "ge0/1-4,0/7", "ag3"); one word, or a type name and
//                 its numbers as two words ("gigabitethernet 0/1"), passed as one argument
//                 exactly as typed
//   CONFPORTAGGNUM a link-aggregation number 1..128
//   WORD, PASSWORD, STRING   any one word;   LINE   the rest of the line, blanks included
//   ipAddress     a dotted IPv4 address
//
// Modes: a node is accepted in the modes it names. When several registrations share a path
// (the same keyword or the same parameter token at the same place), the node is shared and is
// accepted in the union of their modes; its help in a mode is the help of the first
// registration that offers it visibly in that mode (or of the first that gives a non-empty
// help where that one gave ''); it is hidden in a mode only when every
// registration that puts it there hides it (HIDE also hides everything below). A path that
// ends somewhere binds that registration's handler to the modes of its end node (or of its
// _CR_ node); the first registration to bind a path in a mode keeps it.
#ifndef NDPLAT_CMD_GRAMMAR_H
#define NDPLAT_CMD_GRAMMAR_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nd_platform.h"

namespace ndplat {

// ---- modes ------------------------------------------------------------------------------------
enum class CliMode : uint8_t {
    CONF,   // global configuration
    EN,     // privileged (enable)
    IF,     // interface
    PORTIF, // port interface
    MIF,
    VLAN,
    SUPERVLAN,
    PORT,
    LINK_AGGREGATION,
    VXLAN,
    STD,
};
constexpr size_t kCliModeCount = 11;
using CliModeMask = uint16_t;
constexpr CliModeMask cli_mode_bit(CliMode m) { return static_cast<CliModeMask>(1u << static_cast<unsigned>(m)); }

const char *cli_mode_name(CliMode mode);                          // "CONF", "EN", ...
std::optional<CliMode> cli_mode_from_name(std::string_view name); // exact, as written in definitions

// ---- definition strings -------------------------------------------------------------------------
enum class TokenKind : uint8_t {
    Keyword,
    Range,          // _A_B_
    Ipv6Addr,       // _IPV6ADDR_
    Ipv6Prefix,     // _IPV6PREFIX_
    MacAddress,     // _MACAddress_
    ConfPortList,   // _CONFPORTLIST_
    ConfPortAggNum, // _CONFPORTAGGNUM_
    Word,           // _WORD_
    Line,           // _LINE_
    Password,       // _PASSWORD_
    String,         // _STRING_
    IpAddress,      // _ipAddress_
    Cr,             // _CR_
};

struct DefNode {
    TokenKind kind = TokenKind::Keyword;
    std::string word;          // as written: "nd", "_1_4094_", "|"
    int64_t low = 0, high = 0; // the bounds of a Range
    CliModeMask modes = 0;
    uint32_t flags = 0;
    bool hidden = false; // HIDE written on this node
    std::string help;    // without the quotes
    size_t position = 0; // offset of the word in the definition string
    std::vector<DefNode> children;
};

struct DefParseResult {
    bool ok = false;
    std::vector<DefNode> nodes; // the top-level alternatives
    size_t errorPosition = 0;   // offset in the definition where parsing failed
    std::string error;          // what was expected there
};

// Parses one definition string; never throws, never crashes on any input.
DefParseResult parse_definition(std::string_view definition);

// Whether a typed word is a valid value of a parameter token (not for Keyword / Cr).
bool token_accepts(const DefNode &token, std::string_view word);
// The readable form of a token for help: "<1-4094>", "X:X::X:X", "X:X::X:X/M", "H.H.H",
// "A.B.C.D", "PORTLIST", "<1-128>", "WORD", "LINE", "PASSWORD", "STRING"; a keyword itself.
std::string token_display(const DefNode &token);

// ---- matching and completion -----------------------------------------------------------------------
enum class MatchStatus : uint8_t {
    Ok,         // a command: handler and argv are set
    Empty,      // nothing typed
    Unknown,    // "% Unknown command."
    Ambiguous,  // "% Ambiguous command."
    Incomplete, // "% Incomplete command."
};
// The shell's message for an error status; "" for Ok and Empty.
const char *match_message(MatchStatus status);

struct MatchResult {
    MatchStatus status = MatchStatus::Empty;
    SHELL_CMD_FN fn = nullptr;
    std::vector<std::string> argv; // keywords in full spelling, parameters as typed
    size_t wordIndex = 0;          // error: index of the offending word (Incomplete: the word count)
    size_t column = 0;             // error: byte offset in the line for the caret (Incomplete: line end)
    const char *message() const { return match_message(status); }
};

struct Candidate {
    std::string text; // keyword, "<1-4094>", "X:X::X:X", ..., or "<cr>"
    std::string help;
    bool keyword = false; // a keyword that TAB may complete
    bool cr = false;      // the command may end here
};

// Candidates for the word being typed at the end of a partial line. When the line ends in a
// blank (or is empty) every next word is offered; otherwise the last word is a prefix and only
// the candidates it can start are offered ("<cr>" only after a blank, or inside a LINE). Order: keywords alphabetically, then parameters in
// registration order, then "<cr>". Hidden nodes are never offered.
struct Completion {
    MatchStatus status = MatchStatus::Ok; // Unknown / Ambiguous: the words before the last do not match
    size_t wordIndex = 0;                 // error: index of the offending word
    size_t column = 0;                    // error: byte offset of the offending word
    std::string prefix;                   // the partial last word ("" after a blank)
    size_t prefixColumn = 0;              // byte offset where the partial word starts
    std::vector<Candidate> candidates;
    std::string common; // longest common extension of the keyword candidates (for TAB), full word
};

// A tree of merged registrations. Copyable is not needed; one per shell is the normal case.
class CommandTree {
public:
    CommandTree();
    ~CommandTree();
    CommandTree(const CommandTree &) = delete;
    CommandTree &operator=(const CommandTree &) = delete;

    // Parses and merges one registration. On a malformed definition nothing is merged and the
    // parse result (with the error position) is returned.
    DefParseResult add(std::string_view definition, SHELL_CMD_FN fn);
    void clear();                 // forgets every registration
    size_t registrations() const; // merged so far

    // The handler and words of a typed line in a mode, or why it matches none.
    MatchResult match(CliMode mode, std::string_view line) const;
    // What may follow a partly typed line in a mode.
    Completion complete(CliMode mode, std::string_view partialLine) const;

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

// ---- the platform's own tree ------------------------------------------------------------------------
// Every SHELL_CmdRegByModule / cmd_register of a plug-in is merged into one process-wide tree;
// a malformed definition makes the registration return 1 and is kept in definition_errors()
// (and written to standard error). reset() empties the tree and the errors.
struct DefinitionError {
    std::string definition;
    size_t position = 0;
    std::string error;
};
std::vector<DefinitionError> definition_errors();                     // copies, in registration order
MatchResult match_line(CliMode mode, std::string_view line);          // match() of the platform's tree
Completion complete_line(CliMode mode, std::string_view partialLine); // complete() of the platform's tree
size_t registered_commands();                                         // registrations merged into the platform's tree

} // namespace ndplat

#endif
