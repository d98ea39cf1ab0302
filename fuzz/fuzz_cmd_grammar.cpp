// Fuzzes the shell's command language: the input is split at NUL bytes into definition strings
// and typed lines. The first byte picks the mode and how many of the pieces are definitions;
// each definition is parsed on its own and merged into a tree that already holds a few real
// commands, then every line is matched and completed in that mode, and every parameter token
// of the parsed definitions is tried on every line. Nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cmd_grammar.h"

namespace {

int32_t handler(int32_t, char **)
{
    return 0;
}

// Real shapes, so that lines have a tree of some depth to walk.
constexpr const char *kFixedDefinitions[] = {
    "show(EN,0,''){nd(EN,0,'Neighbor discovery'){snooping(EN,0,'Nd snooping'){user-bind(EN,0,'Snooping user-bind')"
    "{static(EN,0,''){_CR_(EN,0,''),|(EN|STD,0,'Output modifiers'){begin(EN|STD,0,''){_LINE_(EN|STD,0,'')}}},"
    "_IPV6ADDR_(EN,0,'IPv6 address')}}}}",
    "nd(CONF,0,''){snooping(CONF,0,''){user-bind(CONF,0,''){_IPV6ADDR_(CONF,0,''){_MACAddress_(CONF,0,'')"
    "{_1_4094_(CONF,0,''){_CONFPORTLIST_(CONF,0,'')}}}}}}",
    "no(CONF|VXLAN,0,HIDE,''){ipv6(CONF|VXLAN,0,''){nd(CONF|VXLAN,0,''){prefix(CONF,0,''){_IPV6PREFIX_(CONF,0,'')},"
    "host(VXLAN,0,''){limit(VXLAN,0,''){_-5_20480_(VXLAN,0,'')}},agg(CONF,0,''){_CONFPORTAGGNUM_(CONF,0,'')},"
    "ip(CONF,0,''){_ipAddress_(CONF,0,''){_WORD_(CONF,0,''){_STRING_(CONF,0,''){_PASSWORD_(CONF,0,'')}}}}}}}",
};

void tryTokens(const std::vector<ndplat::DefNode> &nodes, const std::vector<std::string_view> &lines, int depth)
{
    if (depth > 16)
        return;
    for (const ndplat::DefNode &node : nodes) {
        (void)ndplat::token_display(node);
        if (node.kind != ndplat::TokenKind::Keyword && node.kind != ndplat::TokenKind::Cr)
            for (std::string_view line : lines)
                (void)ndplat::token_accepts(node, line);
        tryTokens(node.children, lines, depth + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const auto mode = static_cast<ndplat::CliMode>(data[0] % ndplat::kCliModeCount);
    const size_t definitions = (data[0] / ndplat::kCliModeCount) % 4;
    std::vector<std::string_view> pieces;
    std::string_view rest(reinterpret_cast<const char *>(data + 1), size - 1);
    for (;;) {
        size_t end = rest.find('\0');
        pieces.push_back(rest.substr(0, end));
        if (end == std::string_view::npos)
            break;
        rest.remove_prefix(end + 1);
    }

    ndplat::CommandTree tree;
    for (const char *definition : kFixedDefinitions)
        tree.add(definition, handler);
    std::vector<std::string_view> lines;
    std::vector<ndplat::DefParseResult> parsed;
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i < definitions) {
            parsed.push_back(ndplat::parse_definition(pieces[i]));
            tree.add(pieces[i], handler);
        } else {
            lines.push_back(pieces[i]);
        }
    }
    for (std::string_view line : lines) {
        ndplat::MatchResult m = tree.match(mode, line);
        (void)m.message();
        ndplat::Completion c = tree.complete(mode, line);
        (void)c.candidates.size();
    }
    for (const ndplat::DefParseResult &p : parsed)
        tryTokens(p.nodes, lines, 0);
    return 0;
}
