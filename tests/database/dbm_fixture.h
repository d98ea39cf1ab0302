// Test helpers for the configuration database: a fixture that runs a test against each storage
// (memory, and SQLite files in a directory of the test's own), and a writer that puts records
// into a database as the ND service stores them.
#ifndef ND_TEST_DBM_FIXTURE_H
#define ND_TEST_DBM_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "ndplat_dbm.h"
#include "test_support.h"

namespace dbmtest {

inline std::vector<ndplat::DbmStorage> storages()
{
    std::vector<ndplat::DbmStorage> all{ndplat::DbmStorage::Memory};
    if (ndplat::dbm_storage_available(ndplat::DbmStorage::Sqlite))
        all.push_back(ndplat::DbmStorage::Sqlite);
    return all;
}

inline std::string storageName(const ::testing::TestParamInfo<ndplat::DbmStorage> &info)
{
    return info.param == ndplat::DbmStorage::Sqlite ? "Sqlite" : "Memory";
}

// Selects a storage on a fresh platform; SQLite files go to a new temporary state directory
// that is removed afterwards. Leaves no handle or iterator open.
class StorageScope {
public:
    explicit StorageScope(ndplat::DbmStorage storage)
    {
        if (storage == ndplat::DbmStorage::Sqlite) {
            char dir[] = "/tmp/ndtest-dbm-XXXXXX";
            if (mkdtemp(dir))
                dir_ = dir;
            ndplat::dbm_state_dir_set(dir_);
        }
        ok_ = ndplat::dbm_storage_set(storage);
    }
    ~StorageScope()
    {
        if (!dir_.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(dir_, ignored);
        }
    }
    bool ok() const { return ok_; }
    const std::string &dir() const { return dir_; }

private:
    std::string dir_;
    bool ok_ = false;
};

class StorageTest : public ndtest::PlatformTest, public ::testing::WithParamInterface<ndplat::DbmStorage> {
protected:
    void SetUp() override
    {
        ndtest::PlatformTest::SetUp();
        scope_ = std::make_unique<StorageScope>(GetParam());
        ASSERT_TRUE(scope_->ok());
    }
    void TearDown() override
    {
        EXPECT_EQ(ndplat::dbm_open_handles(), 0) << "database handles left open";
        EXPECT_EQ(ndplat::dbm_live_iterators(), 0) << "list iterators left behind";
        ndtest::PlatformTest::TearDown();
        scope_.reset();
    }
    const std::string &stateDir() const { return scope_->dir(); }

private:
    std::unique_ptr<StorageScope> scope_;
};

// Bytes of a record, filled at offsets in host byte order.
class Record {
public:
    explicit Record(size_t size) : bytes_(size, 0) {}
    Record &u32(size_t offset, uint32_t v) { return put(offset, &v, 4); }
    Record &u16(size_t offset, uint16_t v) { return put(offset, &v, 2); }
    Record &text(size_t offset, const char *s) { return put(offset, s, strlen(s)); }
    Record &bytes(size_t offset, const std::vector<uint8_t> &b) { return put(offset, b.data(), b.size()); }
    const uint8_t *data() const { return bytes_.data(); }
    uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }

private:
    Record &put(size_t offset, const void *p, size_t n)
    {
        memcpy(bytes_.data() + offset, p, n);
        return *this;
    }
    std::vector<uint8_t> bytes_;
};

// A writer on one database, as the ND service writes it. Opened without tracing concerns: the
// tests clear the trace after writing.
class Writer {
public:
    explicit Writer(const char *db = "ec_nd")
    {
        const uint32_t params[7] = {1, 1, 256, 0, 0, 0, 0};
        EXPECT_EQ(DBM_Open(db, 1, params, 0, 0, &h_), 0u);
    }
    ~Writer()
    {
        if (h_)
            DBM_Close(h_);
    }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    DBM_HANDLE handle() const { return h_; }

    void put(const std::string &key, uint32_t type, const void *value, uint32_t length)
    {
        EXPECT_EQ(DBM_SetUniqueBinary(h_, key.data(), static_cast<uint16_t>(key.size()), type, value, length, 0), 0);
    }
    void put(const std::string &key, uint32_t type, const Record &r) { put(key, type, r.data(), r.size()); }
    void putU32(const std::string &key, uint32_t type, uint32_t v) { put(key, type, &v, 4); }
    void listAdd(const std::string &key, uint32_t type, const Record &entry, uint32_t sortKeyLen)
    {
        EXPECT_EQ(DBM_AddToSortList(h_, key.data(), static_cast<uint16_t>(key.size()), type, entry.data(),
                                    entry.size(), sortKeyLen),
                  0);
    }

private:
    DBM_HANDLE h_ = nullptr;
};

} // namespace dbmtest

#endif
