// The handlers' request: the shared encode loop, the one-zero-word request and the printed
// result of the handlers that answer with what printf returned.
#include <gtest/gtest.h>

#include "nd_request.h"
#include "test_support.h"

namespace {

using ndtest::PlatformTest;
using ndtest::Stdout;

class RequestTest : public PlatformTest {};

TEST_F(RequestTest, EncodeItemsEncodesInOrderAndStopsAtTheFirstFailure)
{
    NdCliParam block = {};
    ASSERT_EQ(nd_CliParamInit(&block, "nd", 7), 0u);
    const uint32_t a = 1, b = 2, c = 3;
    nd_CliParamSet(&block, &a, sizeof a, 7, 1);
    nd_CliParamSet(&block, &b, sizeof b, 8, 1);
    nd_CliParamSet(&block, &c, sizeof c, 9, 0);

    CMF_CONTEXT context = CMF_ClientContextInit("ipv6", 234, 1);
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(ndcli::encodeItems(context, block), 0u);
    EXPECT_EQ(ndplat::trace_of("CMF_ClientParamEncode").size(), 3u);

    ndplat::trace_clear();
    ndplat::fault_inject("CMF_ClientParamEncode", 9, 1, 1);
    EXPECT_EQ(ndcli::encodeItems(context, block), 9u);
    EXPECT_EQ(ndplat::trace_of("CMF_ClientParamEncode").size(), 2u);
    CMF_ClientContextClose(context);
}

TEST_F(RequestTest, ZeroWordRequestCarriesOneCountedZero)
{
    char show[] = "show";
    char *argv[] = {show, nullptr};
    Stdout out;
    EXPECT_EQ(ndcli::sendZeroWord(1, argv, 17, 9), 0);
    EXPECT_EQ(out.take(), "");
    std::vector<ndplat::CmfRequest> requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 17u);
    EXPECT_EQ(requests[0].optKind, ND_CLI_OPT_SHOW);
    EXPECT_EQ(requests[0].argIndex, 1u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    EXPECT_EQ(requests[0].items[0].type, 9u);
    EXPECT_EQ(requests[0].items[0].bytes, ndtest::u32_bytes(0));
}

TEST_F(RequestTest, FailedExchangePrintsItsTextAndReturnsTheStatus)
{
    ndplat::fault_inject("CMF_ClientRequestSend", 1);
    Stdout out;
    EXPECT_EQ(ndcli::sendZeroWord(0, nullptr, 17, 9), 18);
    EXPECT_EQ(out.take(), "\nOperation failed.");
}

TEST_F(RequestTest, PrintedResultIsTheLengthOfTheText)
{
    Stdout out;
    const int32_t result = ndcli::printedResult("\nTotal vxlan host: %d", 42);
    EXPECT_EQ(out.take(), "\nTotal vxlan host: 42");
    EXPECT_EQ(result, 21);
}

} // namespace
