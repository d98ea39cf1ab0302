// Statistics renderers of fast response and ND snooping, and their list operations.
#include <random>
#include <set>

#include "payload.h"
#include "render/nd_render.h"
#include "test_support.h"


namespace {

using ndtest::Payload;

class StatRender : public ndtest::PlatformTest {};

std::vector<uint32_t> counting(uint32_t first, size_t n)
{
    std::vector<uint32_t> v;
    for (size_t i = 0; i < n; ++i)
        v.push_back(first + static_cast<uint32_t>(i));
    return v;
}

Payload snpPayload(std::initializer_list<Payload> records)
{
    Payload p(12);
    for (const Payload &r : records)
        p.append(r);
    return p;
}

std::string renderSnp(const Payload &p)
{
    ndtest::Stdout out;
    ndCliShowSnpStInfo(p.data(), p.size());
    return out.take();
}

std::string renderFwd(const Payload &p)
{
    ndtest::Stdout out;
    ndCliShowFwdStInfo(p.data(), p.size());
    return out.take();
}

// The block of one snooping record whose counters are first, first + 1, ... in record order.
std::string snpBlock(const std::string &heading, uint32_t first)
{
    auto v = [first](uint32_t i) { return std::to_string(static_cast<int32_t>(first + i)); };
    return "\n" + heading +
           "\n      lladdrInvalid:              " + v(0) +
           "\n      dadPacketDeal:              " + v(1) +
           "\n      nsPacketPass:               " + v(2) +
           "\n      nsPacketDrop:               " + v(3) +
           "\n      naPacketPass:               " + v(4) +
           "\n      naPacketDrop:               " + v(5) +
           "\n      rsPacketPass:               " + v(6) +
           "\n      rsPacketDrop:               " + v(7) +
           "\n      raPacketPass:               " + v(8) +
           "\n      raPacketDrop:               " + v(9) +
           "\n      rdPacketPass:               " + v(10) +
           "\n      rdPacketDrop:               " + v(11) +
           "\n      sendDtPktFail:              " + v(13) +
           "\n      sendDtPktOk:                " + v(12);
}

std::string memberHeading(int member)
{
    return "\n      Statistics for member:" + std::to_string(member) + " nd snooping:\n";
}
const std::string kSnpPlain = "\n      Statistics for nd snooping:\n";

TEST_F(StatRender, NullPayloadPrintsNothing)
{
    ndtest::Stdout out;
    ndCliShowSnpStInfo(nullptr, 200);
    ndCliShowFwdStInfo(nullptr, 200);
    EXPECT_EQ(out.take(), "");
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
}

TEST_F(StatRender, PayloadOfTwelveBytesOrFewerPrintsNothing)
{
    for (uint32_t length : {0u, 1u, 11u, 12u}) {
        std::vector<uint8_t> bytes(length == 0 ? 1 : length, 0xAB);
        ndtest::Stdout out;
        ndCliShowSnpStInfo(bytes.data(), length);
        ndCliShowFwdStInfo(bytes.data(), length);
        EXPECT_EQ(out.take(), "") << "length " << length;
    }
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_malloc").empty());
}

TEST_F(StatRender, OneSnoopingRecordOfMemberOneInMultiMemberChassis)
{
    ndplat::chassis_mode_set(2);
    Payload p = snpPayload({ndtest::snp_record(1, 0, counting(1, 14))});
    std::string expected =
        "\n"
        "\n      Statistics for member:1 nd snooping:\n"
        "\n      lladdrInvalid:              1"
        "\n      dadPacketDeal:              2"
        "\n      nsPacketPass:               3"
        "\n      nsPacketDrop:               4"
        "\n      naPacketPass:               5"
        "\n      naPacketDrop:               6"
        "\n      rsPacketPass:               7"
        "\n      rsPacketDrop:               8"
        "\n      raPacketPass:               9"
        "\n      raPacketDrop:               10"
        "\n      rdPacketPass:               11"
        "\n      rdPacketDrop:               12"
        "\n      sendDtPktFail:              14"
        "\n      sendDtPktOk:                13";
    EXPECT_EQ(renderSnp(p), expected);
    EXPECT_EQ(snpBlock(memberHeading(1), 1), expected);
}

TEST_F(StatRender, PlainHeadingOutsideMultiMemberChassis)
{
    Payload p = snpPayload({ndtest::snp_record(1, 0, counting(100, 14))});
    EXPECT_EQ(renderSnp(p), snpBlock(kSnpPlain, 100));
}

TEST_F(StatRender, HeadingIsDecidedAfreshForEveryRecord)
{
    ndplat::chassis_mode_set(2);
    ndplat::fault_inject("DMM_GetChsMode", 5, 1); // the first query fails
    Payload p = snpPayload({ndtest::snp_record(0, 0, counting(1, 14)), ndtest::snp_record(0, 1, counting(20, 14))});
    EXPECT_EQ(renderSnp(p), snpBlock(kSnpPlain, 1) + snpBlock(memberHeading(0), 20));
    EXPECT_EQ(ndplat::trace_of("DMM_GetChsMode").size(), 2u);
}

TEST_F(StatRender, OrderedByMemberThenInstance)
{
    ndplat::chassis_mode_set(2);
    Payload p = snpPayload({ndtest::snp_record(3, 1, counting(300, 14)), ndtest::snp_record(0, 0, counting(1, 14)),
                            ndtest::snp_record(3, 0, counting(400, 14))});
    EXPECT_EQ(renderSnp(p), snpBlock(memberHeading(0), 1) + snpBlock(memberHeading(3), 400) +
                                snpBlock(memberHeading(3), 300));
}

TEST_F(StatRender, MembersFromEightAndInstancesFromTwoAreReceivedButNotPrinted)
{
    ndplat::chassis_mode_set(2);
    Payload p = snpPayload({ndtest::snp_record(9, 0, counting(1, 14)), ndtest::snp_record(7, 1, counting(50, 14)),
                            ndtest::snp_record(2, 2, counting(70, 14))});
    EXPECT_EQ(renderSnp(p), snpBlock(memberHeading(7), 50));
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc").size(), 3u);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 3u);
}

TEST_F(StatRender, OnlyTheFirstOfTwoEqualRecordsIsPrinted)
{
    Payload p = snpPayload({ndtest::snp_record(0, 0, counting(1, 14)), ndtest::snp_record(0, 0, counting(900, 14))});
    EXPECT_EQ(renderSnp(p), snpBlock(kSnpPlain, 1));
}

TEST_F(StatRender, TrailingPartialRecordIsIgnored)
{
    Payload whole = snpPayload({ndtest::snp_record(0, 0, counting(1, 14))});
    Payload trailing = whole;
    trailing.resize(whole.size() + 59);
    for (uint32_t i = whole.size(); i < trailing.size(); ++i)
        trailing.put<uint8_t>(i, 0x01); // looks like member 1 if it were read
    Payload plusOne = whole;
    plusOne.resize(whole.size() + 1);
    EXPECT_EQ(whole.size(), 72u);
    std::string one = renderSnp(whole);
    EXPECT_EQ(one, snpBlock(kSnpPlain, 1));
    EXPECT_EQ(renderSnp(trailing), one);
    EXPECT_EQ(renderSnp(plusOne), one);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc").size(), 3u);
}

TEST_F(StatRender, LargestCounterPrintsAsMinusOne)
{
    std::vector<uint32_t> counters(14, 0);
    counters[0] = 0xFFFFFFFFu;
    counters[13] = 0x80000000u;
    Payload p = snpPayload({ndtest::snp_record(0, 0, counters)});
    std::string text = renderSnp(p);
    EXPECT_NE(text.find("\n      lladdrInvalid:              -1"), std::string::npos) << text;
    EXPECT_NE(text.find("\n      sendDtPktFail:              -2147483648"), std::string::npos) << text;
}

TEST_F(StatRender, FastResponseRecordInFullPlainAndMember)
{
    Payload p(12);
    p.append(ndtest::fwd_record(2, 0, counting(1, 20)));
    const std::string lines =
        "\n      rxNdCount:          1"
        "\n      rxNdDrop:           2"
        "\n      rxNsCount:          3"
        "\n      rxNsDecFail:        4"
        "\n      rxNsBadDad:         5"
        "\n      rxNdOptError:       6"
        "\n      rxTargetMcast:      7"
        "\n      rxNsNoNapr:         8"
        "\n      rxNsNeedNa:         9"
        "\n      rxNaprLocal:        10"
        "\n      rxNaprProxyIf:      11"
        "\n      rxNaprProxyLoc:     12"
        "\n      rxNaprProxyAddr:    13"
        "\n      rxNaprFillFail:     14"
        "\n      rxNaprDelay:        15"
        "\n      txNaCount:          16"
        "\n      txNaFail:           17"
        "\n      txGetSrcAddrFail:   18"
        "\n      txGetLinkHdrFail:   19"
        "\n      txNewBufFail:       20";
    EXPECT_EQ(renderFwd(p), "\n\n      Statistics for fast response:\n" + lines);
    ndplat::chassis_mode_set(2);
    EXPECT_EQ(renderFwd(p), "\n\n      Statistics for member:2 fast response:\n" + lines);
}

TEST_F(StatRender, NodesHoldTheLinkAndOneRecord)
{
    Payload s = snpPayload({ndtest::snp_record(0, 0, {})});
    Payload f(12);
    f.append(ndtest::fwd_record(0, 0, {}));
    renderSnp(s);
    renderFwd(f);
    std::vector<std::string> mallocs = ndplat::trace_of("__UMV2L_malloc");
    ASSERT_EQ(mallocs.size(), 2u);
    EXPECT_EQ(mallocs[0], "__UMV2L_malloc(" + std::to_string(sizeof(GnlListHead) + 60) + ")");
    EXPECT_EQ(mallocs[1], "__UMV2L_malloc(" + std::to_string(sizeof(GnlListHead) + 84) + ")");
}

TEST_F(StatRender, FirstAllocationFailingPrintsNothingAndFreesNothing)
{
    Payload s = snpPayload({ndtest::snp_record(0, 0, counting(1, 14)), ndtest::snp_record(1, 0, counting(1, 14))});
    Payload f(12);
    f.append(ndtest::fwd_record(0, 0, counting(1, 20)));
    ndplat::fault_inject("__UMV2L_malloc", 0, 1);
    EXPECT_EQ(renderSnp(s), "");
    ndplat::fault_inject("__UMV2L_malloc", 0, 1);
    EXPECT_EQ(renderFwd(f), "");
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc").size(), 2u);
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_free").empty());
    EXPECT_TRUE(ndplat::trace_of("DMM_GetChsMode").empty());
}

// A failure after some nodes were collected gives up at once and leaves those nodes
// allocated: that is the renderers' defined behaviour, so this test does not use the
// fixture that insists on no allocation being left.
TEST(StatRenderAllocation, LaterAllocationFailingLeavesCollectedNodesAndPrintsNothing)
{
    for (bool fwd : {false, true}) {
        ndplat::reset();
        Payload p(12);
        for (uint8_t m = 0; m < 3; ++m)
            p.append(fwd ? ndtest::fwd_record(m, 0, counting(1, 20)) : ndtest::snp_record(m, 0, counting(1, 14)));
        long before = ndplat::outstanding_allocations();
        std::string text;
        {
            ndtest::LeakCheckPause keepLeak;
            ndtest::Stdout out;
            ndplat::fault_inject("__UMV2L_malloc", 0, 1, 2); // the third allocation fails
            if (fwd)
                ndCliShowFwdStInfo(p.data(), p.size());
            else
                ndCliShowSnpStInfo(p.data(), p.size());
            text = out.take();
        }
        EXPECT_EQ(text, "");
        EXPECT_EQ(ndplat::outstanding_allocations() - before, 2);
        EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc").size(), 3u);
        EXPECT_TRUE(ndplat::trace_of("__UMV2L_free").empty());
        EXPECT_TRUE(ndplat::trace_of("DMM_GetChsMode").empty());
    }
    ndplat::reset();
}

template <typename Node> Node *makeNode(uint8_t member, uint8_t instance, uint8_t tag)
{
    auto *node = static_cast<Node *>(__UMV2L_malloc(Node::kAllocBytes));
    memset(node->record, 0, sizeof node->record);
    node->record[0] = instance;
    node->record[1] = member;
    node->record[4] = tag;
    return node;
}

template <typename Node, typename Find, typename Clear> void checkFindAndClear(Find find, Clear clear)
{
    GnlListHead head;
    GNL_INIT_LIST_HEAD(&head);
    EXPECT_EQ(find(0, 0, &head), nullptr);
    Node *a = makeNode<Node>(1, 0, 1);
    Node *b = makeNode<Node>(1, 1, 2);
    Node *c = makeNode<Node>(1, 0, 3);
    gnl_list_add_tail(&a->link, &head);
    gnl_list_add_tail(&b->link, &head);
    gnl_list_add_tail(&c->link, &head);
    EXPECT_EQ(find(1, 0, &head), a);
    EXPECT_EQ(find(1, 1, &head), b);
    EXPECT_EQ(find(0x101, 0x100, &head), a); // compared as 8-bit values
    EXPECT_EQ(find(0, 1, &head), nullptr);
    EXPECT_EQ(find(2, 0, &head), nullptr);
    long outstanding = ndplat::outstanding_allocations();
    ndplat::trace_clear();
    clear(&head);
    EXPECT_EQ(ndplat::outstanding_allocations(), outstanding - 3);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 3u);
    // Unlinking the last node joins the head to itself.
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST_F(StatRender, FindReturnsFirstMatchInListOrderAndClearFreesEveryNode)
{
    checkFindAndClear<NdCliSnpStatNode>(ndCliSnpStatNodeFind, ndCliClearSnpStatList);
    checkFindAndClear<NdCliFwdStatNode>(ndCliFwdStatNodeFind, ndCliClearFwdStatList);
}

TEST_F(StatRender, ClearOfAnEmptyListFreesNothing)
{
    GnlListHead head;
    GNL_INIT_LIST_HEAD(&head);
    ndCliClearSnpStatList(&head);
    ndCliClearFwdStatList(&head);
    EXPECT_EQ(head.next, &head);
    EXPECT_TRUE(ndplat::trace_of("__UMV2L_free").empty());
}

// Random payloads: no read outside the payload (checked by the address sanitizer), every
// node freed, and exactly one block for each distinct printable member and instance.
TEST_F(StatRender, RandomPayloads)
{
    std::mt19937 rng(4242);
    ndplat::chassis_mode_set(2);
    for (int round = 0; round < 400; ++round) {
        const bool fwd = round % 2 == 1;
        const uint32_t recordBytes = fwd ? 84 : 60;
        uint32_t length = rng() % 1200;
        std::vector<uint8_t> bytes(length == 0 ? 1 : length);
        for (uint8_t &b : bytes)
            b = static_cast<uint8_t>(rng() % 3 == 0 ? rng() % 10 : rng());
        std::set<std::pair<int, int>> printable;
        for (uint32_t off = 12; length >= 12 && off + recordBytes <= length; off += recordBytes)
            if (bytes[off + 1] < 8 && bytes[off] < 2)
                printable.insert({bytes[off + 1], bytes[off]});
        ndtest::Stdout out;
        if (fwd)
            ndCliShowFwdStInfo(bytes.data(), length);
        else
            ndCliShowSnpStInfo(bytes.data(), length);
        std::string text = out.take();
        size_t blocks = 0;
        for (size_t at = text.find("Statistics for member:"); at != std::string::npos;
             at = text.find("Statistics for member:", at + 1))
            ++blocks;
        EXPECT_EQ(blocks, printable.size()) << "round " << round;
    }
}

} // namespace
