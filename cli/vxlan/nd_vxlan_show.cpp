// VXLAN ND suppression and host tables: the show and clear handlers, their renderers, and the
// VXLAN diagnose request.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "vxlan/nd_cli_vxlan.h"
#include "framework/nd_cli_pager.h"
#include "framework/nd_cli_record.h"
#include "nd_request.h"

using ndcli::u16At;

namespace {

// Width of the INTERFACE and SVLAN/CVLAN cells of the host table.
constexpr size_t kColumnSize = 50;

constexpr int32_t kVxlanIdWord = 5;

// One record of either table, copied out of the response. A record shorter than expected is
// zero-filled rather than read past its end; text fields are always terminated.
struct VxlanRecord {
    uint8_t bytes[ndwire::vxlan::kSize];
    char host[ndwire::vxlan::kAddressTextSize];
    char tunnel[ndwire::vxlan::kAddressTextSize];
    char mac[16];

    VxlanRecord(const void *record, uint32_t code, uint32_t length)
    {
        if (code != ndwire::kRspVxlanRecord || length != ndwire::vxlan::kSize)
            printf("\ncli param error\n");
        memset(bytes, 0, sizeof bytes);
        if (record)
            memcpy(bytes, record, length < sizeof bytes ? length : sizeof bytes);
        text(host, ndwire::vxlan::kHostAddress);
        text(tunnel, ndwire::vxlan::kTunnelAddress);
        const uint8_t *m = bytes + ndwire::vxlan::kMac;
        snprintf(mac, sizeof mac, "%02x%02x.%02x%02x.%02x%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    }
    int32_t i32(size_t offset) const
    {
        int32_t v;
        memcpy(&v, bytes + offset, sizeof v);
        return v;
    }

private:
    void text(char *out, size_t offset)
    {
        memcpy(out, bytes + offset, ndwire::vxlan::kAddressTextSize);
        out[ndwire::vxlan::kAddressTextSize - 1] = '\0';
    }
};

// Reads a word that the grammar guarantees; a missing one reads as 0 instead of crashing.
int32_t numberWord(int32_t argc, char **argv, int32_t index)
{
    const char *word = ndcli::wordAt(argc, argv, index);
    return word ? atoi(word) : 0;
}

// Both table shows: optional VXLAN id, paged exchange, the title flag reset, the total.
int32_t runTableShow(uint32_t code, int32_t minArgs, NdCliVxlanRenderFn render, const char *totalFormat,
                     int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, code, ndcli::kInitErrorPrinted))
        return request.result();
    uint32_t vxlanId = 0;
    if (argc >= minArgs) {
        vxlanId = static_cast<uint32_t>(numberWord(argc, argv, kVxlanIdWord));
        request.add(ndwire::kItemVxlanId, sizeof vxlanId, &vxlanId, false);
    }
    ndcli::Pager pager;
    const uint32_t r = ndCliVxlanSetProc(&request.block(), render);
    gNdCliTitleShowed = 0;
    if (r != ND_OK)
        nd_CliPrintErrorToVty(r);
    pager.close(ndcli::Pager::End::BreakAndFormat);
    return ndcli::printedResult(totalFormat, static_cast<int32_t>(request.block().decodedCount));
}

} // namespace

