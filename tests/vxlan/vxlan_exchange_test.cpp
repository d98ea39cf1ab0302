// The VXLAN exchange: paging with follow-up requests, the end-of-table code, status 6, raw
// transport statuses and the last-record buffer.
#include "vxlan_test_util.h"

using namespace vxlantest;
using ndtest::u32_bytes;

namespace {

const uint8_t kMacA[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const uint8_t kMacB[6] = {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};

struct Rendered {
    std::vector<std::vector<uint8_t>> records;
    std::vector<uint32_t> codes;
};
Rendered *gRendered = nullptr;

uint32_t collect(const void *rec, uint32_t code, uint32_t length)
{
    const uint8_t *p = static_cast<const uint8_t *>(rec);
    gRendered->records.emplace_back(p, p + length);
    gRendered->codes.push_back(code);
    return 0;
}

NdCliParam showBlock(uint32_t code, uint32_t vxlanId)
{
    NdCliParam block = {};
    static uint32_t id;
    id = vxlanId;
    nd_CliParamInit(&block, "show", code);
    nd_CliParamSet(&block, &id, sizeof id, 15, 0);
    return block;
}

class VxlanExchangeTest : public VxlanTest {
protected:
    void SetUp() override
    {
        VxlanTest::SetUp();
        gRendered = &rendered;
    }
    void TearDown() override
    {
        gRendered = nullptr;
        VxlanTest::TearDown();
    }
    Rendered rendered;
};

TEST_F(VxlanExchangeTest, ConfigurationCodesAreThoseBelow23)
{
    EXPECT_TRUE(ndCliVxlanIsCfgCmd(0));
    EXPECT_TRUE(ndCliVxlanIsCfgCmd(19));
    EXPECT_TRUE(ndCliVxlanIsCfgCmd(22));
    EXPECT_FALSE(ndCliVxlanIsCfgCmd(23));
    EXPECT_FALSE(ndCliVxlanIsCfgCmd(25));
    EXPECT_FALSE(ndCliVxlanIsCfgCmd(0xFFFFFFFFu));
}

TEST_F(VxlanExchangeTest, EmptyFirstAnswerEndsQuietlyWithZero)
{
    ndplat::cmf_script(response(13, {}));
    NdCliParam block = showBlock(22, 9);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(block.decodedCount, 0u);
    EXPECT_TRUE(rendered.records.empty());
    ASSERT_EQ(ndplat::cmf_requests().size(), 1u);
    // Unlike the generic exchange, the service process is neither asked about nor started.
    EXPECT_TRUE(ndplat::trace_of("DCM_Query").empty());
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
    EXPECT_EQ(ndplat::trace_of("CMF_ClientContextTimeoutSet"),
              std::vector<std::string>{"CMF_ClientContextTimeoutSet(ptr, 20)"});
}

TEST_F(VxlanExchangeTest, TableInThreeResponsesSendsTwoFollowUpsWithLastRecordAndFlag)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    auto b = record("2001:db8::b", "10.0.0.2", 9, 2, 0, kMacB);
    auto c = record("2001:db8::c", "10.0.0.3", 9, 3, 0, kMacA);
    auto d = record("2001:db8::d", "10.0.0.4", 9, 4, 0, kMacB);
    auto e = record("2001:db8::e", "10.0.0.5", 9, 5, 0, kMacA);
    ndplat::cmf_script(response(0, {recordItem(a), recordItem(b)}));
    ndplat::cmf_script(response(0, {recordItem(c)}));
    ndplat::cmf_script(response(13, {recordItem(d), recordItem(e), endOfTable()}));

    NdCliParam block = showBlock(22, 9);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);

    ASSERT_EQ(rendered.records.size(), 5u);
    EXPECT_EQ(rendered.records[0], a);
    EXPECT_EQ(rendered.records[4], e);
    EXPECT_EQ(rendered.codes, (std::vector<uint32_t>{17, 17, 17, 17, 17}));
    // Only the final response's records are counted.
    EXPECT_EQ(block.decodedCount, 2u);
    // The block is back to the handler's own items.
    EXPECT_EQ(block.itemCount, 1u);

    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 3u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    expectU32Item(requests[0].items[0], 15, 9);
    for (size_t i = 1; i < 3; ++i) {
        const auto &items = requests[i].items;
        ASSERT_EQ(items.size(), 3u) << i;
        expectU32Item(items[0], 15, 9);
        expectItem(items[1], 19, i == 1 ? b : c);
        expectU32Item(items[2], 18, 1);
        EXPECT_EQ(requests[i].cmdCode, 22u);
        EXPECT_EQ(requests[i].optKind, 0u);
        EXPECT_EQ(requests[i].itemCount, 3u);
    }
    EXPECT_EQ(requests[0].itemCount, 1u);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
    EXPECT_EQ(ndplat::trace_of("CMF_ClientContextInit").size(), 1u);
}

