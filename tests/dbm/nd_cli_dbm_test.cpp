// The database session cache, against both storages of the configuration database.
#include <cstring>
#include <string>
#include <vector>

#include "../database/dbm_fixture.h"
#include "dbm/nd_cli_dbm_internal.h"
#include "dbm_cache_scope.h"

namespace {

using dbmtest::Record;
using dbmtest::Writer;

std::vector<std::string> dbmAndLockCalls()
{
    std::vector<std::string> out;
    for (const std::string &line : ndplat::trace())
        if (line.rfind("DBM_", 0) == 0 || line.rfind("gnl_sem_", 0) == 0)
            out.push_back(line);
    return out;
}

Record vlanRecord(uint16_t vlan)
{
    return std::move(Record(56).u16(12, vlan).u32(0, 0xA0000000u | vlan));
}

class DbmCacheTest : public dbmtest::StorageTest {
protected:
    void TearDown() override
    {
        dbmcache::drop();
        dbmtest::StorageTest::TearDown();
    }
    static int32_t lookup(uint32_t session, const std::string &key, void *buf, uint32_t len, uint32_t type = 6)
    {
        return nd_CliDbmGetUniqueBinary(session, type, key.data(), static_cast<uint16_t>(key.size()), buf, len);
    }
    static std::string diagnose(int32_t *result)
    {
        ndtest::Stdout out;
        *result = nd_CliDbmDiagnoseShow();
        return out.take();
    }
};

TEST_P(DbmCacheTest, LookupBeforeAnyPullIsMinusOneAndForAnUnpulledSessionZero)
{
    uint8_t buf[56];
    EXPECT_EQ(lookup(1, "vlan 1", buf, sizeof buf), -1);
    EXPECT_TRUE(ndplat::trace_of("gnl_sem_take").empty()) << "no lock before initialisation";
    EXPECT_EQ(nd_CliDbmSessPull(7, 6), 0);
    EXPECT_EQ(lookup(8, "vlan 1", buf, sizeof buf), 0);
    EXPECT_EQ(lookup(7, "vlan 1", buf, sizeof buf, 5), 0) << "same session, other value type";
}

TEST_P(DbmCacheTest, PullReadsEveryRecordOfTheTypeUnderTheMutexAndOpensOnce)
{
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
        w.put("vlan 2", 6, vlanRecord(2));
        w.putU32("snooping", 3, 1);
    }
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessPull(42, 6), 0);
    EXPECT_EQ(dbmAndLockCalls(), (std::vector<std::string>{
                                     "gnl_sem_mutex_init(\"gNdCliDbmCtl.mutex\", ptr)",
                                     "gnl_sem_take(ptr, 0)",
                                     "DBM_Open(\"ec_nd\", 1, {1, 1, 256, 0, 0, 0, 0}, 0, 0, ptr)",
                                     "DBM_Proc(ptr, 6, ptr, ptr)",
                                     "DBM_GetLen(ptr, \"vlan 1\", 6)",
                                     "DBM_GetUniqueBinary(ptr, \"vlan 1\", 6, 0, ptr, 56)",
                                     "DBM_GetLen(ptr, \"vlan 2\", 6)",
                                     "DBM_GetUniqueBinary(ptr, \"vlan 2\", 6, 0, ptr, 56)",
                                     "DBM_Close(ptr)",
                                     "gnl_sem_give(ptr)",
                                 }));
    // One allocation per record: header, key and data together.
    std::vector<std::string> mallocs = ndplat::trace_of("__UMV2L_malloc");
    ASSERT_EQ(mallocs.size(), 5u);
    EXPECT_EQ(mallocs[0], "__UMV2L_malloc(" + std::to_string(16 * sizeof(void *)) + ")");
    EXPECT_EQ(mallocs[1], "__UMV2L_malloc(" + std::to_string(sizeof(NdCliDbmSess)) + ")");
    EXPECT_EQ(mallocs[2], "__UMV2L_malloc(" + std::to_string(512 * sizeof(void *)) + ")");
    EXPECT_EQ(mallocs[3], "__UMV2L_malloc(" + std::to_string(sizeof(NdCliDbmRecord) + 6 + 56) + ")");
    EXPECT_EQ(mallocs[4], mallocs[3]);

    uint8_t buf[56] = {};
    EXPECT_EQ(lookup(42, "vlan 2", buf, sizeof buf), 56);
    Record expected = vlanRecord(2);
    EXPECT_EQ(memcmp(buf, expected.data(), 56), 0);
    EXPECT_EQ(lookup(42, "snooping", buf, sizeof buf), 0) << "only the pulled value type is cached";
}

