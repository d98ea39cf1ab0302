#include "answer_rules.h"

namespace ndsvc {

namespace {

std::string table()
{
    return std::string("bridge ") + AnswerRules::kTable;
}

} // namespace

std::string AnswerRules::ruleset()
{
    // Priority 10: after the snooping table's chain (0), which ends what it drops. A proxy does
    // not answer for link-local targets (fe80::/10): those still reach their hosts.
    return "table " + table() +
           " {\n"
           "  set answered { typeof iifname . @th,64,128; }\n"
           "  set anyway { type ifname; }\n"
           "  set discard { type ifname; }\n"
           "  chain prerouting {\n"
           "    type filter hook prerouting priority 10; policy accept;\n"
           "    ether type != ip6 accept\n"
           "    meta l4proto != ipv6-icmp accept\n"
           "    icmpv6 type != nd-neighbor-solicit accept\n"
           "    ip6 saddr :: accept\n"
           "    ip6 daddr != ff02::1:ff00:0/104 accept\n"
           "    iifname . @th,64,128 @answered drop\n"
           "    iifname @anyway @th,64,16 & 0xffc0 != 0xfe80 drop\n"
           "  }\n"
           "  chain forward {\n"
           "    type filter hook forward priority 0; policy accept;\n"
           "    icmpv6 type nd-neighbor-solicit ip6 saddr != :: oifname @discard drop\n"
           "  }\n"
           "  chain output {\n"
           "    type filter hook output priority 0; policy accept;\n"
           "    icmpv6 type nd-redirect oifname @anyway counter drop\n"
           "  }\n"
           "}\n";
}

bool AnswerRules::install(std::string &error)
{
    return nft_.run("add table " + table() + "\ndelete table " + table() + "\n" + ruleset(), error);
}

bool AnswerRules::remove(std::string &error)
{
    return nft_.run("add table " + table() + "\ndelete table " + table() + "\n", error);
}

bool AnswerRules::change_answered(const std::vector<AnsweredTarget> &added,
                                  const std::vector<AnsweredTarget> &removed, std::string &error)
{
    std::string commands;
    auto command = [](const char *verb, const AnsweredTarget &t) {
        return std::string(verb) + " element " + table() + " answered { \"" + t.first + "\" . " +
               nft_hex_number(t.second) + " }\n";
    };
    if (!nft_change_commands(
            added, removed, [](const AnsweredTarget &t) { return t.first; }, command, commands, error))
        return false;
    return commands.empty() || nft_.run(commands, error);
}

bool AnswerRules::change_anyway(const std::vector<std::string> &added, const std::vector<std::string> &removed,
                                std::string &error)
{
    return changePorts("anyway", added, removed, error);
}

bool AnswerRules::changePorts(const char *set, const std::vector<std::string> &added,
                              const std::vector<std::string> &removed, std::string &error)
{
    std::string commands;
    auto command = [set](const char *verb, const std::string &port) {
        return std::string(verb) + " element " + table() + " " + set + " { \"" + port + "\" }\n";
    };
    if (!nft_change_commands(
            added, removed, [](const std::string &port) { return port; }, command, commands, error))
        return false;
    return commands.empty() || nft_.run(commands, error);
}

bool AnswerRules::change_discard(const std::vector<std::string> &added, const std::vector<std::string> &removed,
                                 std::string &error)
{
    return changePorts("discard", added, removed, error);
}

} // namespace ndsvc
