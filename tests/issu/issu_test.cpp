// The ISSU host store: open, insert, save, walk, close, the diagnose listing and the backup
// and recover command.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>

#include "ndplat_dbm.h"
#include "test_support.h"
#include "vxlan/nd_cli_vxlan.h"

namespace {

std::vector<uint8_t> entry(const char *address, uint32_t index, const char *port, uint32_t svlan, uint32_t cvlan,
                           uint8_t macSeed = 0x10)
{
    std::vector<uint8_t> e(80, 0);
    inet_pton(AF_INET6, address, e.data());
    for (int i = 0; i < 6; ++i) {
        e[16 + i] = static_cast<uint8_t>(macSeed + i);
        e[22 + i] = static_cast<uint8_t>(0xa0 + macSeed + i);
    }
    strncpy(reinterpret_cast<char *>(e.data() + 28), port, 39);
    memcpy(e.data() + 68, &index, 4);
    memcpy(e.data() + 72, &svlan, 4);
    memcpy(e.data() + 76, &cvlan, 4);
    return e;
}

std::string listing(const std::vector<uint8_t> &e, const char *address)
{
    char text[512];
    const uint8_t *m = e.data() + 16;
    const uint8_t *x = e.data() + 22;
    uint32_t index, svlan, cvlan;
    memcpy(&index, e.data() + 68, 4);
    memcpy(&svlan, e.data() + 72, 4);
    memcpy(&cvlan, e.data() + 76, 4);
    snprintf(text, sizeof text,
             "\nIssu host entry\n  ip: %s\n  index: %d\n    mac: %02x%02x.%02x%02x.%02x%02x"
             "\n    ethMac: %02x%02x.%02x%02x.%02x%02x\n    port: %s\n    svlan: %d\n    cvlan: %d\n",
             address, static_cast<int>(index), m[0], m[1], m[2], m[3], m[4], m[5], x[0], x[1], x[2], x[3], x[4], x[5],
             reinterpret_cast<const char *>(e.data() + 28), static_cast<int>(svlan), static_cast<int>(cvlan));
    return text;
}

class IssuTest : public ndtest::PlatformTest {
protected:
    void TearDown() override
    {
        nd_DbmLibIssuClose();
        EXPECT_EQ(ndplat::dbm_open_handles(), 0);
        ndtest::PlatformTest::TearDown();
    }

    void insertAll(const std::vector<std::vector<uint8_t>> &entries)
    {
        ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
        for (const auto &e : entries)
            ASSERT_EQ(nd_DbmLibIssuEntryInsert(e.data()), 0);
        nd_DbmLibIssuClose();
    }

public:
    std::string list(const std::vector<std::string> &words) { return show(words); }

protected:
    std::string show(const std::vector<std::string> &words)
    {
        ndtest::Stdout out;
        ndtest::run_handler(nd_CliDbmDiagnoseShowIssu, words);
        return out.take();
    }
};

const std::vector<std::string> kShowAll = {"show", "diagnose", "nd", "vxlan", "issu", "host"};

std::vector<std::string> showIndex(const char *id)
{
    return {"show", "diagnose", "nd", "vxlan", id, "issu", "host"};
}

TEST_F(IssuTest, OpenKeepsTheHandleAndCloseClearsIt)
{
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), nullptr);
    ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
    EXPECT_NE(nd_DbmLibIssuEcHandleGet(), nullptr);
    EXPECT_EQ(ndplat::trace_of("DBM_Open"),
              std::vector<std::string>{"DBM_Open(\"ec_nd_host_issu\", 1, {1, 1, 256, 0, 0, 0, 0}, 0, 0, ptr)"});
    nd_DbmLibIssuClose();
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), nullptr);
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
    nd_DbmLibIssuClose(); // nothing open: nothing to close
    EXPECT_EQ(ndplat::trace_of("DBM_Close").size(), 1u);
}

TEST_F(IssuTest, FailedOpenLogsAndLeavesTheHandleEmpty)
{
    ndplat::fault_inject("DBM_Open", 2);
    EXPECT_EQ(nd_DbmLibIssuOpen(), -1);
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), nullptr);
    auto log = ndplat::log_records();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].module, 296u);
    EXPECT_EQ(log[0].a2, 0u);
    EXPECT_EQ(log[0].a3, 8u);
    EXPECT_EQ(log[0].level, 4u);
    EXPECT_EQ(log[0].text, "DBM_ISSU_OPEN, Nd open issu ec dbm failed, ret=2.");
}

