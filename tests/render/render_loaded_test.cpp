// The exported renderers and list operations of the loaded libnd-cli.so.
#include "payload.h"
#include "test_support.h"

namespace {

using ndtest::Payload;

class RenderLoaded : public ndtest::PlatformTest {
protected:
    void SetUp() override
    {
        ndtest::PlatformTest::SetUp();
        plugin_ = std::make_unique<ndtest::LoadedPlugin>();
        ASSERT_TRUE(plugin_->ok()) << plugin_->error();
    }
    void TearDown() override
    {
        plugin_.reset();
        ndtest::PlatformTest::TearDown();
    }
    std::unique_ptr<ndtest::LoadedPlugin> plugin_;
};

using StatFn = void (*)(const void *, uint32_t);
using TableFn = void (*)(const void *, uint32_t, uint32_t *, uint8_t *);

TEST_F(RenderLoaded, ListOperationsAreExported)
{
    auto init = plugin_->fn<void (*)(GnlListHead *)>("GNL_INIT_LIST_HEAD");
    auto addTail = plugin_->fn<void (*)(GnlListHead *, GnlListHead *)>("gnl_list_add_tail");
    auto del = plugin_->fn<void (*)(GnlListHead *)>("gnl_list_del");
    ASSERT_TRUE(init && addTail && del);
    GnlListHead head, a, b;
    init(&head);
    addTail(&a, &head);
    addTail(&b, &head);
    EXPECT_EQ(head.next, &a);
    EXPECT_EQ(head.prev, &b);
    del(&a);
    EXPECT_EQ(head.next, &b);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a.next), 0x00100100u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a.prev), 0x00200200u);
    EXPECT_EQ(plugin_->symbol("ndCliSnpStatNodeFind"), nullptr) << "internal helpers stay hidden";
}

TEST_F(RenderLoaded, SnoopingStatisticsOrderAndHeadings)
{
    auto show = plugin_->fn<StatFn>("ndCliShowSnpStInfo");
    ASSERT_TRUE(show);
    ndplat::chassis_mode_set(2);
    Payload p(12);
    p.append(ndtest::snp_record(3, 1, {0xFFFFFFFFu}));
    p.append(ndtest::snp_record(0, 0, {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 52, 56}));
    ndtest::Stdout out;
    show(p.data(), p.size());
    std::string text = out.take();
    const std::string first = "\n\n      Statistics for member:0 nd snooping:\n\n      lladdrInvalid:              1";
    EXPECT_EQ(text.substr(0, first.size()), first);
    size_t fail = text.find("sendDtPktFail:              56");
    size_t ok = text.find("sendDtPktOk:                52");
    EXPECT_NE(fail, std::string::npos);
    EXPECT_LT(fail, ok);
    EXPECT_NE(text.find("member:3 nd snooping:\n\n      lladdrInvalid:              -1"), std::string::npos);
}

TEST_F(RenderLoaded, FastResponseStatistics)
{
    auto show = plugin_->fn<StatFn>("ndCliShowFwdStInfo");
    ASSERT_TRUE(show);
    Payload p(12);
    p.append(ndtest::fwd_record(0, 0, {9}));
    ndtest::Stdout out;
    show(p.data(), p.size());
    std::string text = out.take();
    EXPECT_EQ(text.substr(0, 66), "\n\n      Statistics for fast response:\n\n      rxNdCount:          9");
    const std::string last = "\n      txNewBufFail:       0";
    ASSERT_GT(text.size(), last.size());
    EXPECT_EQ(text.substr(text.size() - last.size()), last);
}

TEST_F(RenderLoaded, TablesKeepTheCallersCounterAndTitle)
{
    auto ub = plugin_->fn<TableFn>("ndCliShowUbInfo");
    auto prefix = plugin_->fn<TableFn>("ndCliShowPrefixInfo");
    auto proxy = plugin_->fn<StatFn>("ndCliShowProxyAddr");
    ASSERT_TRUE(ub && prefix && proxy);
    constexpr uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
    Payload page = ndtest::page_header(0, 0);
    page.append(ndtest::ub_entry("2001:db8::5", 10, 5, mac, 1));
    page.append(ndtest::ub_entry("2001:db8::6", 10, 0, mac, 1));
    uint32_t rows = 0;
    uint8_t title = 0;
    ndtest::Stdout out;
    ub(page.data(), page.size(), &rows, &title);
    ub(page.data(), page.size(), &rows, &title);
    std::string text = out.take();
    EXPECT_EQ(rows, 2u);
    EXPECT_EQ(text.find("ipv6-address"), text.rfind("ipv6-address"));
    EXPECT_NE(text.find("0011.22aa.bbcc      10         ge0/5          dynamic    5    \n"), std::string::npos);

    Payload prefixes = ndtest::page_header(0, 1).append(ndtest::prefix_entry("2001:db8::", 0xFFFFFFFFu, 3, 64));
    rows = 0;
    title = 1;
    ndtest::Stdout out2;
    prefix(prefixes.data(), prefixes.size(), &rows, &title);
    EXPECT_EQ(out2.take(), "      2001:db8::                              64         4294967295          3                   \n");
    EXPECT_EQ(rows, 1u);

    std::vector<uint8_t> short35(35, 1);
    ndtest::Stdout out3;
    proxy(short35.data(), 35);
    EXPECT_EQ(out3.take(), "\n      begin-address                           end-address                             module-name         \n\n");
}

} // namespace
