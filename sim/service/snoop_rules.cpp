// The snooping table of the bridge family, programmed through libnftables.
#include "snoop_rules.h"

#include <nlohmann/json.hpp>

#include "svc_items.h"

namespace ndsvc {

namespace {

// clang-format off
constexpr std::array<const char *, kSnoopCounterCount> kCounterNames = {
    "raPacketPass", "raPacketDrop", "rdPacketPass", "rdPacketDrop", "rsPacketPass",
    "dadPacketDeal", "nsPacketPass", "nsPacketDrop", "naPacketPass", "naPacketDrop",
    "lladdrInvalid",
};
// clang-format on

std::string table()
{
    return std::string("bridge ") + SnoopRules::kTable;
}

} // namespace

const char *snoop_counter_name(SnoopCounter counter)
{
    return kCounterNames[static_cast<size_t>(counter)];
}

SnoopRules::SnoopRules() = default;

SnoopRules::~SnoopRules() = default;

std::string SnoopRules::ruleset(bool nsCheckLoose)
{
    // The sets of bindings hold the same (port, MAC, address) twice: once typed as an address
    // for the NS source, once as the raw 128 bits at the ND target's place, which this nft
    // version has no keyword for.
    std::string t = "table " + table() + " {\n";
    for (const char *name : kCounterNames)
        t += std::string("  counter ") + name + " {}\n";
    t += "  set ports { type ifname; }\n"
         "  set trusted { type ifname; }\n"
         "  set sources { type ifname . ether_addr . ipv6_addr; }\n"
         "  set targets { typeof iifname . ether saddr . @th,64,128; }\n"
         "  set hosts { typeof iifname . ether saddr . @th,208,48; }\n"
         "  chain trusted {\n"
         "    icmpv6 type nd-router-advert counter name raPacketPass accept\n"
         "    icmpv6 type nd-redirect counter name rdPacketPass accept\n"
         "    icmpv6 type nd-neighbor-solicit counter name nsPacketPass accept\n"
         "    icmpv6 type nd-neighbor-advert counter name naPacketPass accept\n"
         "  }\n"
         "  chain prerouting {\n"
         "    type filter hook prerouting priority 0; policy accept;\n"
         "    iifname != @ports accept\n"
         "    ether type != ip6 accept\n"
         "    meta l4proto != ipv6-icmp accept\n"
         "    icmpv6 type nd-router-solicit counter name rsPacketPass accept\n"
         "    icmpv6 type nd-neighbor-solicit ip6 saddr :: counter name dadPacketDeal accept\n"
         "    iifname @trusted jump trusted\n"
         "    icmpv6 type nd-router-advert counter name raPacketDrop drop\n"
         "    icmpv6 type nd-redirect counter name rdPacketDrop drop\n"
         // A link-layer option first after the target (where the hosts put it) that names
         // another MAC than the bound host sends from: its 16 bits of type and length, then
         // the MAC, compared through the set of (port, MAC, MAC) of the bound hosts.
         "    icmpv6 type nd-neighbor-solicit @th,192,16 0x0101 iifname . ether saddr . ip6 saddr @sources "
         "iifname . ether saddr . @th,208,48 != @hosts counter name lladdrInvalid drop\n"
         "    icmpv6 type nd-neighbor-advert @th,192,16 0x0201 iifname . ether saddr . @th,64,128 @targets "
         "iifname . ether saddr . @th,208,48 != @hosts counter name lladdrInvalid drop\n";
    if (nsCheckLoose)
        t += "    icmpv6 type nd-neighbor-solicit counter name nsPacketPass accept\n";
    else
        t += "    icmpv6 type nd-neighbor-solicit iifname . ether saddr . ip6 saddr @sources counter name nsPacketPass "
             "accept\n"
             "    icmpv6 type nd-neighbor-solicit counter name nsPacketDrop drop\n";
    t += "    icmpv6 type nd-neighbor-advert iifname . ether saddr . @th,64,128 @targets counter name naPacketPass "
         "accept\n"
         "    icmpv6 type nd-neighbor-advert counter name naPacketDrop drop\n"
         "  }\n"
         "}\n";
    return t;
}

bool SnoopRules::install(bool nsCheckLoose, std::string &error)
{
    // One transaction: an empty table added first makes the delete succeed whether or not
    // the table was there.
    return nft_.run("add table " + table() + "\ndelete table " + table() + "\n" + ruleset(nsCheckLoose), error);
}

bool SnoopRules::remove(std::string &error)
{
    return nft_.run("add table " + table() + "\ndelete table " + table() + "\n", error);
}

bool SnoopRules::add_port(const std::string &port, bool trusted, std::string &error)
{
    if (!nft_valid_port(port)) {
        error = "bad port name";
        return false;
    }
    std::string element = "{ \"" + port + "\" }";
    std::string commands = "add element " + table() + " ports " + element + "\n";
    // A port that is not trusted (any more) is taken out of the trusted set: add then delete
    // keeps the transaction valid whether or not it was there.
    commands += "add element " + table() + " trusted " + element + "\n";
    if (!trusted)
        commands += "delete element " + table() + " trusted " + element + "\n";
    return nft_.run(commands, error);
}

bool SnoopRules::delete_port(const std::string &port, std::string &error)
{
    if (!nft_valid_port(port)) {
        error = "bad port name";
        return false;
    }
    std::string element = "{ \"" + port + "\" }";
    std::string commands;
    for (const char *set : {"ports", "trusted"})
        commands += "add element " + table() + " " + set + " " + element + "\ndelete element " + table() + " " +
                    set + " " + element + "\n";
    return nft_.run(commands, error);
}

namespace {

// The commands that add (or delete) a binding in both of its sets.
std::string bindingCommands(const char *verb, const SnoopBinding &b)
{
    std::string head = "\"" + b.port + "\" . " + mac_colon_text(b.mac) + " . ";
    return std::string(verb) + " element " + table() + " sources { " + head + ip6_text(b.ip6) + " }\n" + verb +
           " element " + table() + " targets { " + head + nft_hex_number(b.ip6) + " }\n";
}

} // namespace

bool SnoopRules::change_bindings(const std::vector<SnoopBinding> &added, const std::vector<SnoopBinding> &removed,
                                 std::string &error)
{
    std::string commands;
    if (!nft_change_commands(
            added, removed, [](const SnoopBinding &b) { return b.port; }, bindingCommands, commands, error))
        return false;
    return commands.empty() || nft_.run(commands, error);
}

bool SnoopRules::add_binding(const SnoopBinding &binding, std::string &error)
{
    return change_bindings({binding}, {}, error);
}

bool SnoopRules::delete_binding(const SnoopBinding &binding, std::string &error)
{
    return change_bindings({}, {binding}, error);
}

namespace {

// The commands that add (or delete) a bound host: its port, its MAC, and the same MAC as the
// 48 bits of a link-layer option.
std::string hostCommand(const char *verb, const SnoopHost &h)
{
    return std::string(verb) + " element " + table() + " hosts { \"" + h.first + "\" . " + mac_colon_text(h.second) +
           " . " + nft_hex_number(h.second) + " }\n";
}

} // namespace

bool SnoopRules::change_hosts(const std::vector<SnoopHost> &added, const std::vector<SnoopHost> &removed,
                              std::string &error)
{
    std::string commands;
    if (!nft_change_commands(
            added, removed, [](const SnoopHost &h) { return h.first; }, hostCommand, commands, error))
        return false;
    return commands.empty() || nft_.run(commands, error);
}

bool SnoopRules::add_host(const std::string &port, const std::array<uint8_t, 6> &mac, std::string &error)
{
    return change_hosts({{port, mac}}, {}, error);
}

bool SnoopRules::delete_host(const std::string &port, const std::array<uint8_t, 6> &mac, std::string &error)
{
    return change_hosts({}, {{port, mac}}, error);
}

bool SnoopRules::counters(std::map<SnoopCounter, uint64_t> &packets, std::string &error)
{
    std::string json;
    if (!nft_.run("list counters table " + table() + "\n", error, &json, true))
        return false;
    nlohmann::json doc = nlohmann::json::parse(json, nullptr, false);
    if (doc.is_discarded() || !doc.contains("nftables") || !doc["nftables"].is_array()) {
        error = "unreadable counters";
        return false;
    }
    packets.clear();
    for (const nlohmann::json &entry : doc["nftables"]) {
        if (!entry.contains("counter"))
            continue;
        const nlohmann::json &c = entry["counter"];
        if (!c.contains("name") || !c["name"].is_string() || !c.contains("packets") || !c["packets"].is_number())
            continue;
        for (size_t i = 0; i < kCounterNames.size(); ++i)
            if (c["name"].get<std::string>() == kCounterNames[i])
                packets[static_cast<SnoopCounter>(i)] = c["packets"].get<uint64_t>();
    }
    if (packets.size() != kSnoopCounterCount) {
        error = "counters missing from table " + std::string(kTable);
        return false;
    }
    return true;
}

bool SnoopRules::reset_counters(std::string &error)
{
    return nft_.run("reset counters table " + table() + "\n", error);
}

} // namespace ndsvc