TEST_P(DbmCacheTest, PullingTheSameSessionTwiceReadsTheDatabaseOnce)
{
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
    }
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessPull(3, 6), 0);
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(99)); // an existing copy is never refreshed
    }
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessPull(3, 6), 0);
    EXPECT_EQ(dbmAndLockCalls(), (std::vector<std::string>{"gnl_sem_take(ptr, 0)", "gnl_sem_give(ptr)"}));
    uint8_t buf[56];
    EXPECT_EQ(lookup(3, "vlan 1", buf, sizeof buf), 56);
    uint16_t vlan;
    memcpy(&vlan, buf + 12, 2);
    EXPECT_EQ(vlan, 1);
}

TEST_P(DbmCacheTest, ShortBufferGetsTheBufferLengthLongBufferTheDataLength)
{
    {
        Writer w;
        w.put("vlan 5", 6, vlanRecord(5));
    }
    nd_CliDbmSessPull(1, 6);
    Record expected = vlanRecord(5);
    uint8_t small[10];
    memset(small, 0xEE, sizeof small);
    EXPECT_EQ(lookup(1, "vlan 5", small, 4), 4);
    EXPECT_EQ(memcmp(small, expected.data(), 4), 0);
    EXPECT_EQ(small[4], 0xEE) << "nothing beyond the buffer length";
    uint8_t big[100];
    memset(big, 0xEE, sizeof big);
    EXPECT_EQ(lookup(1, "vlan 5", big, sizeof big), 56);
    EXPECT_EQ(memcmp(big, expected.data(), 56), 0);
    EXPECT_EQ(big[56], 0xEE);
}

TEST_P(DbmCacheTest, LookupsHandOutCopies)
{
    {
        Writer w;
        w.put("vlan 5", 6, vlanRecord(5));
    }
    nd_CliDbmSessPull(1, 6);
    uint8_t buf[56];
    lookup(1, "vlan 5", buf, sizeof buf);
    memset(buf, 0, sizeof buf);
    uint8_t again[56];
    EXPECT_EQ(lookup(1, "vlan 5", again, sizeof again), 56);
    Record expected = vlanRecord(5);
    EXPECT_EQ(memcmp(again, expected.data(), 56), 0);
}

TEST_P(DbmCacheTest, EqualKeyBytesOfDifferentLengthsAreDifferentRecords)
{
    {
        Writer w;
        w.putU32("vlan 1", 6, 1);
        w.putU32("vlan 12", 6, 12);
        const char withNul[] = {'v', 'l', 'a', 'n', ' ', '1', '\0'};
        w.put(std::string(withNul, 7), 6, Record(4).u32(0, 100));
    }
    nd_CliDbmSessPull(2, 6);
    uint32_t v = 0;
    EXPECT_EQ(lookup(2, "vlan 1", &v, 4), 4);
    EXPECT_EQ(v, 1u);
    EXPECT_EQ(lookup(2, "vlan 12", &v, 4), 4);
    EXPECT_EQ(v, 12u);
    EXPECT_EQ(lookup(2, std::string("vlan 1\0", 7), &v, 4), 4);
    EXPECT_EQ(v, 100u);
    EXPECT_EQ(lookup(2, "vlan ", &v, 4), 0);
}

TEST_P(DbmCacheTest, FreeingBeforeTheFirstPullIsMinusOneAndAnUncachedSessionZero)
{
    EXPECT_EQ(nd_CliDbmSessFree(1, 6), -1);
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
    }
    nd_CliDbmSessPull(1, 6);
    int32_t result;
    std::string before = diagnose(&result);
    long allocations = ndplat::outstanding_allocations();
    EXPECT_EQ(nd_CliDbmSessFree(2, 6), 0);
    EXPECT_EQ(nd_CliDbmSessFree(1, 7), 0);
    EXPECT_EQ(ndplat::outstanding_allocations(), allocations);
    EXPECT_EQ(diagnose(&result), before);
    uint8_t buf[56];
    EXPECT_EQ(lookup(1, "vlan 1", buf, sizeof buf), 56);
}

