// ND snooping configuration commands: each one carries the operator's words to the ND
// service as one request; nothing is printed on success.
#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "nd_request.h"
#include "nd_snooping.h"

namespace {

constexpr int kAddressFamilyIpv6 = 10;
static_assert(AF_INET6 == kAddressFamilyIpv6);

constexpr size_t kIfNameBytes = 40;
constexpr size_t kAddressBytes = 16;
constexpr size_t kMacBytes = 6;

// Word positions.
constexpr int32_t kDetectRetransmitWord = 4;
constexpr int32_t kDetectIntervalWord = 6;
constexpr int32_t kUbAddressWord = 4;
constexpr int32_t kUbMacWord = 5;
constexpr int32_t kUbVlanWord = 7;
constexpr int32_t kUbInterfaceWord = 9;
constexpr int32_t kUbUndoAddressWord = 5;
constexpr int32_t kUbUndoWithAddressWords = 6;

constexpr const char *kPortModule = "NDP";
constexpr const char *kDeleteAllQuestion = "\nIt will delete all configuration of nd snooping, Sure(Yes|No)?";

// The texts that explain why a port map does not name exactly one port; the trust command
// and the static user-bind command print them in two spellings.
struct PortMessages {
    const char *several;
    const char *none;
};
constexpr PortMessages kTrustPortMessages = {"just support one sigle port!!!!\n", "port list is empty!!!!!\n"};
constexpr PortMessages kUserBindPortMessages = {"\njust support one sigle port!!!!\n", "\nport list is empty!!!!!\n"};

enum class PortLookup {
    Found,
    Refused,
    NoMemory,
};

// Fills a fresh, zeroed port map with `fill` and resolves it to the single port it must hold,
// writing that port's ID and interface name. `fill` returns false to stop (having said why).
// The map is given back on every path.
template <typename Fill>
PortLookup lookupSinglePort(const PortMessages &messages, Fill fill, int32_t &portId, char (&name)[kIfNameBytes])
{
    ndcli::OwnedMemory map(__UMV2L_malloc(g_max_pbmp_bytes));
    if (!map)
        return PortLookup::NoMemory;
    memset(map.get(), 0, g_max_pbmp_bytes);
    if (!fill(map.get()))
        return PortLookup::Refused;
    portmap2PortID(map.get(), g_max_pbmp_bytes, &portId, name);
    if (portId < 0) {
        printf("%s", messages.several);
        return PortLookup::Refused;
    }
    if (portId == 0) {
        printf("%s", messages.none);
        return PortLookup::Refused;
    }
    // The port manager explains a refusal itself.
    if (isPmPortConfigurable(portId, kPortModule, 0, 1) == 0)
        return PortLookup::Refused;
    portID2FmtString(portId, name);
    return PortLookup::Found;
}

bool isUndo(int32_t argc, char **argv)
{
    return nd_CliArgGetOptFlag(ndcli::firstWord(argc, argv)) == ND_CLI_OPT_UNDO;
}

// A switch whose request carries no item: the first word alone says on or off.
int32_t sendSwitch(int32_t argc, char **argv, uint32_t code)
{
    ndcli::Request request;
    if (!request.start(argc, argv, code, ndcli::kInitSilent))
        return request.result();
    return request.finish();
}

} // namespace

extern "C" {

int32_t ndArgProcForGlbSnpEnable(int32_t argc, char **argv)
{
    if (isUndo(argc, argv) && GetConsoleRsp(kDeleteAllQuestion) == 0)
        return ND_OK;
    return sendSwitch(argc, argv, ND_CMD_SNP_GLOBAL_ENABLE);
}

int32_t ndArgProcForSnpLooseEnable(int32_t argc, char **argv)
{
    return sendSwitch(argc, argv, ND_CMD_SNP_LOOSE);
}

int32_t ndCliSnpAttackLogEnable(int32_t argc, char **argv)
{
    return sendSwitch(argc, argv, ND_CMD_SNP_ATTACK_LOG);
}

int32_t ndArgProcForVlanSnpEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    // This command goes on even when the block could not be initialised.
    request.start(argc, argv, ND_CMD_SNP_VLAN_ENABLE, ndcli::kInitError);
    const auto vlan = static_cast<uint16_t>(mpsh_get_int_env(ND_SHELL_ENV_VLAN));
    request.add(ndwire::kItemVlan, sizeof vlan, &vlan, true);
    return request.finish();
}