TEST_F(VxlanExchangeTest, LastResponseWithoutEndOfTableReturns13)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(13, {recordItem(a)}));
    NdCliParam block = showBlock(25, 9);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 13u);
    EXPECT_EQ(block.decodedCount, 1u);
}

TEST_F(VxlanExchangeTest, EndOfTableStopsBeforeLaterItems)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(0, {recordItem(a), endOfTable(), recordItem(a)}));
    NdCliParam block = showBlock(22, 9);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    EXPECT_EQ(rendered.records.size(), 1u);
    EXPECT_EQ(ndplat::cmf_requests().size(), 1u);
}

TEST_F(VxlanExchangeTest, WithoutRendererFollowUpCarriesZeroedLastRecord)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(0, {recordItem(a)}));
    ndplat::cmf_script(response(13, {endOfTable()}));
    NdCliParam block = showBlock(29, 9);
    EXPECT_EQ(ndCliVxlanSetProc(&block, nullptr), 0u);
    EXPECT_EQ(block.decodedCount, 0u);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    ASSERT_EQ(requests[1].items.size(), 3u);
    expectItem(requests[1].items[1], 19, std::vector<uint8_t>(124, 0));
    expectU32Item(requests[1].items[2], 18, 1);
}

TEST_F(VxlanExchangeTest, RecordLongerThanTheBufferIsCutTo200Bytes)
{
    std::vector<uint8_t> big(300);
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<uint8_t>(i * 7 + 1);
    ndplat::cmf_script(response(0, {recordItem(big)}));
    ndplat::cmf_script(response(13, {endOfTable()}));
    NdCliParam block = showBlock(25, 1);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    ASSERT_EQ(rendered.records.size(), 1u);
    EXPECT_EQ(rendered.records[0], big); // the renderer still sees the whole record
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    expectItem(requests[1].items[1], 19, std::vector<uint8_t>(big.begin(), big.begin() + 200));
}

TEST_F(VxlanExchangeTest, EmptyLaterResponseReportsNoMoreAndCarriesEmptyRecord)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(0, {recordItem(a)}));
    ndplat::cmf_script(response(0, {}));
    ndplat::cmf_script(response(13, {}));
    NdCliParam block = showBlock(25, 1);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 13u);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 3u);
    expectItem(requests[1].items[1], 19, a);
    // The second response decoded nothing: the item keeps the buffer but announces 0 bytes.
    EXPECT_EQ(requests[2].items[1].type, 19u);
    EXPECT_EQ(requests[2].items[1].length, 0u);
}

TEST_F(VxlanExchangeTest, Status6OnUndoOfConfigurationIs24)
{
    ndplat::cmf_script(response(13, {}, 6));
    NdCliParam block = {};
    uint32_t id = 3;
    nd_CliParamInit(&block, "no", 22);
    nd_CliParamSet(&block, &id, 4, 15, 0);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(&block, nullptr), 24u);
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 6\n");
}

TEST_F(VxlanExchangeTest, Status6OnSetOrNonConfigurationIsZero)
{
    for (uint32_t code : {22u, 23u, 24u}) {
        for (const char *first : {"ipv6", "no"}) {
            if (code == 22 && strcmp(first, "no") == 0)
                continue;
            ndplat::cmf_script(response(13, {}, 6));
            NdCliParam block = {};
            uint32_t id = 3;
            nd_CliParamInit(&block, first, code);
            nd_CliParamSet(&block, &id, 4, 15, 0);
            ndtest::Stdout out;
            EXPECT_EQ(ndCliVxlanSetProc(&block, nullptr), 0u) << code << first;
            EXPECT_EQ(out.take(), "cmf param decode error, ret: 6\n");
        }
    }
}

