// VXLAN show, clear and diagnose handlers and their renderers.
#include <cstdarg>

#include "ndplat_ports.h"
#include "vxlan_test_util.h"

using namespace vxlantest;

namespace {

const uint8_t kMac[6] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
const uint8_t kMac2[6] = {0xde, 0xad, 0xbe, 0xef, 0x00, 0x01};

std::string fmt(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char *format, ...)
{
    char buf[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    return buf;
}

const std::string kSuppressionTitle =
    fmt("\n%-10s %-15s %-46s %-20s %-10s", "Vxlan-Id", "MAC-Address", "IP-Address", "Tunnel-IP", "Tunnel-Id");
const std::string kHostTitle =
    fmt("\n%-10s %-20s %-48s %-20s %s", "VXLAN-ID", "MAC-Address", "IP-Address", "INTERFACE", "SVLAN/CVLAN");

std::string hostRow(int vxlanId, const char *mac, const char *ip, const char *port, const char *vlans)
{
    return fmt("\n%-10d %-20s %-48s %-20s %s", vxlanId, mac, ip, port, vlans);
}

class VxlanShowTest : public VxlanTest {
protected:
    void SetUp() override
    {
        VxlanTest::SetUp();
        gNdCliTitleShowed = 0;
    }
};

TEST_F(VxlanShowTest, EmptySuppressionTablePrintsOnlyTheTotal)
{
    ndplat::cmf_script(response(13, {}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression"});
    EXPECT_EQ(out.take(), "\nTotal suppression : 0 ");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 22u);
    EXPECT_EQ(requests[0].optKind, 0u);
    EXPECT_TRUE(requests[0].items.empty());
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreOrientOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
}

TEST_F(VxlanShowTest, SuppressionRowsWithVxlanFilter)
{
    auto a = record("2001:db8::1", "192.0.2.1", 300, 12, 0, kMac);
    auto b = record("2001:db8::2", "192.0.2.2", 300, -1, 0, kMac2);
    ndplat::cmf_script(response(13, {recordItem(a), recordItem(b), endOfTable()}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression", "vxlan", "300"});
    EXPECT_EQ(out.take(), kSuppressionTitle +
                              fmt("\n%-10d %-15s %-46s %-20s %-10d", 300, "001a.2b3c.4d5e", "2001:db8::1", "192.0.2.1", 12) +
                              fmt("\n%-10d %-15s %-46s %-20s %-10d", 300, "dead.beef.0001", "2001:db8::2", "192.0.2.2", -1) +
                              "\nTotal suppression : 2 ");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    expectU32Item(requests[0].items[0], 15, 300);
    EXPECT_EQ(requests[0].argIndex, 0u);
    EXPECT_EQ(gNdCliTitleShowed, 0u);
}

TEST_F(VxlanShowTest, SuppressionCountTestIsFiveWords)
{
    // Five words already add the id item (the grammar never gives five; the word read is absent).
    ndplat::cmf_script(response(13, {}));
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression", "vxlan"});
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    expectU32Item(requests[0].items[0], 15, 0);
}

TEST_F(VxlanShowTest, HostShowWithoutIdSendsNoItem)
{
    ndplat::cmf_script(response(13, {}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostShow, {"show", "ipv6", "nd", "host", "vxlan"});
    EXPECT_EQ(out.take(), "\nTotal vxlan host: 0");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 25u);
    EXPECT_EQ(requests[0].optKind, 0u);
    EXPECT_TRUE(requests[0].items.empty());
}

TEST_F(VxlanShowTest, HostColumnsFromThePortInformation)
{
    int32_t port = ndplat::port_id("ge0/3");
    ASSERT_NE(port, 0);
    ndplat::vxport_set(11, {1, port, 10, 0});
    ndplat::vxport_set(12, {1, port, 0, 20});
    ndplat::vxport_set(13, {1, port, 100, 200});
    ndplat::vxport_set(14, {2, port, 100, 200}); // not attached to an interface
    std::vector<ndplat::CmfItem> items;
    items.push_back(recordItem(record("2001:db8::10", "", 8, 0, 10, kMac))); // unknown port
    items.push_back(recordItem(record("2001:db8::11", "", 8, 0, 11, kMac)));
    items.push_back(recordItem(record("2001:db8::12", "", 8, 0, 12, kMac)));
    items.push_back(recordItem(record("2001:db8::13", "", 8, 0, 13, kMac2)));
    items.push_back(recordItem(record("2001:db8::14", "", 8, 0, 14, kMac2)));
    items.push_back(endOfTable());
    ndplat::cmf_script(response(13, items));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostShow, {"show", "ipv6", "nd", "host", "vxlan", "8"});
    EXPECT_EQ(out.take(), kHostTitle + hostRow(8, "001a.2b3c.4d5e", "2001:db8::10", "-", "-") +
                              hostRow(8, "001a.2b3c.4d5e", "2001:db8::11", "ge0/3", "10/-") +
                              hostRow(8, "001a.2b3c.4d5e", "2001:db8::12", "ge0/3", "-/20") +
                              hostRow(8, "dead.beef.0001", "2001:db8::13", "ge0/3", "100/200") +
                              hostRow(8, "dead.beef.0001", "2001:db8::14", "-", "-") + "\nTotal vxlan host: 5");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    ASSERT_EQ(requests[0].items.size(), 1u);
    expectU32Item(requests[0].items[0], 15, 8);
    EXPECT_EQ(ndplat::trace_of("VXLAN_GetVxportBasicInfo"),
              (std::vector<std::string>{"VXLAN_GetVxportBasicInfo(10, ptr)", "VXLAN_GetVxportBasicInfo(11, ptr)",
                                        "VXLAN_GetVxportBasicInfo(12, ptr)", "VXLAN_GetVxportBasicInfo(13, ptr)",
                                        "VXLAN_GetVxportBasicInfo(14, ptr)"}));
}

TEST_F(VxlanShowTest, FailingPortQueryPrintsDashes)
{
    ndplat::vxport_set(11, {1, ndplat::port_id("ge0/1"), 10, 20});
    ndplat::fault_inject("VXLAN_GetVxportBasicInfo", 1);
    ndplat::cmf_script(response(13, {recordItem(record("2001:db8::11", "", 8, 0, 11, kMac)), endOfTable()}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostShow, {"show", "ipv6", "nd", "host", "vxlan"});
    EXPECT_EQ(out.take(), kHostTitle + hostRow(8, "001a.2b3c.4d5e", "2001:db8::11", "-", "-") +
                              "\nTotal vxlan host: 1");
}

TEST_F(VxlanShowTest, TitleOncePerShowOverSeveralResponsesAndCountOfTheLast)
{
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMac);
    auto b = record("2001:db8::2", "192.0.2.1", 5, 2, 0, kMac);
    auto c = record("2001:db8::3", "192.0.2.1", 5, 3, 0, kMac);
    ndplat::cmf_script(response(0, {recordItem(a), recordItem(b)}));
    ndplat::cmf_script(response(13, {recordItem(c), endOfTable()}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression"});
    std::string text = out.take();
    EXPECT_EQ(text, kSuppressionTitle +
                        fmt("\n%-10d %-15s %-46s %-20s %-10d", 5, "001a.2b3c.4d5e", "2001:db8::1", "192.0.2.1", 1) +
                        fmt("\n%-10d %-15s %-46s %-20s %-10d", 5, "001a.2b3c.4d5e", "2001:db8::2", "192.0.2.1", 2) +
                        fmt("\n%-10d %-15s %-46s %-20s %-10d", 5, "001a.2b3c.4d5e", "2001:db8::3", "192.0.2.1", 3) +
                        "\nTotal suppression : 1 ");
    EXPECT_EQ(gNdCliTitleShowed, 0u);

    // The next show prints its title again.
    ndplat::cmf_script(response(13, {recordItem(a), endOfTable()}));
    ndtest::Stdout again;
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression"});
    EXPECT_EQ(again.take().substr(0, kSuppressionTitle.size()), kSuppressionTitle);
}

TEST_F(VxlanShowTest, ExchangeErrorIsPrintedAfterRowsAndBeforeTheTotal)
{
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMac);
    ndplat::cmf_script(response(0, {recordItem(a)}));
    ndplat::cmf_script(response(47, {}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression"});
    EXPECT_EQ(out.take(), kSuppressionTitle +
                              fmt("\n%-10d %-15s %-46s %-20s %-10d", 5, "001a.2b3c.4d5e", "2001:db8::1", "192.0.2.1", 1) +
                              "\n% Vxlan 'nd suppression' not set" + "\nTotal suppression : 1 ");
}

TEST_F(VxlanShowTest, WrongRecordIsWarnedAboutAndStillPrinted)
{
    auto a = record("2001:db8::1", "192.0.2.1", 5, 1, 0, kMac);
    ndtest::Stdout out;
    ndCliVxlanSuppressionShowRecv(a.data(), 18, 124);
    EXPECT_EQ(out.take(), "\ncli param error\n" + kSuppressionTitle +
                              fmt("\n%-10d %-15s %-46s %-20s %-10d", 5, "001a.2b3c.4d5e", "2001:db8::1", "192.0.2.1", 1));
    // A short record is read no further than it goes.
    std::vector<uint8_t> shortRecord(a.begin(), a.begin() + 100);
    gNdCliTitleShowed = 0;
    ndtest::Stdout out2;
    ndCliVxlanHostShowRecv(shortRecord.data(), 17, 100);
    EXPECT_EQ(out2.take(), "\ncli param error\n" + kHostTitle +
                               hostRow(5, "0000.0000.0000", "2001:db8::1", "-", "-"));
    gNdCliTitleShowed = 0;
}

TEST_F(VxlanShowTest, ClearAllSendsNoVxlanId)
{
    ndplat::cmf_script(response(13, {}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "all"});
    EXPECT_EQ(out.take(), "");
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].cmdCode, 25u);
    EXPECT_EQ(requests[0].optKind, 4u);
    EXPECT_TRUE(requests[0].items.empty());
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
}

TEST_F(VxlanShowTest, ClearOneHostSendsIdAndAddress)
{
    ndplat::cmf_script(response(13, {}));
    ndtest::run_handler(ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "5", "2001:db8::5"});
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests.size(), 1u);
    ASSERT_EQ(requests[0].items.size(), 2u);
    expectU32Item(requests[0].items[0], 15, 5);
    expectItem(requests[0].items[1], 4, v6("2001:db8::5"));
}

TEST_F(VxlanShowTest, ClearMatchesAllCaseSensitivelyAndRendersReturnedHosts)
{
    ndplat::cmf_script(response(13, {recordItem(record("2001:db8::7", "", 6, 0, 99, kMac)), endOfTable()}));
    ndtest::Stdout out;
    gNdCliTitleShowed = 0;
    ndtest::run_handler(ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "ALL"});
    // No total and no reset of the title flag.
    EXPECT_EQ(out.take(), kHostTitle + hostRow(6, "001a.2b3c.4d5e", "2001:db8::7", "-", "-"));
    EXPECT_EQ(gNdCliTitleShowed, 1u);
    auto requests = ndplat::cmf_requests();
    ASSERT_EQ(requests[0].items.size(), 1u);
    expectU32Item(requests[0].items[0], 15, 0); // "ALL" read as a number
    gNdCliTitleShowed = 0;
}

TEST_F(VxlanShowTest, ClearErrorIsPrinted)
{
    ndplat::cmf_script(response(47, {}));
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "all"});
    EXPECT_EQ(out.take(), "\n% Vxlan 'nd suppression' not set");
}

