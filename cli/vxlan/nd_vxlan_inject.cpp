// Hidden test-injection commands: load the VXLAN ND tables with many synthetic suppression
// hosts or remote neighbours, one job per entry on the VXLAN interaction work task.
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

#include "vxlan/nd_cli_vxlan.h"

namespace {

constexpr uint32_t kJobPriority = 1;

// Where a template's fields lie and which words of the command fill them.
struct TestRecordLayout {
    uint32_t size;
    int32_t offVxlanId, offType, offIfIndex, offTunnelId, offVrfId; // -1: not in this record
    uint32_t offAddress;                                            // host or ND address
    uint32_t offFamily;
    uint32_t offTunnelAddress;
    uint32_t offMac;
    uint32_t words; // parameters after the keywords, the count included
};

// Suppression host: vxlanId tunId hostIp tunIp MAC nums.
constexpr TestRecordLayout kSuppression = {ndwire::suppression::kSize, ndwire::suppression::kVxlanId, -1, -1,
                                           ndwire::suppression::kTunnelId, -1, ndwire::suppression::kAddress,
                                           ndwire::suppression::kFamily, ndwire::suppression::kTunnelAddress,
                                           ndwire::suppression::kMac, 6};
// Remote neighbour: type vxlanId ifIndex tunId vrfId ndIp tunIp macAddr nums.
constexpr TestRecordLayout kNbrEntry = {ndwire::remotenbr::kSize, ndwire::remotenbr::kVxlanId,
                                        ndwire::remotenbr::kType, ndwire::remotenbr::kIfIndex,
                                        ndwire::remotenbr::kTunnelId, ndwire::remotenbr::kVrfId,
                                        ndwire::remotenbr::kAddress, ndwire::remotenbr::kFamily,
                                        ndwire::remotenbr::kTunnelAddress, ndwire::remotenbr::kMac, 9};

constexpr uint32_t kMaxRecordSize = ndwire::remotenbr::kSize; // the larger of the two
constexpr uint32_t kAddressSize = 16;
constexpr uint32_t kLowWordOffset = kAddressSize - 4; // last four bytes of the address

constexpr uint8_t kFamilyIpv6 = 10;
constexpr uint8_t kFamilyIpv4 = 2;

struct TestJobs {
    GNL_WT_JOB_FN add;
    GNL_WT_JOB_FN del;
};

void putU32(uint8_t *record, int32_t offset, uint32_t value)
{
    if (offset >= 0)
        memcpy(record + offset, &value, sizeof value);
}

using NdLibraryFn = int32_t (*)(void *record, uint32_t count, uint32_t *out);

// Each job hands its one record to the ND library and then owns nothing any more.
void runJob(NdLibraryFn call, void *record)
{
    if (!record)
        return;
    uint32_t out = 0;
    call(record, 1, &out);
    __UMV2L_free(record);
}

int32_t runTestCommand(const TestRecordLayout &layout, const TestJobs &jobs, int32_t argc, char **argv)
{
    bool remove = argc > 0 && argv[0] && strcmp(argv[0], "no") == 0;
    int32_t first = remove ? 4 : 3;
    // The grammar always supplies every parameter; a shorter call queues nothing.
    if (argc < first + static_cast<int32_t>(layout.words))
        return 0;
    char **param = argv + first;

    uint8_t record[kMaxRecordSize];
    memset(record, 0, sizeof record);
    int32_t w = 0;
    if (layout.offType >= 0)
        putU32(record, layout.offType, static_cast<uint32_t>(atoi(param[w++])));
    putU32(record, layout.offVxlanId, static_cast<uint32_t>(atoi(param[w++])));
    if (layout.offIfIndex >= 0)
        putU32(record, layout.offIfIndex, static_cast<uint32_t>(atoi(param[w++])));
    putU32(record, layout.offTunnelId, static_cast<uint32_t>(atoi(param[w++])));
    if (layout.offVrfId >= 0)
        putU32(record, layout.offVrfId, static_cast<uint32_t>(atoi(param[w++])));
    inet_pton(AF_INET6, param[w++], record + layout.offAddress);
    const char *tunnel = param[w++];
    bool tunnelV6 = strchr(tunnel, ':') != nullptr;
    record[layout.offFamily] = tunnelV6 ? kFamilyIpv6 : kFamilyIpv4;
    inet_pton(tunnelV6 ? AF_INET6 : AF_INET, tunnel, record + layout.offTunnelAddress);
    enet_addr(param[w++], record + layout.offMac);
    int32_t count = atoi(param[w]);

    // Addresses are in network order: the low word is counted as a big-endian number.
    uint32_t lowWord;
    memcpy(&lowWord, record + layout.offAddress + kLowWordOffset, sizeof lowWord);
    lowWord = ntohl(lowWord);
    GNL_WT_JOB_FN job = remove ? jobs.del : jobs.add;
    for (int32_t i = 0; i < count; ++i) {
        // A copy that cannot be allocated is skipped rather than used.
        uint8_t *copy = static_cast<uint8_t *>(__UMV2L_malloc(layout.size));
        if (!copy)
            continue;
        memcpy(copy, record, layout.size);
        uint32_t entryWord = htonl(lowWord + static_cast<uint32_t>(i)); // wraps within the low word
        memcpy(copy + layout.offAddress + kLowWordOffset, &entryWord, sizeof entryWord);
        // A job the task refuses never runs, so its record is released here.
        if (gnl_wt_add_event_job(nsm_vxlan_interaction_mgmt_get_handle(), kJobPriority, job, copy) != 0)
            __UMV2L_free(copy);
    }
    return 0;
}

constexpr TestJobs kSuppressionJobs = {ndCliVxlanSuppressAddJob, ndCliVxlanSuppressDelJob};
constexpr TestJobs kNbrEntryJobs = {ndCliVxlanNbrEntryAddJob, ndCliVxlanNbrEntryDelJob};

} // namespace

