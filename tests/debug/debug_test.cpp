// The debug switches: the debug nd commands, the debug framework's hook with its outside
// controls, and the renderer of the switch states.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nd_cmd.h"
#include "nd_modules.h"
#include "test_support.h"

namespace {

using ndplat::CmfRequest;
using ndplat::CmfResponse;
using ndtest::PlatformTest;
using ndtest::Stdout;
using ndtest::run_handler;
using Lines = std::vector<std::string>;

constexpr const char *kAllOnLines =
    "\nnd debug config is on"
    "\nnd debug event is on"
    "\nnd debug forward is on"
    "\nnd debug packet is on"
    "\nnd debug error is on"
    "\nnd debug serve is on"
    "\n";

CmfResponse maskResponse(uint32_t mask)
{
    CmfResponse r;
    r.status = 13;
    r.items.push_back(ndplat::CmfItem::u32(14, mask));
    return r;
}

CmfResponse failure(uint32_t status)
{
    CmfResponse r;
    r.status = status;
    return r;
}

class DebugTest : public PlatformTest {
protected:
    static CmfRequest onlyRequest()
    {
        std::vector<CmfRequest> requests = ndplat::cmf_requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? CmfRequest{} : requests[0];
    }

    // A debug request: code 14 and the mask as one counted 4-byte item.
    static void expectDebugRequest(const CmfRequest &r, uint32_t kind, uint32_t mask, uint32_t argIndex)
    {
        EXPECT_EQ(r.service, "ipv6");
        EXPECT_EQ(r.cmdCode, 14u);
        EXPECT_EQ(r.optKind, kind);
        EXPECT_EQ(r.serviceType, 234u);
        EXPECT_EQ(r.serviceInstance, 1u);
        EXPECT_EQ(r.itemCount, 1u);
        EXPECT_EQ(r.argIndex, argIndex);
        ASSERT_EQ(r.items.size(), 1u);
        EXPECT_EQ(r.items[0].type, 11u);
        EXPECT_EQ(r.items[0].length, 4u);
        EXPECT_EQ(r.items[0].bytes, ndtest::u32_bytes(mask));
    }

    // The trace lines of the outside debug controls, in call order.
    static Lines outsideControls()
    {
        Lines out;
        for (const std::string &line : ndplat::trace())
            if (line.rfind("nd_MposPublishCliDebugCtrl(", 0) == 0 || line.rfind("nd_MlagDbgCtrl(", 0) == 0)
                out.push_back(line);
        return out;
    }

    static size_t traceIndex(const char *name)
    {
        Lines lines = ndplat::trace();
        std::string prefix = std::string(name) + "(";
        for (size_t i = 0; i < lines.size(); ++i)
            if (lines[i].rfind(prefix, 0) == 0)
                return i;
        return lines.size();
    }
};

// ---- debug nd <keyword> ----------------------------------------------------------------------------

struct KeywordCase {
    const char *keyword;
    uint32_t mask;
};

class DebugKeywordTest : public DebugTest, public ::testing::WithParamInterface<KeywordCase> {};

TEST_P(DebugKeywordTest, DebugSetsTheKeywordsBit)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"debug", "nd", GetParam().keyword}), 0);
    EXPECT_EQ(out.take(), "");
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_SET, GetParam().mask, 1);
}

TEST_P(DebugKeywordTest, NoDebugReadsTheKeywordAtIndexThree)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"no", "debug", "nd", GetParam().keyword}), 0);
    EXPECT_EQ(out.take(), "");
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, GetParam().mask, 2);
}

INSTANTIATE_TEST_SUITE_P(Keywords, DebugKeywordTest,
                         ::testing::Values(KeywordCase{"config", 1}, KeywordCase{"event", 2},
                                           KeywordCase{"forward", 4}, KeywordCase{"packet", 8},
                                           KeywordCase{"error", 16}, KeywordCase{"serve", 32},
                                           KeywordCase{"all", 63}),
                         [](const ::testing::TestParamInfo<KeywordCase> &info) {
                             return std::string(info.param.keyword);
                         });

TEST_F(DebugTest, EventAndErrorAreToldApartByTheSecondLetter)
{
    Stdout out;
    run_handler(ndDebugSnooping, {"debug", "nd", "event"});
    run_handler(ndDebugSnooping, {"debug", "nd", "error"});
    // Only the first two letters count: "ev..." is event, any other "e..." is error.
    run_handler(ndDebugSnooping, {"debug", "nd", "ev"});
    run_handler(ndDebugSnooping, {"debug", "nd", "e"});
    std::vector<CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 4u);
    expectDebugRequest(requests[0], ND_CLI_OPT_SET, 2, 1);
    expectDebugRequest(requests[1], ND_CLI_OPT_SET, 16, 1);
    expectDebugRequest(requests[2], ND_CLI_OPT_SET, 2, 1);
    expectDebugRequest(requests[3], ND_CLI_OPT_SET, 16, 1);
}

