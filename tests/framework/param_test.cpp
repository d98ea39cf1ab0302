// The request parameter block and the argument helpers.
#include <gtest/gtest.h>

#include <cstring>

#include "nd_cli_internal.h"
#include "test_support.h"

namespace {

using ndtest::PlatformTest;
using ndtest::Stdout;

class ParamTest : public PlatformTest {};

TEST_F(ParamTest, UndoKeywordsInAnyLetterCase)
{
    for (const char *keyword : {"no", "No", "NO", "clear", "CLEAR", "Clear", "disable", "Disable", "DISABLE"})
        EXPECT_EQ(nd_CliArgGetOptFlag(keyword), uint32_t{ND_CLI_OPT_UNDO}) << keyword;
}

TEST_F(ParamTest, ShowAndBulkKeywords)
{
    EXPECT_EQ(nd_CliArgGetOptFlag("Show"), uint32_t{ND_CLI_OPT_SHOW});
    EXPECT_EQ(nd_CliArgGetOptFlag("show"), uint32_t{ND_CLI_OPT_SHOW});
    EXPECT_EQ(nd_CliArgGetOptFlag("SHOW"), uint32_t{ND_CLI_OPT_SHOW});
    EXPECT_EQ(nd_CliArgGetOptFlag("bulk"), uint32_t{ND_CLI_OPT_BULK});
    EXPECT_EQ(nd_CliArgGetOptFlag("Bulk"), uint32_t{ND_CLI_OPT_BULK});
}

TEST_F(ParamTest, EverythingElseIsSet)
{
    for (const char *keyword : {"nd", "debug", "", "ipv6", "noo", "n", "shows"})
        EXPECT_EQ(nd_CliArgGetOptFlag(keyword), uint32_t{ND_CLI_OPT_SET}) << '"' << keyword << '"';
    EXPECT_EQ(nd_CliArgGetOptFlag(nullptr), uint32_t{ND_CLI_OPT_SET});
}

TEST_F(ParamTest, NoKindOneIsEverProduced)
{
    for (const char *keyword : {"no", "show", "bulk", "nd", "", "1", "set"})
        EXPECT_NE(nd_CliArgGetOptFlag(keyword), 1u);
}

TEST_F(ParamTest, InitFillsTheHeader)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    EXPECT_EQ(nd_CliParamInit(&block, "nd", 7), 0u);
    EXPECT_EQ(block.cmdCode, 7u);
    EXPECT_EQ(block.optKind, uint32_t{ND_CLI_OPT_SET});
    EXPECT_EQ(block.reserved, 0u);
    EXPECT_EQ(block.serviceType, 234u);
    EXPECT_EQ(block.serviceInstance, 1u);
    EXPECT_EQ(block.itemCount, 0u);
    EXPECT_EQ(block.argIndex, 0u);
    EXPECT_STREQ(block.serviceName, "ipv6");
    EXPECT_EQ(block.decodedCount, 0u);
    EXPECT_EQ(ndplat::trace_of("gnl_strlcpy"), (std::vector<std::string>{"gnl_strlcpy(ptr, \"ipv6\", 32)"}));
}

TEST_F(ParamTest, InitWithUndoSkipsTheLeadingWord)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    EXPECT_EQ(nd_CliParamInit(&block, "no", 3), 0u);
    EXPECT_EQ(block.optKind, uint32_t{ND_CLI_OPT_UNDO});
    EXPECT_EQ(block.argIndex, 1u);
}

TEST_F(ParamTest, InitAdvancesTheIndexInsteadOfResettingIt)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    block.argIndex = 5;
    block.itemCount = 4;
    nd_CliParamInit(&block, "clear", 9);
    EXPECT_EQ(block.argIndex, 6u);
    EXPECT_EQ(block.itemCount, 0u);

    block.argIndex = 5;
    nd_CliParamInit(&block, "show", 9);
    EXPECT_EQ(block.argIndex, 5u);
}

TEST_F(ParamTest, InitOfANullBlock)
{
    Stdout out;
    EXPECT_EQ(nd_CliParamInit(nullptr, "nd", 3), 18u);
    EXPECT_EQ(out.take(), "cmf nd_CliParamInit failed, param null");
}