extern "C" {

uint32_t gNdCliTitleShowed = 0;

uint32_t ndCliVxlanSuppressionShowRecv(const void *record, uint32_t code, uint32_t length)
{
    VxlanRecord rec(record, code, length);
    if (gNdCliTitleShowed == 0) {
        printf("\n%-10s %-15s %-46s %-20s %-10s", "Vxlan-Id", "MAC-Address", "IP-Address", "Tunnel-IP",
               "Tunnel-Id");
        gNdCliTitleShowed = 1;
    }
    printf("\n%-10d %-15s %-46s %-20s %-10d", rec.i32(ndwire::vxlan::kVxlanId), rec.mac, rec.host, rec.tunnel,
           rec.i32(ndwire::vxlan::kTunnelId));
    return 0;
}

uint32_t ndCliVxlanHostShowRecv(const void *record, uint32_t code, uint32_t length)
{
    VxlanRecord rec(record, code, length);
    if (gNdCliTitleShowed == 0) {
        printf("\n%-10s %-20s %-48s %-20s %s", "VXLAN-ID", "MAC-Address", "IP-Address", "INTERFACE",
               "SVLAN/CVLAN");
        gNdCliTitleShowed = 1;
    }

    char port[kColumnSize] = "-";
    char vlans[kColumnSize] = "-";
    uint8_t info[ND_VXPORT_INFO_SIZE];
    memset(info, 0, sizeof info);
    uint32_t portIndex = static_cast<uint32_t>(rec.i32(ndwire::vxlan::kPortIndex));
    if (VXLAN_GetVxportBasicInfo(portIndex, info) == 0 && u16At(info, ND_VXPORT_INFO_KIND) == ND_VXPORT_KIND_ATTACHED) {
        int32_t portId;
        memcpy(&portId, info + ND_VXPORT_INFO_PORT_ID, sizeof portId);
        portID2ShortString(portId, port);
        port[kColumnSize - 1] = '\0';
        uint16_t svlan = u16At(info, ND_VXPORT_INFO_SVLAN);
        uint16_t cvlan = u16At(info, ND_VXPORT_INFO_CVLAN);
        int n = svlan ? snprintf(vlans, sizeof vlans, "%d/", svlan) : snprintf(vlans, sizeof vlans, "-/");
        size_t used = n > 0 ? static_cast<size_t>(n) : 0;
        if (used < sizeof vlans) {
            if (cvlan)
                snprintf(vlans + used, sizeof vlans - used, "%d", cvlan);
            else
                snprintf(vlans + used, sizeof vlans - used, "-");
        }
    }
    printf("\n%-10d %-20s %-48s %-20s %s", rec.i32(ndwire::vxlan::kVxlanId), rec.mac, rec.host, port, vlans);
    return 0;
}

int32_t ndCliVxlanSuppressionShow(int32_t argc, char **argv)
{
    // Tests for five words while reading the sixth: kept as the command has always done, so
    // "show ipv6 nd suppression vxlan" without an id still sends an id item of 0 and the
    // service answers it as it always has.
    return runTableShow(ndwire::kCmdVxlanSuppression, 5, ndCliVxlanSuppressionShowRecv, "\nTotal suppression : %d ", argc,
                        argv);
}

int32_t ndCliVxlanHostShow(int32_t argc, char **argv)
{
    return runTableShow(ND_CMD_VXLAN_HOST, 6, ndCliVxlanHostShowRecv, "\nTotal vxlan host: %d", argc, argv);
}

int32_t ndCliVxlanHostclear(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_VXLAN_HOST, ndcli::kInitErrorPrinted))
        return request.result();
    uint32_t vxlanId = 0;
    const char *id = ndcli::wordAt(argc, argv, kVxlanIdWord);
    if (!id || strcmp(id, "all") != 0) {
        vxlanId = static_cast<uint32_t>(numberWord(argc, argv, kVxlanIdWord));
        request.add(ndwire::kItemVxlanId, sizeof vxlanId, &vxlanId, false);
    }
    uint8_t address[16];
    memset(address, 0, sizeof address);
    if (argc >= 7) {
        inet_pton(AF_INET6, ndcli::textAt(argc, argv, argc - 1), address);
        request.add(ndwire::kItemAddress, sizeof address, address, false);
    }
    request.sendVxlan(ndCliVxlanHostShowRecv);
    return 0;
}

int32_t nd_CliVxlanDiagnoseShowVxlan(int32_t argc, char **argv)
{
    uint32_t selector = 0;
    uint32_t vxlanId = 0;
    if (argc == 5 || argc == 6)
        vxlanId = static_cast<uint32_t>(numberWord(argc, argv, 4));
    if (argc == 6) {
        const char *kind = ndcli::wordAt(argc, argv, 5);
        if (kind && strcasecmp(kind, "host") == 0)
            selector = 1;
        else if (kind && strcasecmp(kind, "mac") == 0)
            selector = 2;
    }
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_DIAGNOSE, ndcli::kInitErrorPrinted))
        return request.result();
    request.add(ndwire::kItemDiagnoseKind, sizeof selector, &selector, true);
    request.add(ndwire::kItemVlan, sizeof vxlanId, &vxlanId, true);
    return static_cast<int32_t>(request.sendVxlan(nullptr));
}

} // extern "C"