TEST_F(IssuTest, HandleAccessors)
{
    int marker = 0;
    nd_DbmLibIssuEcHandleSet(&marker);
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), &marker);
    nd_DbmLibIssuEcHandleSet(nullptr);
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), nullptr);
}

TEST_F(IssuTest, InsertWritesTheEntryUnderItsKey)
{
    auto e = entry("2001:db8::5", 5, "ge0/1", 10, 20);
    ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
    ASSERT_EQ(nd_DbmLibIssuEntryInsert(e.data()), 0);
    auto sets = ndplat::trace_of("DBM_SetUniqueBinary");
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(sets[0], "DBM_SetUniqueBinary(ptr, \"nd_issu_entry_5_2001:db8::5\", 27, 0, ptr, 80, 0)");
    const std::string key = "nd_issu_entry_5_2001:db8::5";
    std::vector<uint8_t> back(80, 0);
    DBM_HANDLE h = nd_DbmLibIssuEcHandleGet();
    EXPECT_EQ(DBM_GetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 0, back.data(), 80), 80);
    EXPECT_EQ(back, e);
}

TEST_F(IssuTest, InsertFailureIsLogged)
{
    auto e = entry("2001:db8::5", 5, "ge0/1", 10, 20);
    EXPECT_EQ(nd_DbmLibIssuEntryInsert(e.data()), -1); // no store open
    ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
    ndplat::fault_inject("DBM_SetUniqueBinary", -7);
    EXPECT_EQ(nd_DbmLibIssuEntryInsert(e.data()), -1);
    auto log = ndplat::log_records();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].text, "DBM_ISSU_ENTRY, Dbm issu entry insert ec error <-1>.");
    EXPECT_EQ(log[1].text, "DBM_ISSU_ENTRY, Dbm issu entry insert ec error <-7>.");
    EXPECT_EQ(nd_DbmLibIssuEntryInsert(nullptr), -1);
}

TEST_F(IssuTest, SaveGoesToFlashWithTheOtherArguments)
{
    EXPECT_EQ(nd_DbmLibSaveIssu("/elsewhere", 7, 8, 9), 0);
    EXPECT_EQ(ndplat::trace_of("DBM_Save"), std::vector<std::string>{"DBM_Save(\"/flash\", 7, 8, 9)"});
    ndplat::fault_inject("DBM_Save", -1);
    EXPECT_EQ(nd_DbmLibSaveIssu(nullptr, 1, 2, 3), -1);
    auto log = ndplat::log_records();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, "DBM_ISSU_ENTRY, Save issu dbm ec error <-1>.");
}

TEST_F(IssuTest, ListingWithFilterShowsOnlyThatIndex)
{
    auto five = entry("2001:db8::5", 5, "ge0/5", 100, 200, 0x50);
    auto seven = entry("2001:db8::7", 7, "ge0/7", 0, 0, 0x70);
    insertAll({five, seven});
    EXPECT_EQ(show(showIndex("5")), listing(five, "2001:db8::5") + "\nTotal issu host entry: 1");
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreOrientOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreBreakOutput").size(), 1u);
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
    EXPECT_EQ(nd_DbmLibIssuEcHandleGet(), nullptr); // closed after the walk
}

TEST_F(IssuTest, ListingWithoutFilterShowsEveryEntryInKeyOrder)
{
    auto five = entry("2001:db8::5", 5, "ge0/5", 100, 200, 0x50);
    auto seven = entry("2001:db8::7", 7, "ag3", 1, 2, 0x70);
    insertAll({seven, five});
    EXPECT_EQ(show(kShowAll),
              listing(five, "2001:db8::5") + listing(seven, "2001:db8::7") + "\nTotal issu host entry: 2");
    // Zero given as the index also means every entry.
    EXPECT_EQ(show(showIndex("0")),
              listing(five, "2001:db8::5") + listing(seven, "2001:db8::7") + "\nTotal issu host entry: 2");
}

TEST_F(IssuTest, EmptyStoreListsATotalOfZero)
{
    EXPECT_EQ(show(kShowAll), "\nTotal issu host entry: 0");
}

