// Start-up of the plug-in and its small helpers.
#include <gtest/gtest.h>

#include "nd_cli_internal.h"
#include "test_support.h"

namespace {

using ndtest::PlatformTest;

class EntryTest : public PlatformTest {};

TEST_F(EntryTest, SystemType)
{
    EXPECT_EQ(gipc_sys_type(234), 0x7FFF00EAu);
    EXPECT_EQ(gipc_sys_type(0), 0x7FFF0000u);
    EXPECT_EQ(gipc_sys_type(0xFFFF), 0x7FFFFFFFu);
    EXPECT_EQ(gipc_sys_type(0x10000), 0xFFFFFFFFu);
    EXPECT_EQ(gipc_sys_type(0xFFFFFFFFu), 0xFFFFFFFFu);
}

TEST_F(EntryTest, SystemInstance)
{
    EXPECT_EQ(gipc_sys_instance(1, 1), 0x7FFC0001u);
    EXPECT_EQ(gipc_sys_instance(1, 2), 0x7FFD0001u);
    EXPECT_EQ(gipc_sys_instance(1, 4), 0x7FFF0001u);
    EXPECT_EQ(gipc_sys_instance(0xFFFF, 1), 0x7FFCFFFFu);
    EXPECT_EQ(gipc_sys_instance(1, 0), 0xFFFFFFFFu);
    EXPECT_EQ(gipc_sys_instance(1, 5), 0xFFFFFFFFu);
    EXPECT_EQ(gipc_sys_instance(0x10000, 1), 0xFFFFFFFFu);
}

TEST_F(EntryTest, ServiceRegistration)
{
    EXPECT_EQ(ndCliRegService(), 0u);
    auto services = ndplat::cmf_services();
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0].first, "ipv6");
    EXPECT_EQ(services[0].second.type, 0x7FFF00EAu);
    EXPECT_EQ(services[0].second.instance, 0x7FFC0001u);
}

TEST_F(EntryTest, ServiceRegistrationFailureIsSystemBusy)
{
    for (int64_t r : {1, 2, 13, -1}) {
        ndplat::fault_inject("CMF_ClientServiceReg", r);
        EXPECT_EQ(ndCliRegService(), 17u) << r;
    }
}

TEST_F(EntryTest, FailedServiceRegistrationRegistersNothingElse)
{
    ndplat::fault_inject("CMF_ClientServiceReg", 3);
    EXPECT_EQ(dl_nd_cli_init(), 17u);
    EXPECT_TRUE(ndplat::cmd_registrations().empty());
    EXPECT_TRUE(ndplat::script_registrations().empty());
    EXPECT_TRUE(ndplat::debug_registrations().empty());
    EXPECT_TRUE(ndplat::notify_registrations().empty());
    EXPECT_EQ(ndplat::trace(), (std::vector<std::string>{"CMF_ClientServiceReg(\"ipv6\", {0x7FFF00EA, 0x7FFC0001})"}));
}

TEST_F(EntryTest, StartUpBeginsWithTheServiceAndEndsWithTheEventCallback)
{
    EXPECT_EQ(dl_nd_cli_init(), 0u);
    std::vector<std::string> trace = ndplat::trace();
    ASSERT_FALSE(trace.empty());
    EXPECT_EQ(trace.front(), "CMF_ClientServiceReg(\"ipv6\", {0x7FFF00EA, 0x7FFC0001})");
    EXPECT_EQ(trace.back(), "notifyRegister(23, 8, \"ND_CLI\", 2, 1, ptr, 0)");
    auto notifies = ndplat::notify_registrations();
    ASSERT_EQ(notifies.size(), 1u);
    EXPECT_EQ(notifies[0].fn, &ndCliEvtShellCb);
    EXPECT_TRUE(ndplat::log_records().empty());
}

TEST_F(EntryTest, EventRegistrationFailureIsLoggedAndReturned)
{
    ndplat::fault_inject("notifyRegister", 5);
    EXPECT_EQ(dl_nd_cli_init(), 0u); // the log call's own result
    auto log = ndplat::log_records();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].module, 296u);
    EXPECT_EQ(log[0].a2, 0u);
    EXPECT_EQ(log[0].a3, 8u);
    EXPECT_EQ(log[0].level, 4u);
    EXPECT_EQ(log[0].text, "Register shell  SHELL_NOTIFY_SHW_RCONFIG_END unsuccessfully ");
}

TEST_F(EntryTest, EventRegistrationFailureReturnsWhatTheLogReturned)
{
    ndplat::fault_inject("notifyRegister", 1);
    ndplat::fault_inject("NLOG_Send", 77);
    EXPECT_EQ(ndCliEvtRegister(), 77u);
    EXPECT_EQ(ndplat::trace_of("NLOG_Send").size(), 1u);
}

TEST_F(EntryTest, ShellCallbackIgnoresOtherEvents)
{
    struct Event {
        uint32_t event, subevent;
    };
    for (Event e : {Event{23, 7}, Event{23, 9}, Event{22, 8}, Event{24, 8}, Event{0, 0}, Event{8, 23}}) {
        ndplat::trace_clear();
        EXPECT_EQ(ndCliEvtShellCb(e.event, e.subevent, 1, 5), 0);
        EXPECT_TRUE(ndplat::trace().empty()) << e.event << "/" << e.subevent;
    }
}

TEST_F(EntryTest, ShellCallbackOnEndOfDisplayReturnsZero)
{
    EXPECT_EQ(ndCliEvtShellCb(23, 8, 0, 5), 0);
}

} // namespace