TEST_F(VxlanExchangeTest, Status6BeforeTheLastResponseGoesOnWithAFollowUp)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(0, {recordItem(a)}, 6));
    ndplat::cmf_script(response(13, {endOfTable()}));
    NdCliParam block = showBlock(25, 1);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 6\n");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 2u);
    ASSERT_EQ(requests[1].items.size(), 3u);
    expectItem(requests[1].items[1], 19, a);
    expectU32Item(requests[1].items[2], 18, 1);
}

TEST_F(VxlanExchangeTest, DecodeFailureOnLastResponseIsReturnedAsIs)
{
    ndplat::cmf_script(response(13, {}));
    ndplat::fault_inject("CMF_ClientParamDecode", 9);
    NdCliParam block = showBlock(25, 1);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 9u);
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 9\n");
}

TEST_F(VxlanExchangeTest, TransportStatusesAreReturnedUnmapped)
{
    struct Case {
        const char *fn;
        int64_t value;
        uint32_t expected;
    } cases[] = {
        {"CMF_ClientRequestSend", 5, 5},   // the generic exchange would say 25
        {"CMF_ClientRequestSend", 1, 1},
        {"CMF_ClientResponseRecv", 15, 15}, // the generic exchange would say 21
        {"CMF_ClientResponseRecv", 46, 46},
        {"CMF_ClientParamEncode", 3, 20},
        {"CMF_ClientContextInit", 0, 18},
        {"CMF_ClientContextObjSet", 4, 18},
    };
    for (const Case &c : cases) {
        ndplat::reset();
        ndplat::fault_inject(c.fn, c.value);
        NdCliParam block = showBlock(25, 1);
        ndtest::Stdout out;
        EXPECT_EQ(ndCliVxlanSetProc(&block, collect), c.expected) << c.fn << " " << c.value;
        EXPECT_EQ(out.take(), "") << c.fn;
        EXPECT_EQ(ndplat::cmf_open_contexts(), 0) << c.fn;
    }
}

TEST_F(VxlanExchangeTest, TimeoutFailureIsPrintedAndGives18)
{
    ndplat::fault_inject("CMF_ClientContextTimeoutSet", 7);
    NdCliParam block = showBlock(25, 1);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 18u);
    EXPECT_EQ(out.take(), "CMF ClientContextTimeoutSet error 7!");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

TEST_F(VxlanExchangeTest, NullBlockGives18WithoutContext)
{
    ndtest::Stdout out;
    EXPECT_EQ(ndCliVxlanSetProc(nullptr, collect), 18u);
    EXPECT_EQ(out.take(), "");
    EXPECT_TRUE(ndplat::trace_of("CMF_ClientContextInit").empty());
}

TEST_F(VxlanExchangeTest, ServiceErrorCodeOnReceiveIsReturned)
{
    ndplat::cmf_script(response(47, {}));
    NdCliParam block = showBlock(22, 1);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 47u);
}

