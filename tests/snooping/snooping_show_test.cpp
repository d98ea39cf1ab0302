// ND snooping show and clear commands: single exchanges, and the paged user-bind and prefix
// listings driven page by page by a responder that plays the ND service.
#include "../render/payload.h"
#include "nd_snooping.h"
#include "snooping_support.h"

namespace {

using namespace ndtest;

class SnoopingShow : public PlatformTest {
protected:
    std::string run(SHELL_CMD_FN fn, const Words &words, int32_t *result = nullptr)
    {
        Stdout out;
        int32_t r = run_handler(fn, words);
        if (result)
            *result = r;
        return out.take();
    }
};

std::string pad(const std::string &s, size_t width)
{
    return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

const std::string kUbTitle = "\n      " + pad("ipv6-address", 40) + pad("mac-address", 20) + pad("vlan", 11) +
                             pad("interface", 15) + pad("type", 11) + pad("ag", 5) + "\n      " +
                             std::string(116, '-') + "\n";
const std::string kPrefixTitle = "\n      " + pad("prefix", 40) + pad("length", 11) + pad("valid-time", 20) +
                                 pad("preferred-time", 20) + "\n      " + std::string(85, '-') + "\n";

std::string ubRow(const std::string &address, int vlan, const std::string &port, const std::string &type, int ag)
{
    return "      " + pad(address, 40) + pad("0011.22aa.bbcc", 20) + pad(std::to_string(vlan), 11) + pad(port, 15) +
           pad(type, 11) + pad(std::to_string(ag), 5) + "\n";
}

constexpr uint8_t kMac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};

std::string total(int n)
{
    return "\n      Total number: " + std::to_string(n) + "\n";
}

// The page query of a request: table kind, start index, page size, and the zero word.
struct Query {
    uint32_t kind;
    uint16_t start, size;
    uint32_t zero;
};
Query queryOf(const ndplat::CmfRequest &r)
{
    Query q{};
    EXPECT_EQ(r.items.size(), 1u);
    if (r.items.empty() || r.items[0].bytes.size() != 12)
        return q;
    EXPECT_EQ(r.items[0].type, 9u);
    const uint8_t *b = r.items[0].bytes.data();
    memcpy(&q.kind, b, 4);
    memcpy(&q.start, b + 4, 2);
    memcpy(&q.size, b + 6, 2);
    memcpy(&q.zero, b + 8, 4);
    return q;
}

ndplat::CmfResponse page(uint32_t code, const Payload &p)
{
    ndplat::CmfResponse response;
    response.items.push_back(ndplat::CmfItem::of(code, p.data(), p.size()));
    return response;
}

// ---- single exchanges ------------------------------------------------------------------------

TEST_F(SnoopingShow, StatisticsShowSendsAZeroWordAndRendersTheAnswer)
{
    Payload stats(12);
    stats.append(snp_record(0, 0, {7}));
    ndplat::cmf_script(page(9, stats));
    std::string text = run(ndShowNdSnoopingStat, {"show", "nd", "snooping", "statistics"});
    EXPECT_EQ(text.substr(0, 38), "\n\n      Statistics for nd snooping:\n\n ");
    EXPECT_NE(text.find("lladdrInvalid:              7"), std::string::npos);
    ndplat::CmfRequest r = only_request();
    expect_header(r, 9, ND_CLI_OPT_SHOW, 1);
    expect_item(r, 0, 9, u32_bytes(0));
}

TEST_F(SnoopingShow, ClearsSendTypeTenWithUndo)
{
    EXPECT_EQ(run(ndClearNdSnoopingStat, {"clear", "nd", "snooping", "statistics"}), "");
    EXPECT_EQ(run(ndClearNdSnoopingDyUbUserBind, {"clear", "nd", "snooping", "dynamic-user-bind"}), "");
    std::vector<ndplat::CmfRequest> rs = ndplat::cmf_requests();
    ASSERT_EQ(rs.size(), 2u);
    expect_header(rs[0], 9, ND_CLI_OPT_UNDO, 1);
    expect_item(rs[0], 0, 10, u32_bytes(0));
    expect_header(rs[1], 13, ND_CLI_OPT_UNDO, 1);
    expect_item(rs[1], 0, 10, u32_bytes(0));
    EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
}

TEST_F(SnoopingShow, ClearErrorIsPrinted)
{
    ndplat::CmfResponse refused;
    refused.status = 29;
    ndplat::cmf_script(refused);
    EXPECT_EQ(run(ndClearNdSnoopingStat, {"clear", "nd", "snooping", "statistics"}), "\nOperate DBM data failed.");
}

TEST_F(SnoopingShow, OneAddressIsRenderedWithTitleAndNoTotal)
{
    Payload p = page_header(0, 1).append(ub_entry("2001:db8::7", 9, 7, kMac, 2));
    ndplat::cmf_script(page(12, p));
    EXPECT_EQ(run(ndShowNdSnoopingUserBindAddr, {"show", "nd", "snooping", "user-bind", "2001:db8::7"}),
              kUbTitle + ubRow("2001:db8::7", 9, "ge0/7", "static", 7));
    ndplat::CmfRequest r = only_request();
    expect_header(r, 12, ND_CLI_OPT_SHOW, 1);
    expect_item(r, 0, 4, ipv6_bytes("2001:db8::7"));
}

TEST_F(SnoopingShow, TextThatIsNoAddressIsStillSent)
{
    EXPECT_EQ(run(ndShowNdSnoopingUserBindAddr, {"show", "nd", "snooping", "user-bind", "nonsense"}), "");
    expect_item(only_request(), 0, 4, std::vector<uint8_t>(16, 0));
}

TEST_F(SnoopingShow, ClearPrefixWithLength)
{
    EXPECT_EQ(run(ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix", "2001:db8::/64"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 10, ND_CLI_OPT_UNDO, 2);
    expect_item(r, 0, 4, ipv6_bytes("2001:db8::"));
    expect_item(r, 1, 5, {64});
}

TEST_F(SnoopingShow, ClearPrefixWithoutLengthIsAHostPrefix)
{
    EXPECT_EQ(run(ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix", "2001:db8::1"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 10, ND_CLI_OPT_UNDO, 2);
    expect_item(r, 0, 4, ipv6_bytes("2001:db8::1"));
    expect_item(r, 1, 5, {128});
}

TEST_F(SnoopingShow, ClearPrefixLengthIsKeptInEightBits)
{
    run(ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix", "2001:db8::/300"});
    expect_item(only_request(), 1, 5, {static_cast<uint8_t>(300)});
}

TEST_F(SnoopingShow, ClearAllPrefixesWithoutWordFour)
{
    EXPECT_EQ(run(ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix"}), "");
    ndplat::CmfRequest r = only_request();
    expect_header(r, 10, ND_CLI_OPT_UNDO, 3);
    expect_item(r, 0, 4, std::vector<uint8_t>(16, 0));
    expect_item(r, 1, 5, {128});
    expect_item(r, 2, 12, u32_bytes(1));
}

// ---- paged listings ---------------------------------------------------------------------------

TEST_F(SnoopingShow, StaticListingOfOnePage)
{
    Payload p = page_header(0, 1);
    p.append(ub_entry("2001:db8::1", 10, 1, kMac, 2));
    p.append(ub_entry("2001:db8::2", 10, 0, kMac, 2));
    p.append(ub_entry("2001:db8::3", 10, 3, kMac, 2));
    ndplat::cmf_script(page(11, p));
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}),
              kUbTitle + ubRow("2001:db8::1", 10, "ge0/1", "static", 1) + ubRow("2001:db8::3", 10, "ge0/3", "static", 3) +
                  total(2));
    ndplat::CmfRequest r = only_request();
    expect_header(r, 11, ND_CLI_OPT_SHOW, 1);
    Query q = queryOf(r);
    EXPECT_EQ(q.kind, 2u);
    EXPECT_EQ(q.start, 0);
    EXPECT_EQ(q.size, 15);
    EXPECT_EQ(q.zero, 0u);
    // The pager: oriented before the page, told at the end after the context is closed.
    std::vector<std::string> calls;
    for (const std::string &line : ndplat::trace())
        if (line.rfind("SHELL_More", 0) == 0 || line.rfind("CMF_ClientContextClose", 0) == 0)
            calls.push_back(line.substr(0, line.find('(')));
    EXPECT_EQ(calls, (std::vector<std::string>{"SHELL_MoreOrientOutput", "CMF_ClientContextClose",
                                               "SHELL_MoreBreakOutput", "SHELL_MoreFormatOutput"}));
}

// A service that holds `dynamic` entries of kind 3 and `second` of kind 4 (and `prefixes`),
// answering pages of the size asked from the start index asked.
struct FakeTables {
    uint32_t staticCount = 0, dynamic = 0, second = 0, prefixes = 0;
    std::vector<Query> queries;

    ndplat::CmfResponse operator()(const ndplat::CmfRequest &r)
    {
        Query q = queryOf(r);
        queries.push_back(q);
        uint32_t count = r.cmdCode == 10 ? prefixes : q.kind == 2 ? staticCount : q.kind == 3 ? dynamic : second;
        uint32_t end = std::min<uint32_t>(count, q.start + q.size);
        Payload p = page_header(static_cast<uint16_t>(end), end >= count ? 1 : 0);
        for (uint32_t i = q.start; i < end; ++i) {
            char address[64];
            snprintf(address, sizeof address, "2001:db8:%x::%x", q.kind, i + 1);
            if (r.cmdCode == 10)
                p.append(prefix_entry(address, 100 + i, 50 + i, 64));
            else
                p.append(ub_entry(address, 1, static_cast<uint16_t>(1 + i % 24), kMac, q.kind == 2 ? 2 : 1));
        }
        return page(r.cmdCode, p);
    }
};

TEST_F(SnoopingShow, DynamicListingHasASecondPassFromTheBeginning)
{
    FakeTables tables;
    tables.dynamic = 17;
    tables.second = 4;
    ndplat::cmf_responder_set(std::ref(tables));
    std::string text = run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic"});
    ASSERT_EQ(tables.queries.size(), 3u);
    EXPECT_EQ(tables.queries[0].kind, 3u);
    EXPECT_EQ(tables.queries[0].start, 0);
    EXPECT_EQ(tables.queries[1].kind, 3u);
    EXPECT_EQ(tables.queries[1].start, 15);
    EXPECT_EQ(tables.queries[2].kind, 4u);
    EXPECT_EQ(tables.queries[2].start, 0);
    EXPECT_EQ(text.find(kUbTitle), 0u);
    EXPECT_EQ(text.find(kUbTitle, 1), std::string::npos) << "title printed once";
    EXPECT_EQ(text.substr(text.size() - total(21).size()), total(21));
    EXPECT_EQ(text.find("Total number"), text.size() - total(21).size() + 7);
    EXPECT_NE(text.find("2001:db8:4::4 "), std::string::npos);
}

TEST_F(SnoopingShow, DynamicMpuListingStopsAfterKindThree)
{
    FakeTables tables;
    tables.dynamic = 3;
    tables.second = 4;
    ndplat::cmf_responder_set(std::ref(tables));
    std::string text = run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic-mpu"});
    ASSERT_EQ(tables.queries.size(), 1u);
    EXPECT_EQ(tables.queries[0].kind, 3u);
    EXPECT_EQ(text.substr(text.size() - total(3).size()), total(3));
}

TEST_F(SnoopingShow, NextIndexOfTheHeaderIsTheNextStart)
{
    // The service decides where the next page starts, whatever was asked.
    std::vector<Query> queries;
    ndplat::cmf_responder_set([&queries](const ndplat::CmfRequest &r) {
        queries.push_back(queryOf(r));
        return page(11, queries.size() == 1 ? page_header(15, 0) : page_header(0, 1));
    });
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}), kUbTitle + total(0));
    ASSERT_EQ(queries.size(), 2u);
    EXPECT_EQ(queries[1].start, 15);
    EXPECT_EQ(queries[1].kind, 2u);
}

TEST_F(SnoopingShow, NothingToDecodeOnTheFirstPageEndsQuietly)
{
    ndplat::cmf_script(ndplat::CmfResponse{});
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}), "");
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
}

