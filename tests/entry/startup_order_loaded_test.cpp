// The whole start-up sequence of the loaded plug-in, every registration in its place.
#include <gtest/gtest.h>

#include "test_support.h"

namespace {

using ndtest::LoadedPlugin;
using ndtest::PlatformTest;

class StartupOrderTest : public PlatformTest {};

bool isRegistration(const std::string &line)
{
    for (const char *name : {"CMF_ClientServiceReg(", "SHELL_CmdRegByModule(", "cmd_register(",
                             "SHELL_ConfigScriptReg(", "DEBUG_ModuleReg(", "notifyRegister("})
        if (line.rfind(name, 0) == 0)
            return true;
    return false;
}

std::string callName(const std::string &line)
{
    return line.substr(0, line.find('('));
}

TEST_F(StartupOrderTest, EveryRegistrationInItsPlace)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    ASSERT_EQ(plugin.start(), 0u);

    std::vector<std::string> calls;
    for (const std::string &line : ndplat::trace())
        if (isRegistration(line))
            calls.push_back(line);

    // 1 service, 46 ND commands, 28 VXLAN commands, 4 test commands, 7 scripts, 1 debug hook,
    // 1 event callback.
    ASSERT_EQ(calls.size(), 1u + 46 + 28 + 4 + 7 + 1 + 1);
    size_t at = 0;
    EXPECT_EQ(calls[at++], "CMF_ClientServiceReg(\"ipv6\", {0x7FFF00EA, 0x7FFC0001})");
    for (size_t i = 0; i < 46 + 28; ++i, ++at)
        EXPECT_EQ(calls[at].rfind("SHELL_CmdRegByModule(0, 296, ptr, \"", 0), 0u) << calls[at];
    for (size_t i = 0; i < 4; ++i, ++at)
        EXPECT_EQ(callName(calls[at]), "cmd_register") << calls[at];
    const std::vector<std::string> tail = {
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 27, 1, 32)",
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 321, 1, 32)",
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 83, 3, 16)",
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 60, 4, 16)",
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 93, 5, 16)",
        "SHELL_ConfigScriptReg(\"PROTOCOL_ND\", ptr, 1, 13, 16)",
        "DEBUG_ModuleReg(\"ND\", ptr)",
        "SHELL_ConfigScriptReg(\"NDP\", ptr, 8, 2, 16)",
        "notifyRegister(23, 8, \"ND_CLI\", 2, 1, ptr, 0)",
    };
    EXPECT_EQ(std::vector<std::string>(calls.begin() + static_cast<long>(at), calls.end()), tail);

    // The ND table comes first (its row 1), then the VXLAN table (its first line).
    auto cmds = ndplat::cmd_registrations();
    ASSERT_EQ(cmds.size(), 46u + 28 + 4);
    EXPECT_EQ(cmds[0].definition,
              "nd(IF|PORTIF,0,'Neighbor discovery'){proxy(IF|PORTIF,0,'Normal nd proxy'){enable(IF|PORTIF,0,'Normal nd proxy')}}");
    EXPECT_EQ(cmds[46].definition,
              "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host')"
              "{timeout(VXLAN, 0, 'Set ND cache timeout'){_30_2147483_(VXLAN, 0, 'Seconds(default:300)')}}}}}");
    for (size_t i = 74; i < 78; ++i)
        EXPECT_TRUE(cmds[i].viaCmdRegister) << i;

    // Handlers of the scripts and hooks are the plug-in's exported functions.
    auto scripts = ndplat::script_registrations();
    ASSERT_EQ(scripts.size(), 7u);
    const char *handlers[] = {"ndGobleEnableScriptHandler", "ndGobleScriptHandler", "ndIfScriptHandler",
                              "ndIfScriptHandler", "ndPortIfScriptHandler", "nd_CliVxlanScriptHandler",
                              "ndVlanIfScriptHandler"};
    for (size_t i = 0; i < 7; ++i)
        EXPECT_EQ(reinterpret_cast<void *>(scripts[i].fn), plugin.symbol(handlers[i])) << handlers[i];
    ASSERT_EQ(ndplat::debug_registrations().size(), 1u);
    EXPECT_EQ(reinterpret_cast<void *>(ndplat::debug_registrations()[0].fn), plugin.symbol("ndCliDebugCtrlProc"));
}

} // namespace
