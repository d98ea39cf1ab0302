// The shell's inventory of configured objects, written through to the configuration database
// "ndsh_inventory": one record per object, key "<kind> <number>", value type the kind, value
// the number (32-bit, host order). Each change is one committed transaction, made before the
// shell acts on it; other shells' changes are read again when the database says it changed.
#include <unistd.h>

#include <cstdlib>

#include "ndplat_dbm.h"
#include "ndsh.h"

namespace ndsh {

namespace {

constexpr const char *kInventoryDb = "ndsh_inventory";

constexpr const char *kKindWords[] = {"", "vlan", "super-vlan", "vxlan", "vlan-if", "loopback",
                                      "port", "routed-port", "aggregation", "mgmt"};

std::string key_of(Inventory::Kind kind, int32_t number)
{
    return std::string(kKindWords[static_cast<size_t>(kind)]) + " " + std::to_string(number);
}

// The number at the end of a stored key; false for a key that is not one of ours.
bool number_of(const ndplat::dbm::Bytes &key, Inventory::Kind kind, int32_t &number)
{
    std::string prefix = std::string(kKindWords[static_cast<size_t>(kind)]) + " ";
    if (key.size() <= prefix.size() || key.compare(0, prefix.size(), prefix) != 0)
        return false;
    std::string digits = key.substr(prefix.size());
    char *end = nullptr;
    long value = strtol(digits.c_str(), &end, 10);
    if (!end || *end != '\0' || value < 0 || value > INT32_MAX)
        return false;
    number = static_cast<int32_t>(value);
    return true;
}

} // namespace

std::string Inventory::why_not() const
{
    for (const ndplat::DbmDamage &d : ndplat::dbm_damaged())
        if (d.db == kInventoryDb)
            return "the configuration database " + d.db + " is damaged";
    std::string why = store_ ? store_->lastError() : openError_;
    return why.empty() ? "the configuration database " + std::string(kInventoryDb) + " cannot be written" : why;
}

Inventory::Inventory()
{
    sets_[static_cast<size_t>(Kind::Vlan)].insert(kDefaultVlan);
}

bool Inventory::open()
{
    if (!store_)
        store_ = ndplat::dbm_open_store(kInventoryDb, &openError_);
    return store_ != nullptr;
}

void Inventory::close()
{
    store_.reset();
    loaded_ = false;
}

void Inventory::refresh()
{
    if (!store_) {
        // A first start has no inventory yet; opening would create the database file for nothing.
        if (ndplat::dbm_storage() == ndplat::DbmStorage::Sqlite &&
            access((ndplat::dbm_state_dir() + "/" + kInventoryDb + ".db").c_str(), F_OK) != 0) {
            if (loaded_)
                read_all(); // the file went away (set aside): back to the defaults
            return;
        }
        if (!open())
            return;
    }
    uint64_t version = store_->dataVersion();
    if (loaded_ && version == version_)
        return;
    read_all();
    version_ = version;
}

void Inventory::read_all()
{
    for (std::set<int32_t> &set : sets_)
        set.clear();
    sets_[static_cast<size_t>(Kind::Vlan)].insert(kDefaultVlan);
    loaded_ = store_ != nullptr;
    if (!store_)
        return;
    for (size_t k = static_cast<size_t>(Kind::Vlan); k < kKinds; ++k) {
        std::vector<ndplat::dbm::Bytes> keys;
        store_->keys(static_cast<uint32_t>(k), keys);
        for (const ndplat::dbm::Bytes &key : keys) {
            int32_t number = 0;
            if (number_of(key, static_cast<Kind>(k), number))
                sets_[k].insert(number);
        }
    }
}

// Writes even what seems present: another shell may have removed it since this one looked.
bool Inventory::add(Kind kind, int32_t number, std::string &error)
{
    std::string key = key_of(kind, number);
    if (!open() || store_->write(key, static_cast<uint32_t>(kind), &number, sizeof number) != 0) {
        error = "% Cannot store " + key_of(kind, number) + ": " + why_not() + ".";
        return false;
    }
    sets_[static_cast<size_t>(kind)].insert(number);
    return true;
}

bool Inventory::remove(Kind kind, int32_t number, std::string &error)
{
    if (!has(kind, number))
        return true;
    if (!open() || store_->erase(key_of(kind, number)) != 0) {
        error = "% Cannot remove " + key_of(kind, number) + ": " + why_not() + ".";
        return false;
    }
    sets_[static_cast<size_t>(kind)].erase(number);
    return true;
}

bool Inventory::reset(std::string &error)
{
    refresh();
    for (size_t k = static_cast<size_t>(Kind::Vlan); k < kKinds; ++k) {
        std::set<int32_t> numbers = sets_[k];
        for (int32_t n : numbers)
            if (!(k == static_cast<size_t>(Kind::Vlan) && n == kDefaultVlan) &&
                !remove(static_cast<Kind>(k), n, error))
                return false;
    }
    return true;
}

} // namespace ndsh