extern "C" {

void ndCliVxlanSuppressAddJob(uintptr_t, uintptr_t, void *record)
{
    runJob(ND_AddSuppressionHost, record);
}

void ndCliVxlanSuppressDelJob(uintptr_t, uintptr_t, void *record)
{
    runJob(ND_DelSuppressionHost, record);
}

void ndCliVxlanNbrEntryAddJob(uintptr_t, uintptr_t, void *record)
{
    runJob(ND_AddRemoteNbr, record);
}

void ndCliVxlanNbrEntryDelJob(uintptr_t, uintptr_t, void *record)
{
    runJob(ND_DelRemoteNbr, record);
}

int32_t ndCliVxlanSuppressTest(int32_t argc, char **argv)
{
    return runTestCommand(kSuppression, kSuppressionJobs, argc, argv);
}

int32_t ndCliVxlanNbrEntryTest(int32_t argc, char **argv)
{
    return runTestCommand(kNbrEntry, kNbrEntryJobs, argc, argv);
}

} // extern "C"

// Not reformatted: laid out as the command tree it defines.
// clang-format off
#define ND_CLI_VXLAN_NBR_ENTRY_TEST                                                                   \
    "nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){nbrentry(EN, 0, HIDE, ''){_0_1_(EN, 0, '0:remote-nbr, 1:remote-vtep'){" \
    "_STRING_(EN, 0, 'vxlanId'){_STRING_(EN, 0, 'ifIndex'){_0_65535_(EN, 0, 'tunId'){_0_4095_(EN, 0, 'vrfId'){" \
    "_IPV6ADDR_(EN, 0, 'ndIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, "  \
    "'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'macAddr'){_1_1000000_(EN, 0, 'nums')}}}}}}}}}}}"
// clang-format on

constexpr NdCliVxlanCmdRow kNdCliVxlanTestCmdTable[kNdCliVxlanTestCmdCount] = {
    {ndCliVxlanSuppressTest,
     "nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vxlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}}"},
    // The negated form's help word reads 'vlanId'.
    {ndCliVxlanSuppressTest,
     "no(EN, 0, ''){nd(EN, 0, ''){mpos(EN, 0, HIDE, ''){suppress(EN, 0, HIDE, ''){_STRING_(EN, 0, 'vlanId'){_0_65535_(EN, 0, 'tunId'){_IPV6ADDR_(EN, 0, 'hostIp'){_ipAddress_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}},_IPV6ADDR_(EN, 0, 'tunIp'){_MACAddress_(EN, 0, 'MAC'){_1_1000000_(EN, 0, 'nums')}}}}}}}}}"},
    {ndCliVxlanNbrEntryTest, ND_CLI_VXLAN_NBR_ENTRY_TEST},
    {ndCliVxlanNbrEntryTest, "no(EN, 0, ''){" ND_CLI_VXLAN_NBR_ENTRY_TEST "}"},
};

extern "C" void nd_CliVxlanDebugCmdReg(void)
{
    for (const NdCliVxlanCmdRow &row : kNdCliVxlanTestCmdTable)
        cmd_register(row.handler, row.definition);
}