TEST_F(IssuTest, StoreThatCannotBeOpenedPrintsNoEntriesAndNoTotal)
{
    insertAll({entry("2001:db8::5", 5, "ge0/5", 1, 2)});
    ndplat::fault_inject("DBM_Open", 2);
    EXPECT_EQ(show(kShowAll), "");
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreOrientOutput").size(), 1u);
    EXPECT_TRUE(ndplat::trace_of("SHELL_MoreBreakOutput").empty());
    EXPECT_EQ(ndplat::trace_of("SHELL_MoreFormatOutput").size(), 1u);
}

TEST_F(IssuTest, SameIndexAndAddressOverwrite)
{
    auto first = entry("2001:db8::5", 5, "ge0/1", 1, 1, 0x11);
    auto second = entry("2001:db8::5", 5, "ge0/2", 2, 2, 0x22);
    auto otherIndex = entry("2001:db8::5", 6, "ge0/3", 3, 3, 0x33);
    insertAll({first, second, otherIndex});
    EXPECT_EQ(show(kShowAll), listing(second, "2001:db8::5") + listing(otherIndex, "2001:db8::5") +
                                  "\nTotal issu host entry: 2");
}

TEST_F(IssuTest, HandlerRefusesNullContextAndFailedOpen)
{
    EXPECT_EQ(nd_DbmLibIssuHandler(nullptr), -1);
    EXPECT_TRUE(ndplat::trace_of("DBM_Open").empty());
    ndplat::fault_inject("DBM_Open", 1);
    NdDbmLibIssuIterCtx ctx = {ndCliDbmShowIssuCb, nullptr};
    EXPECT_EQ(nd_DbmLibIssuHandler(&ctx), -1);
}

int32_t countEntries(const void *, void *arg)
{
    ++*static_cast<int *>(arg);
    return 0;
}

TEST_F(IssuTest, IterateCallbackChecksItsArguments)
{
    ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
    DBM_HANDLE h = nd_DbmLibIssuEcHandleGet();
    int count = 0;
    NdDbmLibIssuIterCtx ctx = {countEntries, &count};
    NdDbmLibIssuIterCtx noCallback = {nullptr, &count};
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(nullptr, "k", 1, &ctx), 15);
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, nullptr, 1, &ctx), 15);
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, "k", 1, nullptr), 15);
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, "k", 1, &noCallback), 15);
    // A key that is not there is skipped.
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, "k", 1, &ctx), 0);
    EXPECT_EQ(count, 0);
    // A short value is read into a zeroed 80-byte entry.
    uint8_t shortValue[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(DBM_SetUniqueBinary(h, "k", 1, 0, shortValue, 8, 0), 0);
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, "k", 1, &ctx), 0);
    EXPECT_EQ(count, 1);
    ndplat::fault_inject("DBM_GetUniqueBinary", 0);
    EXPECT_EQ(ndDbmLibIssuIterateKeyCb(h, "k", 1, &ctx), 0);
    EXPECT_EQ(count, 1);
}

// Insert, save to flash, walk back and list with a filter, on one storage of the database.
void roundTrip(IssuTest &test, ndplat::DbmStorage storage, const char *dir);

TEST_F(IssuTest, RoundTripOnSqliteWithSaveToFlash)
{
    if (!ndplat::dbm_storage_available(ndplat::DbmStorage::Sqlite))
        GTEST_SKIP() << "SQLite storage is not built in";
    char dir[] = "/tmp/nd-issu-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    roundTrip(*this, ndplat::DbmStorage::Sqlite, dir);
    EXPECT_TRUE(std::filesystem::exists(std::string(dir) + "/ec_nd_host_issu.db"));
    ndplat::reset(); // back to the memory storage before the directory goes
    std::filesystem::remove_all(dir);
}

TEST_F(IssuTest, RoundTripInMemoryWithSaveToFlash)
{
    roundTrip(*this, ndplat::DbmStorage::Memory, nullptr);
}