TEST_F(SnoopingShow, PrefixListing)
{
    FakeTables tables;
    tables.prefixes = 16;
    ndplat::cmf_responder_set(std::ref(tables));
    std::string text = run(ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"});
    std::vector<ndplat::CmfRequest> rs = ndplat::cmf_requests();
    ASSERT_EQ(rs.size(), 2u);
    expect_header(rs[0], 10, ND_CLI_OPT_SHOW, 1);
    EXPECT_EQ(tables.queries[0].kind, 0u);
    EXPECT_EQ(tables.queries[1].kind, 0u);
    EXPECT_EQ(tables.queries[1].start, 15);
    EXPECT_EQ(text.find(kPrefixTitle), 0u);
    EXPECT_NE(text.find("      " + pad("2001:db8::1", 40) + pad("64", 11) + pad("100", 20) + pad("50", 20) + "\n"),
              std::string::npos);
    EXPECT_EQ(text.substr(text.size() - total(16).size()), total(16));
}

TEST_F(SnoopingShow, PrefixListingRefusesAnotherResponseCode)
{
    ndplat::cmf_script(page(11, page_header(0, 1)));
    EXPECT_EQ(run(ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"}), "paramVal null paramLen 12\n");
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
}

struct Failure {
    const char *function;
    int64_t value;
    std::string message;
    bool pager;
};

TEST_F(SnoopingShow, EveryFailureOfTheExchangeHasItsMessage)
{
    const std::vector<Failure> failures = {
        {"CMF_ClientContextInit", 0, "CMF ClientContextInit error 0!", false},
        {"CMF_ClientContextObjSet", 7, "CMF ClientContextObjSet error 7!", true},
        {"CMF_ClientParamEncode", 20, "CMF ClientParamEncode error 20!", true},
        {"CMF_ClientRequestSend", 5, "cmf request send failed ret 5", true},
        {"CMF_ClientResponseRecv", 46, "\nThe switch of global snooping is not enable.", true},
        {"CMF_ClientResponseRecv", 3, "", true},
        {"CMF_ClientParamDecode", 3, "cmf param decode error, ret: 3\n", true},
    };
    for (const Failure &f : failures) {
        for (bool prefix : {false, true}) {
            ndplat::reset();
            ndplat::cmf_script(page(prefix ? 10 : 11, page_header(0, 1)));
            ndplat::fault_inject(f.function, f.value);
            std::string text = prefix ? run(ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"})
                                      : run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"});
            EXPECT_EQ(text, f.message) << f.function;
            EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), f.pager ? 1u : 0u) << f.function;
            EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), f.pager ? 1u : 0u) << f.function;
            EXPECT_TRUE(ndplat::trace_of("SHELL_MoreOrientOutput").empty());
            EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
        }
    }
}