TEST_F(VxlanShowTest, DiagnoseVxlanSelectors)
{
    struct Case {
        std::vector<std::string> words;
        uint32_t selector, id;
    } cases[] = {
        {{"show", "diagnose", "nd", "vxlan"}, 0, 0},
        {{"show", "diagnose", "nd", "vxlan", "77"}, 0, 77},
        {{"show", "diagnose", "nd", "vxlan", "77", "host"}, 1, 77},
        {{"show", "diagnose", "nd", "vxlan", "78", "MAC"}, 2, 78},
        {{"show", "diagnose", "nd", "vxlan", "79", "other"}, 0, 79},
        {{"show", "diagnose", "nd", "vxlan", "79", "host", "x"}, 0, 0},
    };
    for (const Case &c : cases) {
        ndplat::reset();
        ndplat::cmf_script(response(13, {}));
        ndtest::Stdout out;
        ndtest::run_handler(nd_CliVxlanDiagnoseShowVxlan, c.words);
        EXPECT_EQ(out.take(), "");
        auto requests = ndplat::cmf_requests();
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].cmdCode, 29u);
        EXPECT_EQ(requests[0].optKind, 0u);
        EXPECT_EQ(requests[0].argIndex, 2u); // both items are marked
        ASSERT_EQ(requests[0].items.size(), 2u);
        expectU32Item(requests[0].items[0], 13, c.selector);
        expectU32Item(requests[0].items[1], 2, c.id);
    }
}

