// The VXLAN port table behind VXLAN_GetVxportBasicInfo, kept in the configuration database
// kVxportDb so that the shell that configures ports and the service that reads them share it.
// One record per port: key "<origin> <index>" ("configured 7", "seed 7"), value type the
// origin, value the fixed-size record below (host order). Every change is one committed
// transaction; a view reads every record again when the database's data version moved.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "dbm_storage.h"
#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_vxlan.h"

namespace ndplat {

namespace {

// The stored record.
constexpr size_t kRecIndex = 0;    // u32 port index
constexpr size_t kRecVxlan = 4;    // u32 VXLAN id
constexpr size_t kRecPortId = 8;   // i32 interface port id
constexpr size_t kRecKind = 12;    // u16
constexpr size_t kRecSvlan = 14;   // u16
constexpr size_t kRecCvlan = 16;   // u16
constexpr size_t kRecordSize = 20; // 2 bytes reserved at the end

constexpr VxportOrigin kOrigins[] = {VxportOrigin::Configured, VxportOrigin::Seed};

// A listing looks a port up once a row, a hundred thousand times in a row: a lookup asks the
// store whether another process changed the ports at most once in this time. Changes made in
// this process (by any view) are seen at once.
constexpr std::chrono::milliseconds kForeignChangeLatency{1};

// 32 bits: a lock-free atomic on every target (the 32-bit MIPS has no 64-bit one); only
// equality is asked of it.
std::atomic<uint32_t> &localChanges()
{
    static std::atomic<uint32_t> changes{0};
    return changes;
}

const char *origin_word(VxportOrigin origin)
{
    return origin == VxportOrigin::Seed ? "seed" : "configured";
}

std::string key_of(VxportOrigin origin, uint32_t portIndex)
{
    return std::string(origin_word(origin)) + " " + std::to_string(portIndex);
}

dbm::Bytes encode(uint32_t portIndex, const Vxport &port)
{
    uint8_t rec[kRecordSize] = {};
    memcpy(rec + kRecIndex, &portIndex, sizeof portIndex);
    memcpy(rec + kRecVxlan, &port.vxlan, sizeof port.vxlan);
    memcpy(rec + kRecPortId, &port.portId, sizeof port.portId);
    memcpy(rec + kRecKind, &port.kind, sizeof port.kind);
    memcpy(rec + kRecSvlan, &port.svlan, sizeof port.svlan);
    memcpy(rec + kRecCvlan, &port.cvlan, sizeof port.cvlan);
    return dbm::Bytes(reinterpret_cast<const char *>(rec), sizeof rec);
}

void decode(const uint8_t *rec, VxportOrigin origin, uint32_t &portIndex, Vxport &port)
{
    memcpy(&portIndex, rec + kRecIndex, sizeof portIndex);
    memcpy(&port.vxlan, rec + kRecVxlan, sizeof port.vxlan);
    memcpy(&port.portId, rec + kRecPortId, sizeof port.portId);
    memcpy(&port.kind, rec + kRecKind, sizeof port.kind);
    memcpy(&port.svlan, rec + kRecSvlan, sizeof port.svlan);
    memcpy(&port.cvlan, rec + kRecCvlan, sizeof port.cvlan);
    port.origin = origin;
}

} // namespace

bool operator==(const Vxport &a, const Vxport &b)
{
    return a.kind == b.kind && a.portId == b.portId && a.svlan == b.svlan && a.cvlan == b.cvlan &&
           a.vxlan == b.vxlan && a.origin == b.origin;
}

struct VxportTable::Impl {
    std::unique_ptr<dbm::Connection> store;
    std::string openError;
    // What the connection was opened on: another storage or state directory is another table.
    DbmStorage storage = DbmStorage::Memory;
    std::string stateDir;
    uint64_t version = 0;
    bool loaded = false;
    bool lookedUp = false; // refreshed for a lookup at lookedUpAt, with localChanges() at seenChanges
    std::chrono::steady_clock::time_point lookedUpAt;
    uint32_t seenChanges = 0;
    std::map<uint32_t, Vxport> ports[2]; // by origin: configured, seed

    static size_t slot(VxportOrigin origin) { return origin == VxportOrigin::Seed ? 1 : 0; }

    bool same_place(DbmStorage s, const std::string &dir) const { return s == storage && dir == stateDir; }

    void drop()
    {
        store.reset();
        loaded = false;
        lookedUp = false;
        version = 0;
        for (auto &m : ports)
            m.clear();
    }

    // The connection for a write, opened (and the file created) when needed.
    bool open()
    {
        DbmStorage s = dbm_storage();
        std::string dir = dbm_state_dir();
        if (store && !same_place(s, dir))
            drop();
        storage = s;
        stateDir = dir;
        if (!store)
            store = dbm_open_store(kVxportDb, &openError);
        return store != nullptr;
    }

    // Brings the view up to date. A database that does not exist yet is not created by a read.
    void refresh()
    {
        DbmStorage s = dbm_storage();
        std::string dir = dbm_state_dir();
        if (store && !same_place(s, dir))
            drop();
        if (!store) {
            storage = s;
            stateDir = dir;
            if (s == DbmStorage::Sqlite && access((dir + "/" + kVxportDb + ".db").c_str(), F_OK) != 0) {
                drop();
                return;
            }
            if (!open()) {
                drop();
                return;
            }
        }
        uint64_t v = store->dataVersion();
        if (loaded && v == version)
            return;
        read_all();
        version = v;
    }