TEST_F(SnoopingShow, EmptyOrForeignPagesEndTheListing)
{
    ndplat::CmfResponse empty;
    empty.items.push_back(ndplat::CmfItem::of(11, nullptr, 0));
    ndplat::cmf_script(empty);
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}),
              "paramVal null paramLen 0\n");
    ndplat::cmf_script(page(12, page_header(0, 1)));
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}),
              "paramVal null paramLen 12\n");
}

// A page too short for its header cannot say where the next one starts: it is the last.
TEST_F(SnoopingShow, PageShorterThanItsHeaderEndsTheListing)
{
    std::vector<uint8_t> shortPage(5, 0);
    ndplat::CmfResponse response;
    response.items.push_back(ndplat::CmfItem::of(11, shortPage.data(), 5));
    ndplat::cmf_script(response);
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic-mpu"}), kUbTitle + total(0));
    EXPECT_EQ(ndplat::cmf_requests().size(), 1u);
}

TEST_F(SnoopingShow, PagerBreakDoesNotStopTheFormatCall)
{
    ndplat::pager_quit_after(1);
    ndplat::cmf_script(page(11, page_header(0, 1)));
    run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"});
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
}

TEST_F(SnoopingShow, FailureHalfWayKeepsTheRowsAndPrintsNoTotal)
{
    FakeTables tables;
    tables.staticCount = 20;
    ndplat::cmf_responder_set(std::ref(tables));
    ndplat::fault_inject("CMF_ClientResponseRecv", 21, 1, 1); // the second page fails
    std::string text = run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"});
    EXPECT_EQ(text.find(kUbTitle), 0u);
    EXPECT_NE(text.find("2001:db8:2::f "), std::string::npos);
    EXPECT_EQ(text.find("Total number"), std::string::npos);
    const std::string message = "\nCmf receive response message failed.";
    ASSERT_GT(text.size(), message.size());
    EXPECT_EQ(text.substr(text.size() - message.size()), message);
}

