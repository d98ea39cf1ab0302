// How the VXLAN, ISSU and diagnose handlers answer a request block that could not be
// initialised, through libnd-cli.so loaded as the shell loads it: the VXLAN and ISSU handlers
// return the length of the text they printed, the diagnose requests the status itself.
#include <dlfcn.h>

#include <cstring>

#include "test_support.h"

namespace {
// Armed by a test: the next request-block initialisation reports this result after doing its
// work, as a failing initialisation would.
uint32_t gInitFailure = 0;
} // namespace

// In front of the plug-in's own export, which its handlers reach through the dynamic linker.
extern "C" uint32_t nd_CliParamInit(NdCliParam *block, const char *keyword, uint32_t code)
{
    using Fn = uint32_t (*)(NdCliParam *, const char *, uint32_t);
    Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "nd_CliParamInit"));
    uint32_t result = real ? real(block, keyword, code) : 0xFFFFFFFFu;
    if (gInitFailure != 0) {
        result = gInitFailure;
        gInitFailure = 0;
    }
    return result;
}

namespace {

constexpr size_t kNdRows = 46;
constexpr const char *kInitError = "cli param init error 18!";

class VxlanInitFailure : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        ndtest::PlatformTest::SetUp();
        ASSERT_TRUE(plugin_.ok()) << plugin_.error();
        ASSERT_EQ(plugin_.start(), 0u);
        regs_ = ndplat::cmd_registrations();
        ASSERT_GT(regs_.size(), kNdRows + 28);
        ndplat::trace_clear();
    }
    void TearDown() override
    {
        gInitFailure = 0;
        ndtest::PlatformTest::TearDown();
    }

    SHELL_CMD_FN vxlanRow(size_t row) const { return regs_[kNdRows + row - 1].fn; }
    SHELL_CMD_FN ndRow(size_t row) const { return regs_[row - 1].fn; }

    // Runs a handler with a failing initialisation: what it printed and what it returned.
    std::pair<std::string, int32_t> runFailing(SHELL_CMD_FN fn, const std::vector<std::string> &words)
    {
        gInitFailure = 18;
        ndtest::Stdout out;
        int32_t result = ndtest::run_handler(fn, words);
        return {out.take(), result};
    }

    ndtest::LoadedPlugin plugin_;
    std::vector<ndplat::CmdRegistration> regs_;
};

TEST_F(VxlanInitFailure, ConfigurationReturnsThePrintedLength)
{
    ndplat::int_env_set(164, 300);
    auto [text, result] = runFailing(vxlanRow(1), {"ipv6", "nd", "host", "timeout", "100"});
    EXPECT_EQ(text, kInitError);
    EXPECT_EQ(result, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(VxlanInitFailure, ShowReturnsThePrintedLengthAndLeavesThePagerAlone)
{
    auto [text, result] = runFailing(vxlanRow(26), {"show", "ipv6", "nd", "host", "vxlan"});
    EXPECT_EQ(text, kInitError);
    EXPECT_EQ(result, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreFormatOutput").empty());
}

TEST_F(VxlanInitFailure, ClearAndIssuReturnThePrintedLength)
{
    auto [clearText, clearResult] = runFailing(vxlanRow(27), {"clear", "ipv6", "nd", "host", "vxlan", "all"});
    EXPECT_EQ(clearText, kInitError);
    EXPECT_EQ(clearResult, static_cast<int32_t>(strlen(kInitError)));
    auto [issuText, issuResult] = runFailing(vxlanRow(28), {"ipv6", "nd", "host", "issu", "backup"});
    EXPECT_EQ(issuText, kInitError);
    EXPECT_EQ(issuResult, static_cast<int32_t>(strlen(kInitError)));
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(VxlanInitFailure, DiagnoseRequestsPrintTheStatusText)
{
    // Row 42 of the ND table: clear diagnose nd stat, whose result is the request's.
    auto [text, result] = runFailing(ndRow(42), {"clear", "diagnose", "nd", "stat"});
    EXPECT_EQ(text, "\nOperation failed.");
    EXPECT_EQ(result, 18);
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

} // namespace
