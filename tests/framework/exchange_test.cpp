// The request exchange: service start, client context, encoding, result mapping, dispatch.
#include <gtest/gtest.h>

#include <cstring>

#include "nd_cli_internal.h"
#include "test_support.h"

namespace {

using ndplat::CmfItem;
using ndplat::CmfResponse;
using ndtest::PlatformTest;
using ndtest::Stdout;

class ExchangeTest : public PlatformTest {
protected:
    NdCliParam block_;
    uint16_t retransmit_ = 3;
    uint16_t interval_ = 10;

    void init(const char *keyword, uint32_t code)
    {
        memset(&block_, 0, sizeof block_);
        ASSERT_EQ(nd_CliParamInit(&block_, keyword, code), 0u);
    }

    void initDetect()
    {
        init("nd", 7);
        nd_CliParamSet(&block_, &retransmit_, 2, 7, 1);
        nd_CliParamSet(&block_, &interval_, 2, 8, 1);
    }

    static size_t count(const char *name) { return ndplat::trace_of(name).size(); }
};

TEST_F(ExchangeTest, NullBlock)
{
    Stdout out;
    EXPECT_EQ(ndCliParamProc(nullptr), 18u);
    EXPECT_EQ(out.take(), "cmf ndCliParamProc failed, param null");
    EXPECT_TRUE(ndplat::trace().empty());
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(ExchangeTest, ConfigurationRequestIsSentAsBuilt)
{
    initDetect();
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(out.take(), "");

    std::vector<ndplat::CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    const ndplat::CmfRequest &r = requests[0];
    EXPECT_EQ(r.service, "ipv6");
    EXPECT_EQ(r.contextType, 234u);
    EXPECT_EQ(r.contextInstance, 1u);
    EXPECT_EQ(r.timeout, 20u);
    EXPECT_TRUE(r.hasObject);
    EXPECT_EQ(r.cmdCode, 7u);
    EXPECT_EQ(r.optKind, 3u);
    EXPECT_EQ(r.reserved, 0u);
    EXPECT_EQ(r.serviceType, 234u);
    EXPECT_EQ(r.serviceInstance, 1u);
    EXPECT_EQ(r.itemCount, 2u);
    EXPECT_EQ(r.argIndex, 2u);
    ASSERT_EQ(r.items.size(), 2u);
    EXPECT_EQ(r.items[0].type, 7u);
    EXPECT_EQ(r.items[0].length, 2u);
    EXPECT_EQ(r.items[0].bytes, ndtest::u16_bytes(3));
    EXPECT_EQ(r.items[1].type, 8u);
    EXPECT_EQ(r.items[1].length, 2u);
    EXPECT_EQ(r.items[1].bytes, ndtest::u16_bytes(10));

    EXPECT_EQ(ndplat::trace_of("CMF_ClientContextTimeoutSet"),
              (std::vector<std::string>{"CMF_ClientContextTimeoutSet(ptr, 20)"}));
    EXPECT_EQ(count("CMF_ClientContextClose"), 1u);
    EXPECT_EQ(count("CMF_ClientParamDecode"), 1u);
}

TEST_F(ExchangeTest, CallsComeInOrder)
{
    initDetect();
    ndCliParamProc(&block_);
    std::vector<std::string> expected = {
        "DCM_Query(\"ipv6\")",
        "CMF_ClientContextInit(\"ipv6\", 234, 1)",
        "CMF_ClientContextTimeoutSet(ptr, 20)",
        "CMF_ClientContextObjSet(ptr, ptr)",
        "CMF_ClientParamEncode(ptr, 7, 2, ptr)",
        "CMF_ClientParamEncode(ptr, 8, 2, ptr)",
        "CMF_ClientRequestSend(ptr)",
        "CMF_ClientResponseRecv(ptr)",
        "CMF_ClientParamDecode(ptr)",
        "CMF_ClientContextClose(ptr)",
    };
    std::vector<std::string> trace = ndplat::trace();
    std::vector<std::string> cmfAndDcm;
    for (const std::string &line : trace)
        if (line.rfind("CMF_", 0) == 0 || line.rfind("DCM_", 0) == 0)
            cmfAndDcm.push_back(line);
    EXPECT_EQ(cmfAndDcm, expected);
}

TEST_F(ExchangeTest, ShowAgainstAStoppedServiceDoesNotStartIt)
{
    ndplat::dcm_state_set(0);
    init("show", 9);
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(count("DCM_Start"), 0u);

    // The framework's receive result decides the outcome.
    ndplat::fault_inject("CMF_ClientResponseRecv", 3);
    EXPECT_EQ(ndCliParamProc(&block_), 21u);
    EXPECT_EQ(count("DCM_Start"), 0u);
}

TEST_F(ExchangeTest, BulkAndUndoNeverStartTheService)
{
    ndplat::dcm_state_set(1);
    init("bulk", 11);
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    init("no", 3);
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(count("DCM_Start"), 0u);
}

TEST_F(ExchangeTest, DebugSetNeverStartsTheService)
{
    ndplat::dcm_state_set(4);
    init("debug", 14);
    uint32_t mask = 63;
    nd_CliParamSet(&block_, &mask, 4, 11, 1);
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(count("DCM_Start"), 0u);
    EXPECT_EQ(ndplat::cmf_requests().size(), 1u);
}

TEST_F(ExchangeTest, SetStartsAStoppedService)
{
    for (int32_t state : {0, 1, 4}) {
        ndplat::trace_clear();
        ndplat::dcm_state_set(state);
        initDetect();
        EXPECT_EQ(ndCliParamProc(&block_), 0u);
        EXPECT_EQ(ndplat::trace_of("DCM_Start"), (std::vector<std::string>{"DCM_Start(\"ipv6\", 1)"})) << state;
    }
}

TEST_F(ExchangeTest, RunningServiceIsNotStarted)
{
    for (int32_t state : {2, 3, 5}) {
        ndplat::trace_clear();
        ndplat::dcm_state_set(state);
        initDetect();
        EXPECT_EQ(ndCliParamProc(&block_), 0u);
        EXPECT_EQ(count("DCM_Start"), 0u) << state;
    }
}

TEST_F(ExchangeTest, FailedStartStopsBeforeAnyContext)
{
    for (int64_t startResult : {0, 1, 3}) {
        ndplat::trace_clear();
        ndplat::dcm_state_set(0);
        ndplat::fault_inject("DCM_Start", startResult);
        initDetect();
        Stdout out;
        EXPECT_EQ(ndCliParamProc(&block_), 18u);
        EXPECT_EQ(out.take(), "DCM start process error " + std::to_string(startResult) + "!");
        EXPECT_EQ(count("CMF_ClientContextInit"), 0u);
    }
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(ExchangeTest, ContextInitFailurePrintsTheStartResult)
{
    initDetect();
    ndplat::fault_inject("CMF_ClientContextInit", 0);
    {
        Stdout out;
        EXPECT_EQ(ndCliParamProc(&block_), 18u);
        EXPECT_EQ(out.take(), "CMF ClientContextInit error 0!");
    }
    ndplat::dcm_state_set(0);
    ndplat::fault_inject("CMF_ClientContextInit", 0);
    {
        Stdout out;
        EXPECT_EQ(ndCliParamProc(&block_), 18u);
        EXPECT_EQ(out.take(), "CMF ClientContextInit error 2!");
    }
    EXPECT_EQ(count("CMF_ClientContextClose"), 0u);
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(ExchangeTest, TimeoutSetFailure)
{
    initDetect();
    ndplat::fault_inject("CMF_ClientContextTimeoutSet", 7);
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 18u);
    EXPECT_EQ(out.take(), "CMF ClientContextTimeoutSet error 7!");
    EXPECT_EQ(count("CMF_ClientContextObjSet"), 0u);
    EXPECT_EQ(count("CMF_ClientContextClose"), 1u);
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(ExchangeTest, ObjSetFailure)
{
    initDetect();
    ndplat::fault_inject("CMF_ClientContextObjSet", 4);
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 18u);
    EXPECT_EQ(out.take(), "CMF ClientContextObjSet error 4!");
    EXPECT_EQ(count("CMF_ClientParamEncode"), 0u);
    EXPECT_EQ(count("CMF_ClientContextClose"), 1u);
}

TEST_F(ExchangeTest, EncodeFailureStopsAtTheFirstFailingItem)
{
    initDetect();
    uint32_t third = 1;
    nd_CliParamSet(&block_, &third, 4, 9, 0);
    // The first item encodes, the second fails: the third is never tried.
    ndplat::fault_inject("CMF_ClientParamEncode", 9, 1, 1);
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 18u);
    EXPECT_EQ(out.take(), "CMF ClientParamEncode error 9!");
    EXPECT_EQ(count("CMF_ClientParamEncode"), 2u);
    EXPECT_EQ(count("CMF_ClientRequestSend"), 0u);
    EXPECT_EQ(count("CMF_ClientContextClose"), 1u);
}

TEST_F(ExchangeTest, SendFailures)
{
    initDetect();
    ndplat::fault_inject("CMF_ClientRequestSend", 5);
    EXPECT_EQ(ndCliParamProc(&block_), 25u);
    for (int64_t r : {1, 4, 6, 13, 16, 46}) {
        ndplat::fault_inject("CMF_ClientRequestSend", r);
        EXPECT_EQ(ndCliParamProc(&block_), 18u) << r;
    }
    EXPECT_EQ(count("CMF_ClientResponseRecv"), 0u);
    EXPECT_EQ(count("CMF_ClientContextClose"), 7u);
}

TEST_F(ExchangeTest, ReceiveResultMapping)
{
    initDetect();
    struct Case {
        uint32_t status;
        uint32_t result;
    };
    for (Case c : {Case{1, 21}, Case{5, 21}, Case{12, 21}, Case{14, 21}, Case{15, 21}, Case{16, 16},
                   Case{17, 17}, Case{34, 34}, Case{46, 46}, Case{49, 49}, Case{50, 50}, Case{0x80000000u, 21}}) {
        ndplat::trace_clear();
        ndplat::cmf_script(CmfResponse{c.status, {}, 13});
        Stdout out;
        EXPECT_EQ(ndCliParamProc(&block_), c.result) << c.status;
        EXPECT_EQ(out.take(), "") << c.status;
        EXPECT_EQ(count("CMF_ClientParamDecode"), 0u) << c.status;
        EXPECT_EQ(count("CMF_ClientContextClose"), 1u);
    }
}

TEST_F(ExchangeTest, ReceiveZeroAndThirteenBothDecode)
{
    initDetect();
    for (uint32_t status : {0u, 13u}) {
        ndplat::trace_clear();
        ndplat::cmf_script(CmfResponse{status, {}, 13});
        EXPECT_EQ(ndCliParamProc(&block_), 0u);
        EXPECT_EQ(count("CMF_ClientParamDecode"), 1u);
    }
}

TEST_F(ExchangeTest, DecodeFailure)
{
    init("show", 9);
    ndplat::cmf_script(CmfResponse{13, {}, 7});
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 19u);
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 7\n");
}

TEST_F(ExchangeTest, DecodeFailureFromTheFramework)
{
    init("show", 9);
    ndplat::fault_inject("CMF_ClientParamDecode", 1);
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 19u);
    EXPECT_EQ(out.take(), "cmf param decode error, ret: 1\n");
}

