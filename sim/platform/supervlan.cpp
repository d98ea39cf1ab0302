// The sub-VLAN records of the shell's inventory: their key, and the process's reader of them.
// The reader keeps one connection and the members it last read; a call reads the records again
// only when the database changed since (its data version moved) or its file was replaced (set
// aside as damaged and created afresh), so that the service can ask twice a second.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "dbm_storage.h"
#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_supervlan.h"

namespace ndplat {

namespace {

constexpr char kSubVlanPrefix[] = "subvlan ";
constexpr uint16_t kMaxVlan = 4094;

std::optional<uint16_t> vlan_id(long value)
{
    if (value < 1 || value > kMaxVlan)
        return std::nullopt;
    return static_cast<uint16_t>(value);
}

class Reader {
public:
    std::map<uint16_t, uint16_t> members()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        if (!follow_file())
            return {};
        uint64_t version = store_->dataVersion();
        if (!loaded_ || version != version_) {
            read_all();
            // The version from before the read: a commit during it is read again next time.
            version_ = version;
            loaded_ = true;
        }
        return members_;
    }

    void drop()
    {
        std::lock_guard<std::mutex> hold(mutex_);
        forget();
    }

private:
    void forget()
    {
        store_.reset();
        loaded_ = false;
        version_ = 0;
        file_ = {};
        members_.clear();
    }

    // Keeps the connection on the database now in force: the storage and state directory of
    // the moment and, on SQLite, the file that now has the database's name. False when there
    // is no database to read.
    bool follow_file()
    {
        DbmStorage storage = dbm_storage();
        std::string dir = dbm_state_dir();
        if (store_ && (storage != storage_ || dir != stateDir_))
            forget();
        storage_ = storage;
        stateDir_ = dir;
        struct stat now {};
        if (storage == DbmStorage::Sqlite) {
            if (stat((dir + "/" + kInventoryDb + ".db").c_str(), &now) != 0) {
                forget(); // not created yet, or set aside: nothing is configured
                return false;
            }
            if (store_ && (now.st_dev != file_.st_dev || now.st_ino != file_.st_ino))
                forget();
        }
        if (!store_) {
            store_ = dbm_open_store(kInventoryDb);
            file_ = now;
        }
        return store_ != nullptr;
    }

    void read_all()
    {
        members_.clear();
        std::vector<dbm::Bytes> keys;
        store_->keys(kSubVlanType, keys);
        for (const dbm::Bytes &key : keys) {
            std::optional<uint16_t> vlan = sub_vlan_of_key(key);
            int32_t value = 0;
            // A read copies at most the buffer: a longer value is told by its length.
            int32_t length = vlan ? store_->length(key) : 0;
            if (length == static_cast<int32_t>(sizeof value) && store_->read(key, &value, sizeof value) != length)
                length = 0;
            std::optional<uint16_t> super = super_vlan_of_value(&value, length);
            if (vlan && super)
                members_[*vlan] = *super;
        }
    }

    std::mutex mutex_;
    std::unique_ptr<dbm::Connection> store_;
    DbmStorage storage_ = DbmStorage::Memory;
    std::string stateDir_;
    struct stat file_ {};
    uint64_t version_ = 0;
    bool loaded_ = false;
    std::map<uint16_t, uint16_t> members_;
};

Reader &reader()
{
    static Reader *r = new Reader; // never destroyed: the service's threads may outlive exit
    return *r;
}

// A reset gives the process a fresh memory storage, whose versions start again.
const bool registered = (on_reset([] { reader().drop(); }), true);

} // namespace

std::string sub_vlan_key(uint16_t vlan)
{
    return kSubVlanPrefix + std::to_string(vlan);
}

std::optional<uint16_t> sub_vlan_of_key(const std::string &key)
{
    const size_t prefix = strlen(kSubVlanPrefix);
    if (key.size() <= prefix || key.compare(0, prefix, kSubVlanPrefix) != 0)
        return std::nullopt;
    std::optional<uint16_t> vlan = vlan_id(strtol(key.c_str() + prefix, nullptr, 10));
    // Only the key this file makes: no sign, leading zero, blank or trailing byte.
    return vlan && key == sub_vlan_key(*vlan) ? vlan : std::nullopt;
}

std::optional<uint16_t> super_vlan_of_value(const void *value, int32_t length)
{
    int32_t number = 0;
    if (!value || length != static_cast<int32_t>(sizeof number))
        return std::nullopt;
    memcpy(&number, value, sizeof number);
    return vlan_id(number);
}

std::map<uint16_t, uint16_t> sub_vlan_supers()
{
    return reader().members();
}

} // namespace ndplat