TEST_F(SnoopingShow, TwentyThousandEntriesOverManyPages)
{
    FakeTables tables;
    tables.staticCount = 20000;
    ndplat::cmf_responder_set(std::ref(tables));
    long before = ndplat::outstanding_allocations();
    std::string text = run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"});
    EXPECT_EQ(tables.queries.size(), 1334u);
    for (size_t i = 0; i < tables.queries.size(); ++i)
        ASSERT_EQ(tables.queries[i].start, static_cast<uint16_t>(i * 15)) << i;
    EXPECT_EQ(text.substr(text.size() - total(20000).size()), total(20000));
    size_t rows = 0;
    for (size_t at = text.find("static"); at != std::string::npos; at = text.find("static", at + 1))
        ++rows;
    EXPECT_EQ(rows, 20000u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreOrientOutput").size(), 1334u);
    EXPECT_EQ(ndplat::trace_of("CMF_ClientContextClose").size(), 1334u);
    EXPECT_EQ(ndplat::outstanding_allocations(), before);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

// ---- a service that never ends a pass -------------------------------------------------------

TEST_F(SnoopingShow, APageThatPointsBackBeforeItsStartEndsTheListingWithAnError)
{
    std::vector<Query> queries;
    ndplat::cmf_responder_set([&queries](const ndplat::CmfRequest &r) {
        queries.push_back(queryOf(r));
        return page(11, queries.size() == 1 ? page_header(15, 0) : page_header(0, 0));
    });
    EXPECT_EQ(run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}),
              kUbTitle + "\nOperation failed.");
    ASSERT_EQ(queries.size(), 2u);
    EXPECT_EQ(queries[1].start, 15);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

TEST_F(SnoopingShow, APageThatStaysAtItsStartEndsTheListingWithAnError)
{
    std::vector<Query> queries;
    ndplat::cmf_responder_set([&queries](const ndplat::CmfRequest &r) {
        queries.push_back(queryOf(r));
        return page(10, page_header(0, 0));
    });
    EXPECT_EQ(run(ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"}), kPrefixTitle + "\nOperation failed.");
    EXPECT_EQ(queries.size(), 1u);
}

TEST_F(SnoopingShow, APassBeyondTheSixteenBitStartIndexEndsInsteadOfWrapping)
{
    // Pages of 15 that never say "last": the start index climbs to 65535 and the next one
    // would wrap to 14.
    std::vector<Query> queries;
    ndplat::cmf_responder_set([&queries](const ndplat::CmfRequest &r) {
        queries.push_back(queryOf(r));
        return page(11, page_header(static_cast<uint16_t>(queries.back().start + 15), 0));
    });
    std::string text = run(ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic"});
    EXPECT_EQ(text, kUbTitle + "\nOperation failed.");
    ASSERT_EQ(queries.size(), 4370u);
    EXPECT_EQ(queries[4368].start, 65520);
    EXPECT_EQ(queries[4369].start, 65535);
    EXPECT_EQ(queries[4369].kind, 3u) << "no second pass after a failed first one";
    EXPECT_EQ(ndplat::cmf_open_contexts(), 0);
}

} // namespace
