// The exchange hands each response code to its renderer: 9 snooping statistics, 12 user-bind
// table, 16 fast-response statistics, 18 proxy addresses.
#include <functional>

#include "nd_cli.h"
#include "payload.h"
#include "test_support.h"

namespace {

using ndtest::Payload;

class RenderDispatch : public ndtest::PlatformTest {};

std::string viaExchange(uint32_t code, const Payload &p)
{
    ndplat::CmfResponse response;
    response.items.push_back(ndplat::CmfItem::of(code, p.data(), p.size()));
    ndplat::cmf_script(response);
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, "show", 9);
    ndtest::Stdout out;
    EXPECT_EQ(ndCliParamProc(&block), 0u);
    return out.take();
}

TEST_F(RenderDispatch, EachCodeReachesItsRenderer)
{
    constexpr uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    Payload snp(12);
    snp.append(ndtest::snp_record(0, 0, {1, 2, 3}));
    Payload fwd(12);
    fwd.append(ndtest::fwd_record(0, 1, {4, 5, 6}));
    Payload ub = ndtest::page_header(0, 1).append(ndtest::ub_entry("2001:db8::2", 3, 2, mac, 2));
    Payload proxy = ndtest::proxy_entry(3, "::1", "::9");

    struct Case {
        uint32_t code;
        const Payload *payload;
        std::function<void()> direct;
    };
    uint32_t rows = 0;
    uint8_t title = 0;
    std::vector<Case> cases = {
        {9, &snp, [&] { ndCliShowSnpStInfo(snp.data(), snp.size()); }},
        {12, &ub, [&] { ndCliShowUbInfo(ub.data(), ub.size(), &rows, &title); }},
        {16, &fwd, [&] { ndCliShowFwdStInfo(fwd.data(), fwd.size()); }},
        {18, &proxy, [&] { ndCliShowProxyAddr(proxy.data(), proxy.size()); }},
    };
    for (const Case &c : cases) {
        std::string expected;
        {
            ndtest::Stdout out;
            c.direct();
            expected = out.take();
        }
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(viaExchange(c.code, *c.payload), expected) << c.code;
    }
}

TEST_F(RenderDispatch, UserBindThroughTheExchangeHasItsOwnTitleEveryTime)
{
    constexpr uint8_t mac[6] = {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
    Payload ub = ndtest::page_header(0, 1).append(ndtest::ub_entry("2001:db8::2", 3, 2, mac, 1));
    std::string first = viaExchange(12, ub);
    EXPECT_EQ(viaExchange(12, ub), first);
    EXPECT_EQ(first.rfind("\n      ipv6-address", 0), 0u);
    EXPECT_EQ(first.find("Total number"), std::string::npos);
}

} // namespace
