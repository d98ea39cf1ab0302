// The configuration database of the emulated platform, against both storages: records, key
// order, sorted lists and their iterators, saving, handles, trace and fault injection.
#include <string>
#include <vector>

#include "dbm_fixture.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

std::string get(DBM_HANDLE h, const std::string &key, uint32_t bufLen = 256)
{
    std::string buf(bufLen, '\0');
    int32_t n = DBM_GetUniqueBinary(h, key.data(), static_cast<uint16_t>(key.size()), 0, buf.data(), bufLen);
    return n < 0 ? "<error>" : buf.substr(0, static_cast<size_t>(n));
}

int32_t len(DBM_HANDLE h, const std::string &key)
{
    return DBM_GetLen(h, key.data(), static_cast<uint16_t>(key.size()));
}

Record entry(uint32_t sortWord, const char *text, uint32_t size = 24)
{
    // The sort key is the first 4 bytes, big-endian so that it sorts numerically.
    std::vector<uint8_t> be = {static_cast<uint8_t>(sortWord >> 24), static_cast<uint8_t>(sortWord >> 16),
                               static_cast<uint8_t>(sortWord >> 8), static_cast<uint8_t>(sortWord)};
    return std::move(Record(size).bytes(0, be).text(4, text));
}

uint32_t sortWordOf(const uint8_t *p)
{
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

struct Walk {
    std::vector<std::string> keys;
    DBM_HANDLE writeThrough = nullptr;
};

int32_t collect(DBM_HANDLE h, const void *key, uint16_t keyLen, void *arg)
{
    auto *walk = static_cast<Walk *>(arg);
    walk->keys.emplace_back(static_cast<const char *>(key), keyLen);
    if (walk->writeThrough) {
        std::string copy = "copy-" + walk->keys.back();
        DBM_SetUniqueBinary(h, copy.data(), static_cast<uint16_t>(copy.size()), 1, "x", 1, 0);
    }
    return 99; // the walk goes on whatever the callback returns
}

// Reads a list through one iterator, `count` entries per call, until it ends; the sort words
// in order.
std::vector<uint32_t> readAll(DBM_HANDLE h, const std::string &key, uint32_t count, int *calls = nullptr)
{
    std::vector<uint32_t> words;
    void *it = nullptr;
    std::vector<uint8_t> buf(count * 24);
    int n;
    int c = 0;
    while ((n = DBM_GetBulkFromSortList(h, key.data(), static_cast<uint16_t>(key.size()), &it, 0, 0, count,
                                        buf.data(), 24)) > 0) {
        ++c;
        for (int i = 0; i < n; ++i)
            words.push_back(sortWordOf(buf.data() + i * 24));
    }
    ++c;
    DBM_FreeIterator(it);
    if (calls)
        *calls = c;
    return words;
}

using DatabaseTest = dbmtest::StorageTest;

TEST_P(DatabaseTest, RecordsAreWrittenReadAndReplaced)
{
    Writer w;
    DBM_HANDLE h = w.handle();
    EXPECT_EQ(len(h, "a"), 0) << "absent";
    EXPECT_EQ(get(h, "a"), "");
    w.put("a", 3, "hello", 5);
    EXPECT_EQ(len(h, "a"), 5);
    EXPECT_EQ(get(h, "a"), "hello");
    EXPECT_EQ(get(h, "a", 2), "he") << "cut at the buffer length";
    w.put("a", 4, "bye", 3);
    EXPECT_EQ(get(h, "a"), "bye");
    Walk walk;
    DBM_Proc(h, 3, collect, &walk);
    EXPECT_TRUE(walk.keys.empty()) << "the value type was replaced too";
    DBM_Proc(h, 4, collect, &walk);
    EXPECT_EQ(walk.keys, std::vector<std::string>{"a"});
    EXPECT_EQ(DBM_Delete(h, "a", 1), 0);
    EXPECT_EQ(len(h, "a"), 0);
    EXPECT_EQ(DBM_Delete(h, "a", 1), 0) << "nothing to remove";
}

TEST_P(DatabaseTest, KeysAreBytesAndZeroLengthValuesExist)
{
    Writer w;
    const std::string binaryKey("k\0\xff", 3);
    w.put(binaryKey, 1, "v", 1);
    w.put("k", 1, nullptr, 0);
    EXPECT_EQ(get(w.handle(), binaryKey), "v");
    EXPECT_EQ(len(w.handle(), "k"), 0);
    Walk walk;
    DBM_Proc(w.handle(), 1, collect, &walk);
    EXPECT_EQ(walk.keys, (std::vector<std::string>{"k", binaryKey}));
}

TEST_P(DatabaseTest, ProcWalksOneValueTypeInKeyOrder)
{
    Writer w;
    for (const char *k : {"vlan 2", "vlan 10", "vlan 1", "vlan 100", "b", "\x80high", "other"})
        w.putU32(k, std::string(k) == "other" ? 7 : 6, 1);
    Walk walk;
    EXPECT_EQ(DBM_Proc(w.handle(), 6, collect, &walk), 0);
    EXPECT_EQ(walk.keys, (std::vector<std::string>{"b", "vlan 1", "vlan 10", "vlan 100", "vlan 2", "\x80high"}));
    Walk none;
    EXPECT_EQ(DBM_Proc(w.handle(), 8, collect, &none), 0);
    EXPECT_TRUE(none.keys.empty());
}

TEST_P(DatabaseTest, ProcCallbackMayWriteThroughTheSameHandle)
{
    Writer w;
    w.putU32("one", 6, 1);
    w.putU32("two", 6, 2);
    Walk walk;
    walk.writeThrough = w.handle();
    EXPECT_EQ(DBM_Proc(w.handle(), 6, collect, &walk), 0);
    EXPECT_EQ(walk.keys, (std::vector<std::string>{"one", "two"})) << "records present when the walk started";
    EXPECT_EQ(get(w.handle(), "copy-one"), "x");
}

TEST_P(DatabaseTest, BadArgumentsAndClosedHandles)
{
    const uint32_t params[7] = {1, 1, 256, 0, 0, 0, 0};
    DBM_HANDLE h = nullptr;
    EXPECT_EQ(DBM_Open(nullptr, 1, params, 0, 0, &h), 1u);
    EXPECT_EQ(DBM_Open("../escape", 1, params, 0, 0, &h), 1u);
    EXPECT_EQ(DBM_Open("ec_nd", 1, params, 0, 0, nullptr), 1u);
    EXPECT_EQ(h, nullptr);
    ASSERT_EQ(DBM_Open("ec_nd", 1, params, 0, 0, &h), 0u);
    EXPECT_EQ(DBM_GetLen(h, nullptr, 3), -1);
    EXPECT_EQ(DBM_GetLen(h, "k", 0), -1);
    EXPECT_EQ(DBM_SetUniqueBinary(h, "k", 1, 0, nullptr, 4, 0), -1);
    EXPECT_EQ(DBM_Proc(h, 0, nullptr, nullptr), -1);
    EXPECT_EQ(DBM_Close(h), 0u);
    EXPECT_EQ(DBM_Close(h), 1u) << "closed already";
    EXPECT_EQ(DBM_GetLen(h, "k", 1), -1);
    EXPECT_EQ(DBM_SetUniqueBinary(h, "k", 1, 0, "v", 1, 0), -1);
    Walk walk;
    EXPECT_EQ(DBM_Proc(h, 0, collect, &walk), -1);
    EXPECT_EQ(DBM_Close(nullptr), 1u);
}

TEST_P(DatabaseTest, HandlesAndDatabasesShareAndSeparate)
{
    Writer a;
    Writer b;
    Writer issu("ec_nd_host_issu");
    a.putU32("k", 1, 5);
    EXPECT_EQ(len(b.handle(), "k"), 4) << "another handle on the same database sees the write";
    EXPECT_EQ(len(issu.handle(), "k"), 0) << "another database does not";
    EXPECT_EQ(ndplat::dbm_open_handles(), 3);
}

TEST_P(DatabaseTest, CallsAreTracedAndFaultsInjected)
{
    Writer w;
    w.putU32("k", 1, 5);
    ndplat::trace_clear();
    ndplat::fault_inject("DBM_GetLen", -7, 2);
    EXPECT_EQ(len(w.handle(), "k"), -7);
    EXPECT_EQ(len(w.handle(), "k"), -7);
    EXPECT_EQ(len(w.handle(), "k"), 4);
    char buf[4];
    DBM_GetUniqueBinary(w.handle(), "k\x01", 2, 0, buf, 4);
    EXPECT_EQ(ndplat::trace(), (std::vector<std::string>{"DBM_GetLen(ptr, \"k\", 1)", "DBM_GetLen(ptr, \"k\", 1)",
                                                         "DBM_GetLen(ptr, \"k\", 1)",
                                                         "DBM_GetUniqueBinary(ptr, 0x6b01, 2, 0, ptr, 4)"}));
    ndplat::fault_inject("DBM_Open", 9);
    DBM_HANDLE h = nullptr;
    EXPECT_EQ(DBM_Open("ec_nd", 1, nullptr, 0, 0, &h), 9u);
    EXPECT_EQ(h, nullptr);
    EXPECT_EQ(ndplat::trace_of("DBM_Open").back(), "DBM_Open(\"ec_nd\", 1, null, 0, 0, ptr)");
}

TEST_P(DatabaseTest, SortedListKeepsEntriesInSortKeyOrderAndReplacesEqualKeys)
{
    Writer w;
    for (uint32_t k : {30u, 10u, 0x01000000u, 20u})
        w.listAdd("list", 2, entry(k, "first"), 4);
    w.listAdd("list", 2, entry(20, "second"), 4);
    DBM_HANDLE h = w.handle();
    EXPECT_EQ(len(h, "list"), 4 * 24);
    std::string all = get(h, "list", 1000);
    ASSERT_EQ(all.size(), 96u);
    const auto *p = reinterpret_cast<const uint8_t *>(all.data());
    EXPECT_EQ(sortWordOf(p), 10u);
    EXPECT_EQ(sortWordOf(p + 24), 20u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(p + 28)), "second");
    EXPECT_EQ(sortWordOf(p + 48), 30u);
    EXPECT_EQ(sortWordOf(p + 72), 0x01000000u);
    EXPECT_EQ(get(h, "list", 30).size(), 30u);
    Walk walk;
    DBM_Proc(h, 2, collect, &walk);
    EXPECT_EQ(walk.keys, std::vector<std::string>{"list"});
}

