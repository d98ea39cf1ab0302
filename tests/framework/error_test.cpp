// Error texts and formatted output to a descriptor.
#include <gtest/gtest.h>

#include <string>

#include "nd_cli_internal.h"
#include "test_support.h"

namespace {

using ndtest::FdCapture;
using ndtest::PlatformTest;
using ndtest::Stdout;

class ErrorTest : public PlatformTest {
protected:
    static std::string printed(uint32_t code)
    {
        Stdout out;
        nd_CliPrintErrorToVty(code);
        return out.take();
    }
};

TEST_F(ErrorTest, TableHoldsEveryMessage)
{
    const char *const expected[50] = {
        "",
        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
        nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
        "System is busy, Other operation is processing.",
        "Operation failed.",
        "Cmf decode message failed.",
        "Cmf encode message failed.",
        "Cmf receive response message failed.",
        "Cmf response flage set failed.",
        "Get interface index failed.",
        "Process is not stoped.",
        "Memory short, Can't configure this command, please try later.",
        "Get vlan information failed.",
        nullptr,
        "Get portmap failed.",
        "Operate DBM data failed.",
        "Cmf context change to id failed.",
        "Ddl server send data to clinet failed, maybe LPU is not ready, try it later.",
        "Subscribe interface event failed.",
        "Ddl server multisend data to clinet failed.",
        "Nd snooping user-bind table data is exist.",
        "Nd snooping user-bind table data is not exist.",
        "This super vlan is enabled.",
        "This super vlan is not enabled.",
        "The vlan is enabled.",
        "The vlan is not enabled.",
        "The interface is enabled.",
        "The interface is not enabled.",
        "The port is already trust port.",
        "The port is not trust port.",
        "Set cpu packet error",
        "Nd snooping user-bind table has reached ceiling, please add after checking up.",
        "The switch of global snooping is not enable.",
        "% Vxlan 'nd suppression' not set",
        "% Conflict, 'nd proxy anyway enable' is set!",
        "% Conflict, 'nd suppression' is set!",
    };
    EXPECT_EQ(sizeof gNdErrorStr / sizeof gNdErrorStr[0], 50u);
    for (uint32_t code = 0; code < 50; ++code) {
        if (!expected[code]) {
            EXPECT_EQ(gNdErrorStr[code], nullptr) << code;
            continue;
        }
        ASSERT_NE(gNdErrorStr[code], nullptr) << code;
        EXPECT_STREQ(gNdErrorStr[code], expected[code]) << code;
    }
}

TEST_F(ErrorTest, CodesWithoutTextPrintNothing)
{
    for (uint32_t code : {1u, 2u, 15u, 16u, 24u, 27u, 50u, 51u, 1000u, 0xFFFFFFFFu})
        EXPECT_EQ(printed(code), "") << code;
}

TEST_F(ErrorTest, EveryMessagePrintsWithALeadingLineBreakOnly)
{
    for (uint32_t code = 17; code < 50; ++code) {
        if (code == 24 || code == 27)
            continue;
        EXPECT_EQ(printed(code), std::string("\n") + gNdErrorStr[code]) << code;
    }
}

TEST_F(ErrorTest, SystemBusy)
{
    EXPECT_EQ(printed(17), "\nSystem is busy, Other operation is processing.");
}

TEST_F(ErrorTest, SuppressionConflict)
{
    EXPECT_EQ(printed(49), "\n% Conflict, 'nd suppression' is set!");
}

TEST_F(ErrorTest, SuccessPrintsABareLineBreak)
{
    EXPECT_EQ(printed(0), "\n");
}

TEST_F(ErrorTest, FdprintfWritesTheFormattedLine)
{
    FdCapture fd;
    EXPECT_EQ(nd_CliFdprintf(fd.fd(), " nd snooping detect retransmit %d interval %d\n", 3, 10), 45);
    EXPECT_EQ(fd.text(), " nd snooping detect retransmit 3 interval 10\n");
}

TEST_F(ErrorTest, FdprintfCutsAt255Characters)
{
    FdCapture fd;
    std::string longText(300, 'x');
    longText[0] = 'a';
    longText[254] = 'b';
    longText[255] = 'c';
    EXPECT_EQ(nd_CliFdprintf(fd.fd(), "%s", longText.c_str()), 255);
    EXPECT_EQ(fd.text(), longText.substr(0, 255));
}

TEST_F(ErrorTest, FdprintfFormatsTheTextASecondTime)
{
    // "%%%%" survives the first formatting as "%%", which the second makes "%".
    FdCapture fd;
    EXPECT_EQ(nd_CliFdprintf(fd.fd(), "load 100%%%% %s", "ok"), 12);
    EXPECT_EQ(fd.text(), "load 100% ok");
}

TEST_F(ErrorTest, FdprintfWritesConversionsWithoutArgumentsLiterally)
{
    FdCapture fd;
    EXPECT_EQ(nd_CliFdprintf(fd.fd(), "%s", "a%d b%s c%n d%08.3lx e%"), 23);
    EXPECT_EQ(fd.text(), "a%d b%s c%n d%08.3lx e%");
}

TEST_F(ErrorTest, FdprintfOnABadDescriptor)
{
    ndtest::LeakCheckPause libcKeepsItsBuffer;
    EXPECT_LT(nd_CliFdprintf(-1, "text\n"), 0);
}

} // namespace