TEST_F(DebugTest, NoDebugNdAllSendsSixtyThreeWithUndo)
{
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"no", "debug", "nd", "all"}), 0);
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, 63, 2);
}

TEST_F(DebugTest, NoDebugDoesNotReadTheKeywordAtIndexTwo)
{
    // With "no" first, index 2 holds "nd"; reading it would give 0 instead of the packet bit.
    Stdout out;
    run_handler(ndDebugSnooping, {"no", "debug", "nd", "packet"});
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, 8, 2);
}

TEST_F(DebugTest, UnknownKeywordSendsMaskZero)
{
    Stdout out;
    run_handler(ndDebugSnooping, {"debug", "nd", "xyz"});
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_SET, 0, 1);
}

TEST_F(DebugTest, MissingKeywordSendsMaskZero)
{
    Stdout out;
    run_handler(ndDebugSnooping, {"no", "debug", "nd"});
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, 0, 2);
}

TEST_F(DebugTest, UpperCaseNoIsStillTheNegation)
{
    Stdout out;
    run_handler(ndDebugSnooping, {"NO", "debug", "nd", "forward"});
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, 4, 2);
}

TEST_F(DebugTest, DebugRequestsNeverStartTheService)
{
    ndplat::dcm_state_set(0);
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"debug", "nd", "all"}), 0);
    EXPECT_EQ(ndCliSetDebugAllOn(), 0u);
    EXPECT_EQ(ndCliSetDebugAllOff(), 0u);
    EXPECT_EQ(ndCliShowDebuggingInfo(), 0u);
    EXPECT_EQ(ndplat::trace_of("DCM_Query").size(), 4u);
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
    EXPECT_EQ(ndplat::cmf_requests().size(), 4u);
}

TEST_F(DebugTest, ServiceErrorIsPrinted)
{
    ndplat::cmf_script(failure(29));
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"debug", "nd", "config"}), 29);
    EXPECT_EQ(out.take(), "\nOperate DBM data failed.");
}

TEST_F(DebugTest, FrameworkErrorIsPrinted)
{
    ndplat::fault_inject("CMF_ClientContextTimeoutSet", 3);
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"debug", "nd", "config"}), 18);
    EXPECT_EQ(out.take(), "CMF ClientContextTimeoutSet error 3!\nOperation failed.");
}

// ---- all on / all off / show ---------------------------------------------------------------------------

TEST_F(DebugTest, AllOnAllOffAndShowRequests)
{
    Stdout out;
    EXPECT_EQ(ndCliSetDebugAllOn(), 0u);
    EXPECT_EQ(ndCliSetDebugAllOff(), 0u);
    EXPECT_EQ(ndCliShowDebuggingInfo(), 0u);
    EXPECT_EQ(out.take(), "");
    std::vector<CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 3u);
    expectDebugRequest(requests[0], ND_CLI_OPT_SET, 63, 1);
    expectDebugRequest(requests[1], ND_CLI_OPT_UNDO, 63, 2);
    expectDebugRequest(requests[2], ND_CLI_OPT_SHOW, 0, 1);
}

TEST_F(DebugTest, ShowDebuggingInfoRendersResponseCodeFourteen)
{
    ndplat::cmf_script(maskResponse(63));
    Stdout out;
    EXPECT_EQ(ndCliShowDebuggingInfo(), 0u);
    EXPECT_EQ(out.take(), kAllOnLines);
}

TEST_F(DebugTest, AllOffPrintsItsError)
{
    ndplat::cmf_script(failure(31));
    Stdout out;
    EXPECT_EQ(ndCliSetDebugAllOff(), 31u);
    EXPECT_EQ(out.take(), "\nDdl server send data to clinet failed, maybe LPU is not ready, try it later.");
}

// ---- the debug framework's hook -------------------------------------------------------------------------

TEST_F(DebugTest, HookCodeOneLeavesTheMlagControlUncalled)
{
    Stdout out;
    ndCliDebugCtrlProc(1);
    EXPECT_EQ(out.take(), "");
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_SET, 63, 1);
    EXPECT_EQ(outsideControls(), (Lines{"nd_MposPublishCliDebugCtrl(1)"}));
    EXPECT_LT(traceIndex("CMF_ClientRequestSend"), traceIndex("nd_MposPublishCliDebugCtrl"));
    EXPECT_TRUE(ndplat::nd_modules_state().publisherDebug);
}