    void read_all()
    {
        for (auto &m : ports)
            m.clear();
        loaded = true;
        for (VxportOrigin origin : kOrigins) {
            std::vector<dbm::Bytes> keys;
            store->keys(static_cast<uint32_t>(origin), keys);
            for (const dbm::Bytes &key : keys) {
                uint8_t rec[kRecordSize];
                if (store->read(key, rec, sizeof rec) != static_cast<int32_t>(sizeof rec))
                    continue;
                uint32_t index = 0;
                Vxport port;
                decode(rec, origin, index, port);
                if (key == key_of(origin, index))
                    ports[slot(origin)][index] = port;
            }
        }
    }

    std::string why() const
    {
        for (const DbmDamage &d : dbm_damaged())
            if (d.db == kVxportDb)
                return "the configuration database " + d.db + " is damaged";
        std::string w = store ? store->lastError() : openError;
        return w.empty() ? "the configuration database " + std::string(kVxportDb) + " cannot be written" : w;
    }

    std::optional<Vxport> find(uint32_t portIndex)
    {
        auto now = std::chrono::steady_clock::now();
        uint32_t changes = localChanges().load();
        if (!lookedUp || changes != seenChanges || now - lookedUpAt >= kForeignChangeLatency ||
            !same_place(dbm_storage(), dbm_state_dir())) {
            refresh();
            lookedUp = true;
            lookedUpAt = now;
            seenChanges = changes;
        }
        for (const auto &m : ports) {
            auto it = m.find(portIndex);
            if (it != m.end())
                return it->second;
        }
        return std::nullopt;
    }

    std::map<uint32_t, Vxport> all()
    {
        refresh();
        std::map<uint32_t, Vxport> out = ports[0];
        out.insert(ports[1].begin(), ports[1].end()); // a configured port keeps its index
        return out;
    }

    bool set(uint32_t portIndex, const Vxport &port, std::string &error)
    {
        dbm::Bytes value = encode(portIndex, port);
        if (!open() || store->write(key_of(port.origin, portIndex), static_cast<uint32_t>(port.origin), value.data(),
                                    static_cast<uint32_t>(value.size())) != 0) {
            error = why();
            return false;
        }
        // SQLite's data version moves only for other connections' commits: the view takes its own.
        ports[slot(port.origin)][portIndex] = port;
        ++localChanges();
        return true;
    }

    bool remove(uint32_t portIndex, VxportOrigin origin, std::string &error)
    {
        refresh();
        if (ports[slot(origin)].count(portIndex) == 0)
            return true;
        if (!open() || store->erase(key_of(origin, portIndex)) != 0) {
            error = why();
            return false;
        }
        ports[slot(origin)].erase(portIndex);
        ++localChanges();
        return true;
    }

    std::map<uint32_t, Vxport> of(VxportOrigin origin)
    {
        refresh();
        return ports[slot(origin)];
    }
};

VxportTable::VxportTable() : impl_(std::make_unique<Impl>()) {}
VxportTable::~VxportTable() = default;

std::optional<Vxport> VxportTable::find(uint32_t portIndex)
{
    return impl_->find(portIndex);
}

std::map<uint32_t, Vxport> VxportTable::all()
{
    return impl_->all();
}

bool VxportTable::set(uint32_t portIndex, const Vxport &port, std::string &error)
{
    return impl_->set(portIndex, port, error);
}

bool VxportTable::remove(uint32_t portIndex, VxportOrigin origin, std::string &error)
{
    return impl_->remove(portIndex, origin, error);
}

std::map<uint32_t, Vxport> VxportTable::of(VxportOrigin origin)
{
    return impl_->of(origin);
}

void VxportTable::close()
{
    impl_->drop();
}

namespace {

struct ProcessTable {
    std::mutex mutex;
    VxportTable table;
};

ProcessTable &processTable()
{
    static ProcessTable *t = new ProcessTable; // never destroyed: the service's threads may outlive exit
    return *t;
}

void resetVxports()
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    t.table.close();
}

const bool registered = (on_reset(resetVxports), true);

bool report(bool ok, const std::string &why, std::string *error)
{
    if (!ok && error)
        *error = why;
    return ok;
}

} // namespace

std::optional<Vxport> vxport_find(uint32_t portIndex)
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    return t.table.find(portIndex);
}

std::map<uint32_t, Vxport> vxports()
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    return t.table.all();
}

std::map<uint32_t, Vxport> vxports(VxportOrigin origin)
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    return t.table.of(origin);
}

bool vxport_set(uint32_t portIndex, const Vxport &port, std::string *error)
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    std::string why;
    return report(t.table.set(portIndex, port, why), why, error);
}

bool vxport_remove(uint32_t portIndex, VxportOrigin origin, std::string *error)
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    std::string why;
    return report(t.table.remove(portIndex, origin, why), why, error);
}

bool vxport_remove_all(VxportOrigin origin, uint32_t vxlan, std::string *error)
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    std::string why;
    for (const auto &[index, port] : t.table.of(origin))
        if ((vxlan == 0 || port.vxlan == vxlan) && !t.table.remove(index, origin, why))
            return report(false, why, error);
    return true;
}

void vxport_store_close()
{
    ProcessTable &t = processTable();
    std::lock_guard<std::mutex> hold(t.mutex);
    t.table.close();
}

} // namespace ndplat
