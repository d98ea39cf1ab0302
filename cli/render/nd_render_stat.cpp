// Statistics renderers of fast response and ND snooping: the records of one payload are
// collected in a list, then printed member by member and, within a member, instance by
// instance, one block per record. The two kinds differ only in their record description.
#include <cstdio>
#include <cstring>

#include "nd_cli_internal.h"
#include "render/nd_render.h"

namespace {

struct StatLine {
    const char *format;
    uint32_t offset;
};

template <size_t N> struct StatLayout {
    const char *memberHeading; // chassis of several members
    const char *plainHeading;
    StatLine lines[N];           // in printing order
    const char *allocFailFormat; // printed when a node cannot be allocated; null: nothing
};

constexpr StatLayout<20> kFwdLayout = {
    "\n      Statistics for member:%d fast response:\n",
    "\n      Statistics for fast response:\n",
    {
        {"\n      rxNdCount:          %d", 4},
        {"\n      rxNdDrop:           %d", 8},
        {"\n      rxNsCount:          %d", 12},
        {"\n      rxNsDecFail:        %d", 16},
        {"\n      rxNsBadDad:         %d", 20},
        {"\n      rxNdOptError:       %d", 24},
        {"\n      rxTargetMcast:      %d", 28},
        {"\n      rxNsNoNapr:         %d", 32},
        {"\n      rxNsNeedNa:         %d", 36},
        {"\n      rxNaprLocal:        %d", 40},
        {"\n      rxNaprProxyIf:      %d", 44},
        {"\n      rxNaprProxyLoc:     %d", 48},
        {"\n      rxNaprProxyAddr:    %d", 52},
        {"\n      rxNaprFillFail:     %d", 56},
        {"\n      rxNaprDelay:        %d", 60},
        {"\n      txNaCount:          %d", 64},
        {"\n      txNaFail:           %d", 68},
        {"\n      txGetSrcAddrFail:   %d", 72},
        {"\n      txGetLinkHdrFail:   %d", 76},
        {"\n      txNewBufFail:       %d", 80},
    },
    "",
};

// The last two counters are printed in the reverse of their record order, on purpose: the
// listing has always had this line order, and operators' scripts read its lines by position.
constexpr StatLayout<14> kSnpLayout = {
    "\n      Statistics for member:%d nd snooping:\n",
    "\n      Statistics for nd snooping:\n",
    {
        {"\n      lladdrInvalid:              %d", 4},
        {"\n      dadPacketDeal:              %d", 8},
        {"\n      nsPacketPass:               %d", 12},
        {"\n      nsPacketDrop:               %d", 16},
        {"\n      naPacketPass:               %d", 20},
        {"\n      naPacketDrop:               %d", 24},
        {"\n      rsPacketPass:               %d", 28},
        {"\n      rsPacketDrop:               %d", 32},
        {"\n      raPacketPass:               %d", 36},
        {"\n      raPacketDrop:               %d", 40},
        {"\n      rdPacketPass:               %d", 44},
        {"\n      rdPacketDrop:               %d", 48},
        {"\n      sendDtPktFail:              %d", 56},
        {"\n      sendDtPktOk:                %d", 52},
    },
    nullptr,
};

template <uint32_t R, size_t N> constexpr bool linesInside(const StatLayout<N> &layout)
{
    for (const StatLine &line : layout.lines)
        if (line.offset + sizeof(uint32_t) > R)
            return false;
    return true;
}
static_assert(linesInside<ndwire::stat::kForwardSize>(kFwdLayout));
static_assert(linesInside<ndwire::stat::kSnoopingSize>(kSnpLayout));

template <uint32_t R> NdCliStatNode<R> *nodeOf(GnlListHead *link)
{
    return reinterpret_cast<NdCliStatNode<R> *>(link);
}

template <uint32_t R> NdCliStatNode<R> *findNode(uint32_t member, uint32_t instance, GnlListHead *head)
{
    const auto wantMember = static_cast<uint8_t>(member);
    const auto wantInstance = static_cast<uint8_t>(instance);
    for (GnlListHead *link = head->next; link != head; link = link->next) {
        NdCliStatNode<R> *node = nodeOf<R>(link);
        if (node->record[ndwire::stat::kMember] == wantMember && node->record[ndwire::stat::kInstance] == wantInstance)
            return node;
    }
    return nullptr;
}

template <uint32_t R> void clearList(GnlListHead *head)
{
    GnlListHead *link = head->next;
    while (link != head) {
        GnlListHead *next = link->next;
        gnl_list_del(link);
        __UMV2L_free(nodeOf<R>(link));
        link = next;
    }
}

template <size_t N> void printRecord(const StatLayout<N> &layout, const uint8_t *record)
{
    printf("\n");
    if (ndCliIsFnsMode())
        printf(layout.memberHeading, record[ndwire::stat::kMember]);
    else
        printf("%s", layout.plainHeading);
    for (const StatLine &line : layout.lines) {
        uint32_t value;
        memcpy(&value, record + line.offset, sizeof value);
        printf(line.format, static_cast<int32_t>(value));
    }
}

template <uint32_t R, size_t N> void renderStats(const StatLayout<N> &layout, const void *payload, uint32_t length)
{
    // A payload shorter than its header holds no record.
    if (!payload || length < ndwire::page::kSize)
        return;
    GnlListHead head;
    GNL_INIT_LIST_HEAD(&head);
    uint32_t remaining = length - ndwire::page::kSize;
    const uint8_t *cursor = static_cast<const uint8_t *>(payload) + ndwire::page::kSize;
    while (remaining >= R) {
        auto *node = static_cast<NdCliStatNode<R> *>(__UMV2L_malloc(NdCliStatNode<R>::kAllocBytes));
        if (!node) {
            // The nodes collected so far are deliberately left allocated and nothing is
            // printed: the renderer gives up at once. Kept rather than mended into a partial
            // listing, which a script parsing the output would take for a whole one.
            if (layout.allocFailFormat)
                printf("%s", layout.allocFailFormat);
            return;
        }
        memcpy(node->record, cursor, R);
        gnl_list_add_tail(&node->link, &head);
        remaining -= R;
        cursor += R;
    }
    for (uint32_t member = 0; member < ndwire::stat::kMembers; ++member) {
        for (uint32_t instance = 0; instance < ndwire::stat::kInstances; ++instance) {
            if (NdCliStatNode<R> *node = findNode<R>(member, instance, &head))
                printRecord(layout, node->record);
        }
    }
    clearList<R>(&head);
}

} // namespace

extern "C" {

void ndCliShowFwdStInfo(const void *payload, uint32_t length)
{
    renderStats<ndwire::stat::kForwardSize>(kFwdLayout, payload, length);
}

void ndCliShowSnpStInfo(const void *payload, uint32_t length)
{
    renderStats<ndwire::stat::kSnoopingSize>(kSnpLayout, payload, length);
}

NdCliFwdStatNode *ndCliFwdStatNodeFind(uint32_t member, uint32_t instance, GnlListHead *head)
{
    return findNode<ndwire::stat::kForwardSize>(member, instance, head);
}

NdCliSnpStatNode *ndCliSnpStatNodeFind(uint32_t member, uint32_t instance, GnlListHead *head)
{
    return findNode<ndwire::stat::kSnoopingSize>(member, instance, head);
}

void ndCliClearFwdStatList(GnlListHead *head)
{
    clearList<ndwire::stat::kForwardSize>(head);
}

void ndCliClearSnpStatList(GnlListHead *head)
{
    clearList<ndwire::stat::kSnoopingSize>(head);
}
}