TEST_P(DatabaseTest, SortedListRefusesOtherShapesAndDisappearsWhenEmpty)
{
    Writer w;
    DBM_HANDLE h = w.handle();
    w.listAdd("list", 2, entry(1, "a"), 4);
    Record other = entry(2, "b", 32);
    EXPECT_EQ(DBM_AddToSortList(h, "list", 4, 2, other.data(), 32, 4), -1) << "other entry size";
    Record e = entry(2, "b");
    EXPECT_EQ(DBM_AddToSortList(h, "list", 4, 2, e.data(), 24, 8), -1) << "other sort-key length";
    EXPECT_EQ(DBM_AddToSortList(h, "list", 4, 2, e.data(), 24, 25), -1) << "sort key longer than the entry";
    w.putU32("plain", 2, 1);
    EXPECT_EQ(DBM_AddToSortList(h, "plain", 5, 2, e.data(), 24, 4), -1) << "not a list";
    w.listAdd("list", 2, e, 4);
    EXPECT_EQ(DBM_DelFromSortList(h, "list", 4, entry(1, "").data(), 4), 0);
    EXPECT_EQ(len(h, "list"), 24);
    EXPECT_EQ(DBM_DelFromSortList(h, "list", 4, entry(7, "").data(), 4), 0) << "absent entry";
    EXPECT_EQ(DBM_DelFromSortList(h, "list", 4, entry(2, "").data(), 4), 0);
    EXPECT_EQ(len(h, "list"), 0);
    Walk walk;
    DBM_Proc(h, 2, collect, &walk);
    EXPECT_EQ(walk.keys, std::vector<std::string>{"plain"}) << "the empty list is gone";
    // Writing a plain value over a list replaces it.
    w.listAdd("list", 2, entry(1, "a"), 4);
    w.put("list", 2, "v", 1);
    EXPECT_EQ(get(h, "list"), "v");
    EXPECT_EQ(readAll(h, "list", 5), std::vector<uint32_t>{});
}