TEST_F(VxlanExchangeTest, TenThousandRecordsOverManyResponses)
{
    constexpr uint32_t kTotal = 10000;
    constexpr uint32_t kPerPage = 97;
    uint32_t sent = 0;
    std::vector<uint32_t> continuationSeen;
    std::vector<uint32_t> resumeFrom;
    ndplat::cmf_responder_set([&](const ndplat::CmfRequest &request) {
        // The service resumes after the record that the follow-up carries.
        uint32_t start = 0;
        for (const auto &item : request.items) {
            if (item.type == 18)
                continuationSeen.push_back(item.as_u32());
            if (item.type == 19 && item.bytes.size() == 124) {
                int32_t tunnelId;
                memcpy(&tunnelId, item.bytes.data() + 100, 4);
                start = static_cast<uint32_t>(tunnelId) + 1;
            }
        }
        resumeFrom.push_back(start);
        ndplat::CmfResponse r;
        uint32_t end = start + kPerPage < kTotal ? start + kPerPage : kTotal;
        for (uint32_t i = start; i < end; ++i) {
            char host[48];
            snprintf(host, sizeof host, "2001:db8::%x", i);
            r.items.push_back(recordItem(record(host, "10.0.0.1", 7, static_cast<int32_t>(i), 0, kMacA)));
            ++sent;
        }
        if (end == kTotal) {
            r.items.push_back(endOfTable());
            r.status = 13;
        } else {
            r.status = 0;
        }
        return r;
    });
    NdCliParam block = showBlock(22, 7);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    EXPECT_EQ(sent, kTotal);
    ASSERT_EQ(rendered.records.size(), kTotal);
    for (uint32_t i = 0; i < kTotal; ++i) {
        int32_t tunnelId;
        memcpy(&tunnelId, rendered.records[i].data() + 100, 4);
        ASSERT_EQ(tunnelId, static_cast<int32_t>(i));
    }
    size_t pages = (kTotal + kPerPage - 1) / kPerPage;
    EXPECT_EQ(ndplat::cmf_requests().size(), pages);
    EXPECT_EQ(continuationSeen, std::vector<uint32_t>(pages - 1, 1));
    EXPECT_EQ(block.decodedCount, kTotal - (pages - 1) * kPerPage);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

TEST_F(VxlanExchangeTest, DecoderDirectly)
{
    auto a = record("2001:db8::a", "10.0.0.1", 9, 1, 0, kMacA);
    ndplat::cmf_script(response(0, {}));
    ndplat::cmf_script(response(0, {recordItem(a)}));
    CMF_CONTEXT ctx = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(ctx, nullptr);
    uint8_t last[200] = {};
    NdCliParam block = showBlock(25, 1);

    // An empty answer: quiet end on a first request, "no more" with the record item on a follow-up.
    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    ASSERT_EQ(CMF_ClientResponseRecv(ctx), 0u);
    EXPECT_EQ(ndCliVxlanCmfDecodeProc(ctx, &block, last, 0, collect), 0u);
    EXPECT_EQ(block.itemCount, 1u);

    ASSERT_EQ(CMF_ClientRequestSend(ctx), 0u);
    ASSERT_EQ(CMF_ClientResponseRecv(ctx), 0u);
    EXPECT_EQ(ndCliVxlanCmfDecodeProc(ctx, &block, last, 1, collect), 13u);
    ASSERT_EQ(block.itemCount, 2u);
    EXPECT_EQ(block.items[1].type, 19u);
    EXPECT_EQ(block.items[1].length, 124u);
    EXPECT_EQ(block.items[1].value, static_cast<const void *>(last));
    EXPECT_EQ(std::vector<uint8_t>(last, last + 124), a);
    EXPECT_EQ(block.decodedCount, 1u);
    CMF_ClientContextClose(ctx);
}

// ---- a service that never ends the table ---------------------------------------------------

TEST_F(VxlanExchangeTest, AServiceThatNeverEndsTheTableIsFollowedAtMostTheResponseCeiling)
{
    ndplat::trace_record_set(false); // tens of thousands of rounds
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMacA);
    size_t answered = 0;
    ndplat::cmf_responder_set([&](const ndplat::CmfRequest &) {
        ++answered;
        return response(0, {recordItem(a)});
    });
    NdCliParam block = showBlock(22, 5);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 18u);
    EXPECT_EQ(answered, kNdCliVxlanMaxResponses);
    EXPECT_EQ(ndplat::cmf_requests().size(), 32768u);
    EXPECT_EQ(rendered.records.size(), 32768u);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

TEST_F(VxlanExchangeTest, ATableThatEndsInTheLastAllowedResponseIsShownWhole)
{
    ndplat::trace_record_set(false);
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMacA);
    size_t answered = 0;
    ndplat::cmf_responder_set([&](const ndplat::CmfRequest &) {
        ++answered;
        if (answered == kNdCliVxlanMaxResponses)
            return response(13, {recordItem(a), endOfTable()});
        return response(0, {recordItem(a)});
    });
    NdCliParam block = showBlock(22, 5);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 0u);
    EXPECT_EQ(answered, 32768u);
    EXPECT_EQ(rendered.records.size(), 32768u);
}

TEST_F(VxlanExchangeTest, AResponseWhoseEndStatusIsZeroEndsWhenItsItemsAreUsedUp)
{
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMacA);
    ndplat::cmf_script(response(13, {recordItem(a)}, 0));
    NdCliParam block = showBlock(22, 5);
    EXPECT_EQ(ndCliVxlanSetProc(&block, collect), 13u);
    EXPECT_EQ(rendered.records.size(), 1u);
    EXPECT_EQ(ndplat::trace_of("CMF_ClientParamDecode").size(), 2u);
    EXPECT_EQ(ndplat::cmf_requests().size(), 1u);
}

} // namespace
