// The snooping table of the bridge family, programmed through libnftables.
#include "snoop_rules.h"

#include <nftables/libnftables.h>

#include <cstdio>
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

constexpr size_t kIfNameMax = 15; // IFNAMSIZ less its terminating zero

// A device name as the kernel allows it, and safe inside the quotes of an nftables command.
bool validPort(const std::string &port)
{
    if (port.empty() || port.size() > kIfNameMax)
        return false;
    for (char c : port)
        if (!(isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.'))
            return false;
    return true;
}

// Bytes as the number that a raw payload expression compares with: an ND target's 128 bits, a
// link-layer option's 48.
template <size_t N> std::string hexNumber(const std::array<uint8_t, N> &bytes)
{
    std::string text = "0x";
    char byte[3];
    for (uint8_t b : bytes) {
        snprintf(byte, sizeof byte, "%02x", b);
        text += byte;
    }
    return text;
}

std::string table()
{
    return std::string("bridge ") + SnoopRules::kTable;
}

} // namespace

const char *snoop_counter_name(SnoopCounter counter)
{
    return kCounterNames[static_cast<size_t>(counter)];
}

struct SnoopRules::Context {
    nft_ctx *nft = nullptr;
    Context() : nft(nft_ctx_new(NFT_CTX_DEFAULT))
    {
        if (nft) {
            nft_ctx_buffer_output(nft);
            nft_ctx_buffer_error(nft);
        }
    }
    ~Context()
    {
        if (nft)
            nft_ctx_free(nft);
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
};

SnoopRules::SnoopRules() : context_(std::make_unique<Context>()) {}

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

bool SnoopRules::run(const std::string &commands, std::string &error, std::string *output)
{
    if (!context_->nft) {
        error = "no nftables context";
        return false;
    }
    int rc = nft_run_cmd_from_buffer(context_->nft, commands.c_str());
    // Read (and so emptied) after every command, also a failed one.
    const char *out = nft_ctx_get_output_buffer(context_->nft);
    const char *err = nft_ctx_get_error_buffer(context_->nft);
    if (rc != 0) {
        error = err && *err ? err : "nftables refused the commands";
        while (!error.empty() && error.back() == '\n')
            error.pop_back();
        return false;
    }
    if (output)
        *output = out ? out : "";
    return true;
}

bool SnoopRules::install(bool nsCheckLoose, std::string &error)
{
    // One transaction: an empty table added first makes the delete succeed whether or not
    // the table was there.
    return run("add table " + table() + "\ndelete table " + table() + "\n" + ruleset(nsCheckLoose), error);
}

bool SnoopRules::remove(std::string &error)
{
    return run("add table " + table() + "\ndelete table " + table() + "\n", error);
}

bool SnoopRules::add_port(const std::string &port, bool trusted, std::string &error)
{
    if (!validPort(port)) {
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
    return run(commands, error);
}

bool SnoopRules::delete_port(const std::string &port, std::string &error)
{
    if (!validPort(port)) {
        error = "bad port name";
        return false;
    }
    std::string element = "{ \"" + port + "\" }";
    std::string commands;
    for (const char *set : {"ports", "trusted"})
        commands += "add element " + table() + " " + set + " " + element + "\ndelete element " + table() + " " +
                    set + " " + element + "\n";
    return run(commands, error);
}

namespace {

// The commands that add (or delete) a binding in both of its sets.
std::string bindingCommands(const char *verb, const SnoopBinding &b)
{
    std::string head = "\"" + b.port + "\" . " + mac_colon_text(b.mac) + " . ";
    return std::string(verb) + " element " + table() + " sources { " + head + ip6_text(b.ip6) + " }\n" + verb +
           " element " + table() + " targets { " + head + hexNumber(b.ip6) + " }\n";
}

} // namespace

namespace {

// The commands of one transaction that adds and removes set elements; false on a port name no
// device can have. Adding what goes first keeps the transaction valid whether or not it was
// there.
template <typename Item, typename PortOf, typename CommandOf>
bool changeCommands(const std::vector<Item> &added, const std::vector<Item> &removed, PortOf portOf,
                    CommandOf command, std::string &commands, std::string &error)
{
    for (const std::vector<Item> *list : {&added, &removed})
        for (const Item &item : *list) {
            if (!validPort(portOf(item))) {
                error = "bad port name";
                return false;
            }
            commands += command("add", item);
            if (list == &removed)
                commands += command("delete", item);
        }
    return true;
}

} // namespace

bool SnoopRules::change_bindings(const std::vector<SnoopBinding> &added, const std::vector<SnoopBinding> &removed,
                                 std::string &error)
{
    std::string commands;
    if (!changeCommands(
            added, removed, [](const SnoopBinding &b) { return b.port; }, bindingCommands, commands, error))
        return false;
    return commands.empty() || run(commands, error);
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
           " . " + hexNumber(h.second) + " }\n";
}

} // namespace

bool SnoopRules::change_hosts(const std::vector<SnoopHost> &added, const std::vector<SnoopHost> &removed,
                              std::string &error)
{
    std::string commands;
    if (!changeCommands(
            added, removed, [](const SnoopHost &h) { return h.first; }, hostCommand, commands, error))
        return false;
    return commands.empty() || run(commands, error);
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
    nft_ctx_output_set_flags(context_->nft, NFT_CTX_OUTPUT_JSON);
    bool listed = run("list counters table " + table() + "\n", error, &json);
    nft_ctx_output_set_flags(context_->nft, 0);
    if (!listed)
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
    return run("reset counters table " + table() + "\n", error);
}

} // namespace ndsvc