TEST_P(DatabaseTest, IteratorReadsInBulkUntilAZeroReturn)
{
    Writer w;
    for (uint32_t k = 1; k <= 12; ++k)
        w.listAdd("list", 2, entry(k * 10, "e"), 4);
    int calls = 0;
    std::vector<uint32_t> expected;
    for (uint32_t k = 1; k <= 12; ++k)
        expected.push_back(k * 10);
    EXPECT_EQ(readAll(w.handle(), "list", 5, &calls), expected);
    EXPECT_EQ(calls, 4) << "5, 5, 2, 0";
    EXPECT_EQ(readAll(w.handle(), "list", 12, &calls), expected);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(readAll(w.handle(), "nolist", 5, &calls), std::vector<uint32_t>{});
    EXPECT_EQ(calls, 1);
}

TEST_P(DatabaseTest, IteratorOverAListThatChanges)
{
    Writer w;
    DBM_HANDLE h = w.handle();
    for (uint32_t k : {10u, 20u, 30u, 40u, 50u, 60u})
        w.listAdd("list", 2, entry(k, "e"), 4);
    void *it = nullptr;
    uint8_t buf[3 * 24];
    ASSERT_EQ(DBM_GetBulkFromSortList(h, "list", 4, &it, 0, 0, 3, buf, 24), 3);
    EXPECT_EQ(sortWordOf(buf + 48), 30u);
    // Behind the position: 35 added, 40 removed, 20 (already read) replaced, 5 added before.
    w.listAdd("list", 2, entry(35, "new"), 4);
    EXPECT_EQ(DBM_DelFromSortList(h, "list", 4, entry(40, "").data(), 4), 0);
    w.listAdd("list", 2, entry(20, "again"), 4);
    w.listAdd("list", 2, entry(5, "before"), 4);
    std::vector<uint32_t> rest;
    int n;
    while ((n = DBM_GetBulkFromSortList(h, "list", 4, &it, 0, 0, 3, buf, 24)) > 0)
        for (int i = 0; i < n; ++i)
            rest.push_back(sortWordOf(buf + i * 24));
    EXPECT_EQ(rest, (std::vector<uint32_t>{35, 50, 60}));
    DBM_FreeIterator(it);
}