TEST_P(DbmCacheTest, FreeReleasesEveryRecordAndTheSession)
{
    {
        Writer w;
        for (uint16_t v = 1; v <= 40; ++v)
            w.put("vlan " + std::to_string(v), 6, vlanRecord(v));
    }
    long before = ndplat::outstanding_allocations();
    nd_CliDbmSessPull(9, 6);
    nd_CliDbmSessPull(10, 6);
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessFree(9, 6), 0);
    // 40 records, the records table's buckets and the session entry.
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 42u);
    EXPECT_EQ(dbmAndLockCalls(), (std::vector<std::string>{"gnl_sem_take(ptr, 0)", "gnl_sem_give(ptr)"}));
    uint8_t buf[56];
    EXPECT_EQ(lookup(9, "vlan 1", buf, sizeof buf), 0);
    EXPECT_EQ(lookup(10, "vlan 40", buf, sizeof buf), 56);
    EXPECT_EQ(nd_CliDbmSessFree(10, 6), 0);
    // Only the sessions table's buckets stay (the cache lives as long as the plug-in).
    EXPECT_EQ(ndplat::outstanding_allocations(), before + 1);
}

TEST_P(DbmCacheTest, DiagnoseOfAnEmptyCacheAndOfASessionWithoutRecords)
{
    int32_t result = 0;
    EXPECT_EQ(diagnose(&result), "");
    EXPECT_EQ(result, -1) << "never initialised";
    nd_CliDbmSessPull(5, 6);
    nd_CliDbmSessFree(5, 6);
    EXPECT_EQ(diagnose(&result), "");
    EXPECT_EQ(result, 0);
    nd_CliDbmSessPull(5, 6);
    EXPECT_EQ(diagnose(&result), "\n  sessId:5, valueType:6\n");
    EXPECT_EQ(result, 0);
}

TEST_P(DbmCacheTest, DiagnoseListsLengthsOnly)
{
    {
        Writer w;
        w.put("vlan 7", 6, vlanRecord(7));
        w.put("k", 6, Record(3).u16(0, 9));
    }
    nd_CliDbmSessPull(11, 6);
    int32_t result = 0;
    std::string text = diagnose(&result);
    EXPECT_EQ(result, 0);
    // Record order follows the record hashes; both orders are listed here, computed from them.
    uint32_t bucketK = gnl_hash_value("k", 1, 0) % 512;
    uint32_t bucketVlan = gnl_hash_value("vlan 7", 6, 0) % 512;
    std::string k = "\n    keyLen:1\n    dataLen:3";
    std::string vlan = "\n    keyLen:6\n    dataLen:56";
    EXPECT_EQ(text, "\n  sessId:11, valueType:6" + (bucketK < bucketVlan ? k + vlan : vlan + k) + "\n");
}

TEST_P(DbmCacheTest, ZeroLengthRecordsAreSkipped)
{
    {
        Writer w;
        w.put("vlan 1", 6, nullptr, 0);
        w.put("vlan 2", 6, vlanRecord(2));
    }
    nd_CliDbmSessPull(1, 6);
    uint8_t buf[56];
    EXPECT_EQ(lookup(1, "vlan 1", buf, sizeof buf), 0);
    EXPECT_EQ(lookup(1, "vlan 2", buf, sizeof buf), 56);
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 1u);
}

TEST_P(DbmCacheTest, DatabaseThatCannotBeOpenedLeavesTheSessionCachedEmpty)
{
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
    }
    ndplat::fault_inject("DBM_Open", 3);
    EXPECT_EQ(nd_CliDbmSessPull(4, 6), 0);
    uint8_t buf[56];
    EXPECT_EQ(lookup(4, "vlan 1", buf, sizeof buf), 0);
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessPull(4, 6), 0);
    EXPECT_TRUE(ndplat::trace_of("DBM_Open").empty()) << "stays empty until freed";
    nd_CliDbmSessFree(4, 6);
    EXPECT_EQ(nd_CliDbmSessPull(4, 6), 0);
    EXPECT_EQ(lookup(4, "vlan 1", buf, sizeof buf), 56);
}

TEST_P(DbmCacheTest, InitialisationFailures)
{
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(nd_CliDbmSessPull(1, 6), -1);
    EXPECT_EQ(gNdCliDbmCtl.initialised, 0u);
    EXPECT_TRUE(ndplat::trace_of("gnl_sem_mutex_init").empty());

    ndplat::trace_clear();
    ndplat::fault_inject("gnl_sem_mutex_init", -1);
    EXPECT_EQ(nd_CliDbmSessPull(1, 6), -1);
    EXPECT_EQ(gNdCliDbmCtl.initialised, 0u);
    EXPECT_EQ(gNdCliDbmCtl.sessions.buckets, nullptr) << "the sessions table is destroyed again";
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 1u);
    EXPECT_TRUE(ndplat::trace_of("gnl_sem_take").empty());
    uint8_t buf[4];
    EXPECT_EQ(lookup(1, "vlan 1", buf, sizeof buf), -1);

    EXPECT_EQ(nd_CliDbmSessPull(1, 6), 0);
    EXPECT_EQ(gNdCliDbmCtl.initialised, 1u);
}

