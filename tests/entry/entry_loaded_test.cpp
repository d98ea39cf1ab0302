// The plug-in loaded with dlopen and started through its exported pointer, as the shell does.
#include <gtest/gtest.h>

#include <cstring>

#include "test_support.h"

namespace {

using ndtest::LoadedPlugin;
using ndtest::PlatformTest;
using ndtest::Stdout;

class LoadedEntryTest : public PlatformTest {};

TEST_F(LoadedEntryTest, EntryPointerPointsToTheStartFunction)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    auto entry = static_cast<uint32_t (**)(void)>(plugin.symbol("dl_cli_init"));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(reinterpret_cast<void *>(*entry), plugin.symbol("dl_nd_cli_init"));
}

TEST_F(LoadedEntryTest, ExportedWordsAreZeroAtLoad)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    for (const char *name : {"SYSTEM_SCRIPT_CHS", "SYSTEM_SCRIPT_CHS_INTERFACE", "VXLAN_VXPORT_MODE"}) {
        auto word = static_cast<const uint32_t *>(plugin.symbol(name));
        ASSERT_NE(word, nullptr) << name;
        EXPECT_EQ(*word, 0u) << name;
    }
}

TEST_F(LoadedEntryTest, StartUpThroughTheExportedPointer)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    EXPECT_EQ(plugin.start(), 0u);
    auto services = ndplat::cmf_services();
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0].first, "ipv6");
    auto notifies = ndplat::notify_registrations();
    ASSERT_EQ(notifies.size(), 1u);
    EXPECT_EQ(reinterpret_cast<void *>(notifies[0].fn), plugin.symbol("ndCliEvtShellCb"));
}

TEST_F(LoadedEntryTest, FailedServiceRegistrationThroughTheExportedPointer)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    ndplat::fault_inject("CMF_ClientServiceReg", 1);
    EXPECT_EQ(plugin.start(), 17u);
    EXPECT_TRUE(ndplat::cmd_registrations().empty());
    EXPECT_TRUE(ndplat::script_registrations().empty());
    EXPECT_TRUE(ndplat::notify_registrations().empty());
}

TEST_F(LoadedEntryTest, ExchangeAndErrorTextsThroughTheLoadedLibrary)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    auto init = plugin.fn<uint32_t (*)(NdCliParam *, const char *, uint32_t)>("nd_CliParamInit");
    auto set = plugin.fn<uint32_t (*)(NdCliParam *, const void *, uint32_t, uint32_t, uint32_t)>("nd_CliParamSet");
    auto proc = plugin.fn<uint32_t (*)(NdCliParam *)>("ndCliParamProc");
    auto print = plugin.fn<void (*)(uint32_t)>("nd_CliPrintErrorToVty");
    ASSERT_TRUE(init && set && proc && print);

    NdCliParam block;
    memset(&block, 0, sizeof block);
    ASSERT_EQ(init(&block, "no", 5), 0u);
    uint16_t vlan = 10;
    EXPECT_EQ(set(&block, &vlan, 2, 5, 1), 2u);
    ndplat::cmf_script(ndplat::CmfResponse{39, {}, 13});
    uint32_t r = proc(&block);
    EXPECT_EQ(r, 39u);
    Stdout out;
    print(r);
    EXPECT_EQ(out.take(), "\nThe vlan is not enabled.");

    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 5u);
    EXPECT_EQ(requests[0].optKind, 4u);
    EXPECT_EQ(requests[0].argIndex, 2u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    EXPECT_EQ(requests[0].items[0].type, 5u);
    EXPECT_EQ(requests[0].items[0].bytes, ndtest::u16_bytes(10));
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

TEST_F(LoadedEntryTest, ErrorTableIsExported)
{
    LoadedPlugin plugin;
    ASSERT_TRUE(plugin.ok()) << plugin.error();
    auto table = static_cast<const char *const *>(plugin.symbol("gNdErrorStr"));
    ASSERT_NE(table, nullptr);
    EXPECT_STREQ(table[18], "Operation failed.");
    EXPECT_EQ(table[27], nullptr);
    EXPECT_STREQ(table[49], "% Conflict, 'nd suppression' is set!");
}

} // namespace