TEST_P(DatabaseTest, IteratorOutlivesItsHandleAndCopiesAtMostTheEntrySize)
{
    Writer w;
    w.listAdd("list", 2, entry(1, "abcdefgh"), 4);
    w.listAdd("list", 2, entry(2, "ijklmnop"), 4);
    void *it = nullptr;
    uint8_t small[2 * 6];
    memset(small, 0xEE, sizeof small);
    {
        Writer r;
        ASSERT_EQ(DBM_GetBulkFromSortList(r.handle(), "list", 4, &it, 0, 0, 1, small, 6), 1);
    }
    EXPECT_EQ(std::string(reinterpret_cast<char *>(small + 4), 2), "ab");
    EXPECT_EQ(small[6], 0xEE);
    ASSERT_EQ(DBM_GetBulkFromSortList(w.handle(), "list", 4, &it, 0, 0, 2, small, 6), 1);
    EXPECT_EQ(sortWordOf(small), 2u);
    EXPECT_EQ(ndplat::dbm_live_iterators(), 1);
    DBM_FreeIterator(it);
    DBM_FreeIterator(nullptr);
    EXPECT_EQ(ndplat::dbm_live_iterators(), 0);
    EXPECT_EQ(DBM_GetBulkFromSortList(w.handle(), "list", 4, nullptr, 0, 0, 2, small, 6), -1);
    void *freed = it;
    EXPECT_EQ(DBM_GetBulkFromSortList(w.handle(), "list", 4, &freed, 0, 0, 2, small, 6), -1) << "a freed iterator";
}