TEST_F(VxlanShowTest, DiagnoseVxlanRecordsAreNotRenderedAndErrorsPrinted)
{
    ndplat::cmf_script(response(13, {recordItem(record("2001:db8::1", "", 1, 0, 0, kMac))}));
    ndtest::Stdout out;
    ndtest::run_handler(nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan"});
    EXPECT_EQ(out.take(), ""); // 13 is silent
    ndplat::cmf_script(response(49, {}));
    ndtest::Stdout out2;
    ndtest::run_handler(nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan"});
    EXPECT_EQ(out2.take(), "\n% Conflict, 'nd suppression' is set!");
}

TEST_F(VxlanShowTest, DiagnoseAnsweredWithEndStatusZeroEndsWithItsResponse)
{
    // show diagnose nd vxlan 20 mac, the service reporting 0 once its records are used up.
    ndplat::cmf_script(response(13, {recordItem(record("2001:db8::1", "", 20, 0, 0, kMac))}, 0));
    ndtest::Stdout out;
    EXPECT_EQ(ndtest::run_handler(nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan", "20", "mac"}),
              13);
    EXPECT_EQ(out.take(), "");
    EXPECT_EQ(ndplat::trace_of("CMF_ClientParamDecode").size(), 2u);
    EXPECT_EQ(ndplat::cmf_requests().size(), 1u);
}

TEST_F(VxlanShowTest, DiagnoseOfAServiceThatAlwaysAsksForMoreEndsWithAnError)
{
    ndplat::trace_record_set(false); // tens of thousands of rounds
    size_t answered = 0;
    ndplat::cmf_responder_set([&](const ndplat::CmfRequest &) {
        ++answered;
        return response(0, {recordItem(record("2001:db8::1", "", 20, 0, 0, kMac))}, 0);
    });
    ndtest::Stdout out;
    EXPECT_EQ(ndtest::run_handler(nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan", "20", "mac"}),
              18);
    EXPECT_EQ(out.take(), "\nOperation failed.");
    EXPECT_EQ(answered, 32768u);
}

} // namespace
