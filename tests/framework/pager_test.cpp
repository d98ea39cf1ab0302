// The pager guard of a listing: which pager calls each way of ending a listing makes, in order.
#include <gtest/gtest.h>

#include "framework/nd_cli_pager.h"
#include "test_support.h"

namespace {

using ndtest::PlatformTest;

class PagerTest : public PlatformTest {
protected:
    // The pager calls since the test began, in order.
    static std::vector<std::string> pagerCalls()
    {
        std::vector<std::string> calls;
        for (const std::string &line : ndplat::trace())
            if (line.rfind("SHELL_More", 0) == 0)
                calls.push_back(line);
        return calls;
    }
};

const std::string kOrient = "SHELL_MoreOrientOutput()";
const std::string kBreak = "SHELL_MoreBreakOutput()";
const std::string kFormat = "SHELL_MoreFormatOutput()";

TEST_F(PagerTest, ScopeEndBreaksAndFormats)
{
    {
        ndcli::Pager pager;
        EXPECT_EQ(pagerCalls(), (std::vector<std::string>{kOrient}));
    }
    EXPECT_EQ(pagerCalls(), (std::vector<std::string>{kOrient, kBreak, kFormat}));
}

TEST_F(PagerTest, ClosesOnceWhicheverWay)
{
    {
        ndcli::Pager pager;
        pager.close(ndcli::Pager::End::FormatOnly);
        pager.close(ndcli::Pager::End::BreakAndFormat);
    }
    EXPECT_EQ(pagerCalls(), (std::vector<std::string>{kOrient, kFormat}));
}

TEST_F(PagerTest, LaterStartLeavesOrientingToTheListing)
{
    {
        ndcli::Pager pager(ndcli::Pager::Start::Later);
        EXPECT_TRUE(pagerCalls().empty());
        pager.orient();
        pager.orient();
        pager.close(ndcli::Pager::End::BreakAndFormat);
    }
    EXPECT_EQ(pagerCalls(), (std::vector<std::string>{kOrient, kOrient, kBreak, kFormat}));
}

TEST_F(PagerTest, NothingMakesNoCall)
{
    {
        ndcli::Pager pager(ndcli::Pager::Start::Later);
        EXPECT_EQ(pager.close(ndcli::Pager::End::Nothing), 0);
    }
    EXPECT_TRUE(pagerCalls().empty());
}

TEST_F(PagerTest, QuitAsksTheBreakQuestion)
{
    ndplat::pager_quit_after(2);
    ndcli::Pager pager;
    EXPECT_FALSE(pager.quit());
    EXPECT_TRUE(pager.quit());
    pager.close(ndcli::Pager::End::FormatOnly);
    EXPECT_EQ(pagerCalls(), (std::vector<std::string>{kOrient, kBreak, kBreak, kFormat}));
}

TEST_F(PagerTest, CloseReturnsWhatTheFormatReturned)
{
    ndplat::fault_inject("SHELL_MoreFormatOutput", 7);
    ndcli::Pager pager;
    EXPECT_EQ(pager.close(ndcli::Pager::End::FormatOnly), 7);
}

} // namespace