TEST_P(DatabaseTest, SaveCopiesAConsistentSnapshot)
{
    {
        Writer w;
        w.putU32("k", 1, 1);
        w.listAdd("list", 2, entry(1, "a"), 4);
        Writer issu("ec_nd_host_issu");
        issu.put("nd_issu_entry_1_::1", 0, Record(80).text(0, "entry"));
    }
    EXPECT_EQ(DBM_Save("/flash", 0, 0, 0), 0);
    {
        Writer w;
        w.putU32("k", 1, 2);
    }
    uint32_t one = 1;
    auto saved = ndplat::dbm_saved_value("/flash", "ec_nd", "k", 1);
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(*saved, std::vector<uint8_t>(reinterpret_cast<uint8_t *>(&one), reinterpret_cast<uint8_t *>(&one) + 4));
    EXPECT_EQ(ndplat::dbm_saved_value("/flash", "ec_nd", "list", 4)->size(), 24u);
    auto issu = ndplat::dbm_saved_value("/flash", "ec_nd_host_issu", "nd_issu_entry_1_::1", 19);
    ASSERT_TRUE(issu.has_value());
    EXPECT_EQ(issu->size(), 80u);
    EXPECT_FALSE(ndplat::dbm_saved_value("/flash", "ec_nd", "absent", 6).has_value());
    EXPECT_FALSE(ndplat::dbm_saved_value("/other", "ec_nd", "k", 1).has_value());
    if (GetParam() == ndplat::DbmStorage::Sqlite) {
        EXPECT_TRUE(std::filesystem::exists(stateDir() + "/flash/ec_nd.db"));
        EXPECT_TRUE(std::filesystem::exists(stateDir() + "/flash/ec_nd_host_issu.db"));
        EXPECT_FALSE(std::filesystem::exists(stateDir() + "/flash/ec_nd.db.tmp"));
    }
    EXPECT_EQ(DBM_Save("/flash", 0, 0, 0), 0);
    saved = ndplat::dbm_saved_value("/flash", "ec_nd", "k", 1);
    ASSERT_TRUE(saved.has_value());
    ASSERT_EQ(saved->size(), 4u);
    uint32_t two = 0;
    memcpy(&two, saved->data(), 4);
    EXPECT_EQ(two, 2u) << "a second save replaces the copy";
    EXPECT_EQ(DBM_Save("/../outside", 0, 0, 0), -1);
    EXPECT_EQ(DBM_Save("", 0, 0, 0), -1);
    EXPECT_EQ(DBM_Save(nullptr, 0, 0, 0), -1);
}

TEST_P(DatabaseTest, ResetForgetsHandlesIteratorsAndMemoryRecords)
{
    const uint32_t params[7] = {1, 1, 256, 0, 0, 0, 0};
    DBM_HANDLE h = nullptr;
    ASSERT_EQ(DBM_Open("ec_nd", 1, params, 0, 0, &h), 0u);
    DBM_SetUniqueBinary(h, "k", 1, 0, "v", 1, 0);
    DBM_AddToSortList(h, "l", 1, 2, "abcd", 4, 4);
    void *it = nullptr;
    char buf[4];
    DBM_GetBulkFromSortList(h, "l", 1, &it, 0, 0, 1, buf, 4);
    ndplat::reset();
    EXPECT_EQ(ndplat::dbm_open_handles(), 0);
    EXPECT_EQ(ndplat::dbm_live_iterators(), 0);
    EXPECT_EQ(ndplat::dbm_storage(), ndplat::DbmStorage::Memory);
    EXPECT_EQ(DBM_GetLen(h, "k", 1), -1) << "a forgotten handle is refused, not used";
    Writer w;
    EXPECT_EQ(len(w.handle(), "k"), 0) << "reset starts on an empty memory storage";
}

INSTANTIATE_TEST_SUITE_P(Storages, DatabaseTest, ::testing::ValuesIn(dbmtest::storages()), dbmtest::storageName);

TEST(DatabaseStateDir, EnvironmentAndOverride)
{
    ndplat::reset();
    const char *old = getenv("NDSIM_STATE");
    std::string saved = old ? old : "";
    unsetenv("NDSIM_STATE");
    EXPECT_EQ(ndplat::dbm_state_dir(), "./ndsim-state");
    setenv("NDSIM_STATE", "/tmp/somewhere", 1);
    EXPECT_EQ(ndplat::dbm_state_dir(), "/tmp/somewhere");
    ndplat::dbm_state_dir_set("/tmp/other");
    EXPECT_EQ(ndplat::dbm_state_dir(), "/tmp/other");
    ndplat::dbm_state_dir_set("");
    EXPECT_EQ(ndplat::dbm_state_dir(), "/tmp/somewhere");
    if (old)
        setenv("NDSIM_STATE", saved.c_str(), 1);
    else
        unsetenv("NDSIM_STATE");
    ndplat::reset();
}

} // namespace