TEST_F(ExchangeTest, UnknownResponseCodeIsNotSupported)
{
    init("show", 11);
    ndplat::cmf_script(CmfResponse{13, {CmfItem::u32(10, 1)}, 13});
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(out.take(), "\ncmf decode, code(10) not support.\n");
}

TEST_F(ExchangeTest, OnlyOneResponseItemIsDecoded)
{
    init("show", 11);
    ndplat::cmf_script(CmfResponse{13, {CmfItem::u32(10, 1), CmfItem::u32(11, 2)}, 13});
    Stdout out;
    EXPECT_EQ(ndCliParamProc(&block_), 0u);
    EXPECT_EQ(out.take(), "\ncmf decode, code(10) not support.\n");
    EXPECT_EQ(count("CMF_ClientParamDecode"), 1u);
}

TEST_F(ExchangeTest, SendAndReceiveOnAnOpenContext)
{
    CMF_CONTEXT context = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(context, nullptr);
    ndplat::cmf_script(CmfResponse{46, {}, 13});
    EXPECT_EQ(ndCmfSendAndRev(context), 46u);
    ndplat::cmf_script(CmfResponse{13, {}, 13});
    EXPECT_EQ(ndCmfSendAndRev(context), 0u);
    CMF_ClientContextClose(context);
}

} // namespace