TEST_F(DebugTest, HookCodeTwoSwitchesAllOffEverywhere)
{
    Stdout out;
    ndCliDebugCtrlProc(2);
    EXPECT_EQ(out.take(), "");
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_UNDO, 63, 2);
    EXPECT_EQ(outsideControls(), (Lines{"nd_MposPublishCliDebugCtrl(2)", "nd_MlagDbgCtrl(2)"}));
    EXPECT_LT(traceIndex("CMF_ClientRequestSend"), traceIndex("nd_MposPublishCliDebugCtrl"));
}

TEST_F(DebugTest, HookCodeThreeShowsTheStateEverywhere)
{
    ndplat::cmf_script(maskResponse(16 | 32));
    Stdout out;
    ndCliDebugCtrlProc(3);
    std::string text = out.take();
    expectDebugRequest(onlyRequest(), ND_CLI_OPT_SHOW, 0, 1);
    EXPECT_EQ(outsideControls(), (Lines{"nd_MposPublishCliDebugCtrl(3)", "nd_MlagDbgCtrl(3)"}));
    // The plug-in's own lines come first, then what the outside controls report.
    const std::string own = "\nnd debug error is on\nnd debug serve is on\n";
    ASSERT_GE(text.size(), own.size());
    EXPECT_EQ(text.substr(0, own.size()), own);
    EXPECT_NE(text.find("nd-ps publisher debug is off", own.size()), std::string::npos);
    EXPECT_NE(text.find("nd mlag debug is off", own.size()), std::string::npos);
}

TEST_F(DebugTest, HookGoesOnToTheOutsideControlsAfterAFailedRequest)
{
    ndplat::fault_inject("CMF_ClientContextInit", 0);
    Stdout out;
    ndCliDebugCtrlProc(2);
    EXPECT_EQ(out.take(), "CMF ClientContextInit error 0!\nOperation failed.");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_EQ(outsideControls(), (Lines{"nd_MposPublishCliDebugCtrl(2)", "nd_MlagDbgCtrl(2)"}));
}

TEST_F(DebugTest, HookIgnoresOtherCodes)
{
    Stdout out;
    for (uint32_t code : {0u, 4u, 5u, 255u, 0xFFFFFFFFu})
        ndCliDebugCtrlProc(code);
    EXPECT_EQ(out.take(), "");
    EXPECT_TRUE(ndplat::trace().empty());
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

// ---- the renderer of response code 14 ---------------------------------------------------------------------

std::string render(const void *mask)
{
    Stdout out;
    ndCliShowDebugInfo(mask);
    return out.take();
}

std::string renderMask(uint32_t mask)
{
    return render(&mask);
}

TEST_F(DebugTest, RendererNullPrintsNothing)
{
    EXPECT_EQ(render(nullptr), "");
}

TEST_F(DebugTest, RendererMaskZeroPrintsOneLineBreak)
{
    EXPECT_EQ(renderMask(0), "\n");
}

TEST_F(DebugTest, RendererAllSixInTableOrderErrorBeforeServe)
{
    EXPECT_EQ(renderMask(63), kAllOnLines);
}

TEST_F(DebugTest, RendererSingleBits)
{
    EXPECT_EQ(renderMask(1), "\nnd debug config is on\n");
    EXPECT_EQ(renderMask(2), "\nnd debug event is on\n");
    EXPECT_EQ(renderMask(4), "\nnd debug forward is on\n");
    EXPECT_EQ(renderMask(8), "\nnd debug packet is on\n");
    EXPECT_EQ(renderMask(16), "\nnd debug error is on\n");
    EXPECT_EQ(renderMask(32), "\nnd debug serve is on\n");
}

TEST_F(DebugTest, RendererIgnoresUnknownBits)
{
    EXPECT_EQ(renderMask(0xFFFFFFC0u), "\n");
    EXPECT_EQ(renderMask(0xFFFFFFC0u | 2u | 8u), "\nnd debug event is on\nnd debug packet is on\n");
}

TEST_F(DebugTest, RendererReadsAnUnalignedMask)
{
    alignas(4) uint8_t bytes[8] = {};
    uint32_t mask = 32;
    memcpy(bytes + 1, &mask, sizeof mask);
    EXPECT_EQ(render(bytes + 1), "\nnd debug serve is on\n");
}

TEST_F(DebugTest, DispatchOfCodeFourteenGoesToTheRenderer)
{
    ndplat::cmf_script(maskResponse(1 | 4));
    Stdout out;
    EXPECT_EQ(run_handler(ndDebugSnooping, {"debug", "nd", "config"}), 0);
    EXPECT_EQ(out.take(), "\nnd debug config is on\nnd debug forward is on\n");
}

} // namespace