TEST_P(DbmCacheTest, SessionAllocationFailureCachesNothing)
{
    nd_CliDbmSessPull(1, 6);
    ndplat::fault_inject("__UMV2L_malloc", 0);
    ndplat::trace_clear();
    EXPECT_EQ(nd_CliDbmSessPull(2, 6), -1);
    EXPECT_EQ(dbmAndLockCalls(), (std::vector<std::string>{"gnl_sem_take(ptr, 0)", "gnl_sem_give(ptr)"}));
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 1u);
}

TEST_P(DbmCacheTest, RecordsTableFailureFreesTheSessionEntry)
{
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
    }
    nd_CliDbmSessPull(1, 6);
    long before = ndplat::outstanding_allocations();
    ndplat::trace_clear();
    // The session entry is allocated, its 512-bucket array is not.
    ndplat::fault_inject("__UMV2L_malloc", 0, 1, 1);
    EXPECT_EQ(nd_CliDbmSessPull(2, 6), -1);
    EXPECT_EQ(ndplat::trace_of("__UMV2L_malloc"),
              (std::vector<std::string>{"__UMV2L_malloc(" + std::to_string(sizeof(NdCliDbmSess)) + ")",
                                        "__UMV2L_malloc(" + std::to_string(512 * sizeof(void *)) + ")"}));
    EXPECT_EQ(ndplat::trace_of("__UMV2L_free").size(), 1u);
    EXPECT_EQ(dbmAndLockCalls(), (std::vector<std::string>{"gnl_sem_take(ptr, 0)", "gnl_sem_give(ptr)"}));
    EXPECT_EQ(ndplat::outstanding_allocations(), before);
    EXPECT_EQ(gNdCliDbmCtl.sessions.count, 1u);
    uint8_t buf[56];
    EXPECT_EQ(lookup(2, "vlan 1", buf, sizeof buf), 0);
    EXPECT_EQ(nd_CliDbmSessPull(2, 6), 0);
    EXPECT_EQ(lookup(2, "vlan 1", buf, sizeof buf), 56);
}

TEST_P(DbmCacheTest, RecordCallbackChecksItsArgumentsSkipsFailedAllocationsAndReplacesDuplicates)
{
    {
        Writer w;
        w.put("vlan 1", 6, vlanRecord(1));
    }
    nd_CliDbmSessPull(1, 6);
    GnlHashNode *cursor = nullptr;
    auto *session = static_cast<NdCliDbmSess *>(gnl_hash_start(&gNdCliDbmCtl.sessions, &cursor));
    ASSERT_NE(session, nullptr);
    ASSERT_EQ(session->records.count, 1u);

    Writer w;
    const char key[] = "vlan 1";
    EXPECT_EQ(ndCliDbmSaveToSessCb(nullptr, key, 6, session), -1);
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), nullptr, 6, session), -1);
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), key, 6, nullptr), -1);

    // A key the database delivers again replaces the earlier copy (and frees it).
    w.put("vlan 1", 6, vlanRecord(77));
    long before = ndplat::outstanding_allocations();
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), key, 6, session), 0);
    EXPECT_EQ(session->records.count, 1u);
    EXPECT_EQ(ndplat::outstanding_allocations(), before);
    uint8_t buf[56];
    EXPECT_EQ(lookup(1, "vlan 1", buf, sizeof buf), 56);
    uint16_t vlan;
    memcpy(&vlan, buf + 12, 2);
    EXPECT_EQ(vlan, 77);

    // A record whose allocation fails, and a missing record, are skipped.
    w.put("vlan 9", 6, vlanRecord(9));
    ndplat::fault_inject("__UMV2L_malloc", 0);
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), "vlan 9", 6, session), 0);
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), "vlan 3", 6, session), 0);
    EXPECT_EQ(session->records.count, 1u);
    EXPECT_EQ(ndplat::outstanding_allocations(), before);

    // A record is zeroed before it is filled: a read that returns less leaves zeros.
    ndplat::fault_inject("DBM_GetUniqueBinary", 0);
    EXPECT_EQ(ndCliDbmSaveToSessCb(w.handle(), "vlan 9", 6, session), 0);
    memset(buf, 0xEE, sizeof buf);
    EXPECT_EQ(lookup(1, "vlan 9", buf, sizeof buf), 56);
    EXPECT_EQ(std::vector<uint8_t>(buf, buf + 56), std::vector<uint8_t>(56, 0));
}

INSTANTIATE_TEST_SUITE_P(Storages, DbmCacheTest, ::testing::ValuesIn(dbmtest::storages()), dbmtest::storageName);

} // namespace