void roundTrip(IssuTest &test, ndplat::DbmStorage storage, const char *dir)
{
    if (dir)
        ndplat::dbm_state_dir_set(dir);
    ASSERT_TRUE(ndplat::dbm_storage_set(storage));

    std::vector<std::vector<uint8_t>> entries;
    for (uint32_t i = 1; i <= 50; ++i) {
        char address[64];
        snprintf(address, sizeof address, "2001:db8::%x", i);
        entries.push_back(entry(address, i % 3 + 1, "ge0/1", i, i + 1000, static_cast<uint8_t>(i)));
    }
    ASSERT_EQ(nd_DbmLibIssuOpen(), 0);
    for (const auto &e : entries)
        ASSERT_EQ(nd_DbmLibIssuEntryInsert(e.data()), 0);
    ASSERT_EQ(nd_DbmLibSaveIssu(nullptr, 0, 0, 0), 0);
    nd_DbmLibIssuClose();

    const std::string key = "nd_issu_entry_2_2001:db8::1";
    auto saved = ndplat::dbm_saved_value("/flash", "ec_nd_host_issu", key.data(), static_cast<uint16_t>(key.size()));
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(*saved, entries[0]);

    // Walk everything back, then only index 2.
    struct Seen {
        std::vector<std::vector<uint8_t>> all;
    } seen;
    NdDbmLibIssuIterCtx ctx = {[](const void *e, void *arg) -> int32_t {
                                   const uint8_t *p = static_cast<const uint8_t *>(e);
                                   static_cast<Seen *>(arg)->all.emplace_back(p, p + 80);
                                   return 0;
                               },
                               &seen};
    ASSERT_EQ(nd_DbmLibIssuHandler(&ctx), 0);
    ASSERT_EQ(seen.all.size(), entries.size());
    std::sort(seen.all.begin(), seen.all.end());
    auto sorted = entries;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(seen.all, sorted);

    std::string text = test.list(showIndex("2"));
    size_t expected = 0;
    for (const auto &e : entries) {
        uint32_t index;
        memcpy(&index, e.data() + 68, 4);
        expected += index == 2;
    }
    EXPECT_EQ(text.substr(text.rfind("\nTotal")), "\nTotal issu host entry: " + std::to_string(expected));
    EXPECT_NE(text.find(listing(entries[0], "2001:db8::1")), std::string::npos);
}

class IssuCommandTest : public ndtest::PlatformTest {};

TEST_F(IssuCommandTest, BackupAndRecoverSendTheirSelector)
{
    struct Case {
        const char *action;
        uint32_t selector;
    } cases[] = {{"backup", 1}, {"recover", 2}, {"b", 1}, {"rec", 2}};
    for (const Case &c : cases) {
        ndplat::reset();
        ndplat::cmf_script(ndplat::CmfResponse{});
        ndtest::Stdout out;
        ndtest::run_handler(ndCliVxlanHostIssu, {"ipv6", "nd", "host", "issu", c.action});
        EXPECT_EQ(out.take(), "");
        auto requests = ndplat::cmf_requests();
        ASSERT_EQ(requests.size(), 1u) << c.action;
        EXPECT_EQ(requests[0].cmdCode, 25u);
        EXPECT_EQ(requests[0].optKind, 3u);
        EXPECT_EQ(requests[0].argIndex, 0u);
        ASSERT_EQ(requests[0].items.size(), 1u);
        EXPECT_EQ(requests[0].items[0].type, 21u);
        EXPECT_EQ(requests[0].items[0].length, 4u);
        EXPECT_EQ(requests[0].items[0].bytes, ndtest::u32_bytes(c.selector));
        EXPECT_TRUE(ndplat::trace_of("DCM_Start").empty());
    }
}

TEST_F(IssuCommandTest, OtherLetterEndsSilently)
{
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostIssu, {"ipv6", "nd", "host", "issu", "Backup"});
    EXPECT_EQ(out.take(), "");
    EXPECT_TRUE(ndplat::cmf_requests().empty());
}

TEST_F(IssuCommandTest, AnyFailureSaysNotBackedUp)
{
    for (const char *action : {"backup", "recover"}) {
        ndplat::reset();
        ndplat::CmfResponse failed;
        failed.status = 47;
        ndplat::cmf_script(failed);
        ndtest::Stdout out;
        ndtest::run_handler(ndCliVxlanHostIssu, {"ipv6", "nd", "host", "issu", action});
        EXPECT_EQ(out.take(), "\nIpv6 nd host has not been backed up!\n") << action;
    }
    ndplat::reset();
    ndplat::fault_inject("CMF_ClientContextInit", 0);
    ndtest::Stdout out;
    ndtest::run_handler(ndCliVxlanHostIssu, {"ipv6", "nd", "host", "issu", "backup"});
    EXPECT_EQ(out.take(), "\nIpv6 nd host has not been backed up!\n");
}

} // namespace