int32_t ndArgProcForSnptrust(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_SNP_TRUST, ndcli::kInitSilent))
        return request.result();
    void *current = mpsh_get_env(ND_SHELL_ENV_PORTMAP);
    if (!current)
        return ND_OK;
    int32_t portId = 0;
    char name[kIfNameBytes];
    memset(name, 0, sizeof name);
    auto copyCurrent = [current](void *map) {
        portmapCopy(map, current);
        if (portmapIsEmpty(map) == 1) {
            printf("%s", kTrustPortMessages.none);
            return false;
        }
        return true;
    };
    switch (lookupSinglePort(kTrustPortMessages, copyCurrent, portId, name)) {
    case PortLookup::NoMemory:
    case PortLookup::Refused:
        return ND_OK;
    case PortLookup::Found:
        break;
    }
    request.add(ndwire::kItemPortId, sizeof portId, &portId, true);
    request.add(ndwire::kItemObject, sizeof name, name, true);
    return request.finish();
}

int32_t ndArgProcForSnpdetect(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_SNP_DETECT, ndcli::kInitSilent))
        return request.result();
    uint16_t retransmit = 0;
    uint16_t interval = 0;
    if (!isUndo(argc, argv)) {
        retransmit = static_cast<uint16_t>(atoi(ndcli::textAt(argc, argv, kDetectRetransmitWord)));
        interval = static_cast<uint16_t>(atoi(ndcli::textAt(argc, argv, kDetectIntervalWord)));
        request.add(ndwire::kItemRetransmit, sizeof retransmit, &retransmit, true);
        request.add(ndwire::kItemInterval, sizeof interval, &interval, true);
    }
    return request.finish();
}

int32_t ndArgProcForSnpStUb(int32_t argc, char **argv)
{
    uint8_t address[kAddressBytes];
    uint8_t mac[kMacBytes];
    uint32_t vlan = 0;
    int32_t portId = 0;
    char name[kIfNameBytes];
    memset(address, 0, sizeof address);
    memset(mac, 0, sizeof mac);
    memset(name, 0, sizeof name);

    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_SNP_USER_BIND, ndcli::kInitSilent))
        return request.result();

    if (!isUndo(argc, argv)) {
        inet_pton(kAddressFamilyIpv6, ndcli::textAt(argc, argv, kUbAddressWord), address);
        request.add(ndwire::kItemAddress, sizeof address, address, true);
        enet_addr(ndcli::textAt(argc, argv, kUbMacWord), mac);
        request.add(ndwire::kItemMac, sizeof mac, mac, true);
        vlan = static_cast<uint32_t>(atoi(ndcli::textAt(argc, argv, kUbVlanWord)));
        request.add(ndwire::kItemVlan, sizeof vlan, &vlan, true);

        const char *interfaceText = ndcli::textAt(argc, argv, kUbInterfaceWord);
        if (mpsh_in_interaceive_mode() != 0) {
            auto parse = [interfaceText](void *map) {
                cmdString2Portmap(interfaceText, map, g_max_pbmp_bytes);
                return true;
            };
            switch (lookupSinglePort(kUserBindPortMessages, parse, portId, name)) {
            case PortLookup::NoMemory:
                // Recorded for the caller, deliberately never printed: the command has
                // always been silent here, and a replayed configuration must not stop on it.
                return ND_ERR_MEMORY_SHORT;
            case PortLookup::Refused:
                return ND_OK;
            case PortLookup::Found:
                break;
            }
        } else {
            // Replayed configuration names the interface by its text alone.
            strncpy(name, interfaceText, sizeof name - 1);
        }
        request.add(ndwire::kItemPortId, sizeof portId, &portId, true);
        request.add(ndwire::kItemObject, sizeof name, name, true);
    } else if (argc == kUbUndoWithAddressWords) {
        inet_pton(kAddressFamilyIpv6, ndcli::textAt(argc, argv, kUbUndoAddressWord), address);
        request.add(ndwire::kItemAddress, sizeof address, address, true);
    } else {
        // No address typed: the all-zero marker item says so to the service.
        request.add(ndwire::kItemNoAddress, sizeof address, address, true);
    }
    return request.finish();
}
}