TEST_F(ParamTest, NoThenOneMarkedItem)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "no", 3);
    uint32_t value = 9;
    EXPECT_EQ(nd_CliParamSet(&block, &value, 4, 11, 1), 2u);
    EXPECT_EQ(block.argIndex, 2u);
    EXPECT_EQ(block.itemCount, 1u);
    EXPECT_EQ(block.items[0].type, 11u);
    EXPECT_EQ(block.items[0].length, 4u);
    EXPECT_EQ(block.items[0].value, &value);
}

TEST_F(ParamTest, UnmarkedItemsReturnTheItemCount)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "nd", 3);
    uint16_t a = 1, b = 2;
    EXPECT_EQ(nd_CliParamSet(&block, &a, 2, 7, 0), 1u);
    EXPECT_EQ(nd_CliParamSet(&block, &b, 2, 8, 0), 2u);
    EXPECT_EQ(block.argIndex, 0u);
    EXPECT_EQ(block.items[1].type, 8u);
    EXPECT_EQ(block.items[1].value, &b);
}

TEST_F(ParamTest, AnyNonZeroFlagCountsAsAWord)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "nd", 3);
    uint32_t v = 0;
    EXPECT_EQ(nd_CliParamSet(&block, &v, 4, 1, 7), 1u);
    EXPECT_EQ(block.argIndex, 1u);
}

TEST_F(ParamTest, NullValueIsRefusedAlsoWithLengthZero)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "nd", 3);
    for (uint32_t length : {0u, 4u}) {
        Stdout out;
        uint32_t r = nd_CliParamSet(&block, nullptr, length, 5, 1);
        EXPECT_EQ(out.take(), "cli param set, param null\n");
        EXPECT_EQ(r, uint32_t(strlen("cli param set, param null\n")));
        EXPECT_EQ(block.itemCount, 0u);
        EXPECT_EQ(block.argIndex, 0u);
    }
}

TEST_F(ParamTest, NullBlockIsRefused)
{
    uint32_t v = 1;
    Stdout out;
    nd_CliParamSet(nullptr, &v, 4, 5, 0);
    EXPECT_EQ(out.take(), "cli param set, param null\n");
}

TEST_F(ParamTest, ThirtyTwoItemsFitAndTheThirtyThirdIsRefusedWithoutOverrun)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "nd", 3);
    block.decodedCount = 0xA5A5A5A5u;
    uint32_t values[33];
    for (uint32_t i = 0; i < 32; ++i) {
        values[i] = i;
        EXPECT_EQ(nd_CliParamSet(&block, &values[i], 4, i, 0), i + 1);
    }
    EXPECT_EQ(block.itemCount, 32u);
    EXPECT_EQ(block.items[31].value, &values[31]);

    Stdout out;
    nd_CliParamSet(&block, &values[32], 4, 32, 1);
    EXPECT_EQ(out.take(), "cli param set, param full\n");
    EXPECT_EQ(block.itemCount, 32u);
    EXPECT_EQ(block.argIndex, 0u);
    EXPECT_EQ(block.decodedCount, 0xA5A5A5A5u) << "the word after the item array was overwritten";
}

TEST_F(ParamTest, ServiceStatesThatNeedAStart)
{
    EXPECT_EQ(IP6_IsNeedStart(0), 1u);
    EXPECT_EQ(IP6_IsNeedStart(1), 1u);
    EXPECT_EQ(IP6_IsNeedStart(4), 1u);
    for (int32_t state : {2, 3, 5, 6, -1, 0x7FFFFFFF})
        EXPECT_EQ(IP6_IsNeedStart(state), 0u) << state;
}

TEST_F(ParamTest, FnsModeIsChassisModeTwo)
{
    ndplat::chassis_mode_set(2);
    EXPECT_EQ(ndCliIsFnsMode(), 1u);
    ndplat::chassis_mode_set(1);
    EXPECT_EQ(ndCliIsFnsMode(), 0u);
    ndplat::chassis_mode_set(0);
    EXPECT_EQ(ndCliIsFnsMode(), 0u);
}

TEST_F(ParamTest, FnsModeNeedsASuccessfulQuery)
{
    ndplat::chassis_mode_set(2);
    ndplat::fault_inject("DMM_GetChsMode", 1);
    EXPECT_EQ(ndCliIsFnsMode(), 0u);
    EXPECT_EQ(ndCliIsFnsMode(), 1u);
}

} // namespace
