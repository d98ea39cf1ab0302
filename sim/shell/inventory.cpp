// The shell's inventory of configured objects, written through to the configuration database
// "ndsh_inventory": one record per object, key "<kind> <number>", value type the kind, value
// the number (32-bit, host order). The settings have records of their own, the sub-VLANs in the
// form that ndplat_supervlan.h makes, since the ND service reads them too. Each change is one
// committed transaction, made before the shell acts on it; other shells' changes are read again
// when the database says it changed.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "ndplat_dbm.h"
#include "ndplat_supervlan.h"
#include "ndsh.h"

namespace ndsh {

namespace {

using ndplat::kInventoryDb;

constexpr const char *kKindWords[] = {"", "vlan", "super-vlan", "vxlan", "vlan-if", "loopback",
                                      "port", "routed-port", "aggregation", "mgmt"};

std::string key_of(Inventory::Kind kind, int32_t number)
{
    return std::string(kKindWords[static_cast<size_t>(kind)]) + " " + std::to_string(number);
}

constexpr char kAccessVlanWord[] = "access-vlan";
constexpr char kAddressWord[] = "ipv6-address";

// The number after "<word> " in a stored key; false for a key that is not one of ours.
bool number_after(const std::string &key, const char *word, int32_t &number)
{
    std::string prefix = std::string(word) + " ";
    if (key.size() <= prefix.size() || key.compare(0, prefix.size(), prefix) != 0)
        return false;
    char *end = nullptr;
    long value = strtol(key.c_str() + prefix.size(), &end, 10);
    if (!end || *end != '\0' || value < 0 || value > INT32_MAX)
        return false;
    number = static_cast<int32_t>(value);
    return true;
}

bool number_of(const ndplat::dbm::Bytes &key, Inventory::Kind kind, int32_t &number)
{
    return number_after(key, kKindWords[static_cast<size_t>(kind)], number);
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
    access_.clear();
    addresses_.clear();
    supers_.clear();
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
    read_settings();
}

void Inventory::read_settings()
{
    std::vector<ndplat::dbm::Bytes> keys;
    store_->keys(kAccessVlanType, keys);
    for (const ndplat::dbm::Bytes &key : keys) {
        int32_t port = 0, vlan = 0;
        if (number_after(key, kAccessVlanWord, port) &&
            store_->read(key, &vlan, sizeof vlan) == static_cast<int32_t>(sizeof vlan) && vlan != kDefaultVlan)
            access_[port] = vlan;
    }
    keys.clear();
    store_->keys(kAddressType, keys);
    for (const ndplat::dbm::Bytes &key : keys) {
        // "ipv6-address <vlan> <address/length>"
        size_t space = key.find(' ', strlen(kAddressWord) + 1);
        int32_t vlan = 0;
        if (space != std::string::npos && number_after(key.substr(0, space), kAddressWord, vlan))
            addresses_[vlan].insert(key.substr(space + 1));
    }
    keys.clear();
    store_->keys(ndplat::kSubVlanType, keys);
    for (const ndplat::dbm::Bytes &key : keys) {
        std::optional<uint16_t> vlan = ndplat::sub_vlan_of_key(key);
        int32_t super = 0;
        int32_t length = vlan ? store_->read(key, &super, sizeof super) : 0;
        if (vlan && ndplat::super_vlan_of_value(&super, length))
            supers_[*vlan] = super;
    }
}

int32_t Inventory::access_vlan(int32_t portId) const
{
    auto it = access_.find(portId);
    return it == access_.end() ? kDefaultVlan : it->second;
}

const std::set<std::string> &Inventory::addresses(int32_t vlanIf) const
{
    static const std::set<std::string> none;
    auto it = addresses_.find(vlanIf);
    return it == addresses_.end() ? none : it->second;
}

bool Inventory::store(const std::string &key, uint32_t type, const void *value, uint32_t length, std::string &error)
{
    if (!open() || store_->write(key, type, value, length) != 0) {
        error = "% Cannot store " + key + ": " + why_not() + ".";
        return false;
    }
    return true;
}

bool Inventory::erase(const std::string &key, std::string &error)
{
    if (!open() || store_->erase(key) != 0) {
        error = "% Cannot remove " + key + ": " + why_not() + ".";
        return false;
    }
    return true;
}

bool Inventory::set_access_vlan(int32_t portId, int32_t vlan, std::string &error)
{
    std::string key = std::string(kAccessVlanWord) + " " + std::to_string(portId);
    if (vlan == kDefaultVlan) {
        if (!erase(key, error))
            return false;
        access_.erase(portId);
        return true;
    }
    if (!store(key, kAccessVlanType, &vlan, sizeof vlan, error))
        return false;
    access_[portId] = vlan;
    return true;
}

bool Inventory::add_address(int32_t vlanIf, const std::string &prefix, std::string &error)
{
    std::string key = std::string(kAddressWord) + " " + std::to_string(vlanIf) + " " + prefix;
    if (!store(key, kAddressType, prefix.data(), static_cast<uint32_t>(prefix.size()), error))
        return false;
    addresses_[vlanIf].insert(prefix);
    return true;
}

bool Inventory::remove_address(int32_t vlanIf, const std::string &prefix, std::string &error)
{
    std::string key = std::string(kAddressWord) + " " + std::to_string(vlanIf) + " " + prefix;
    if (!erase(key, error))
        return false;
    auto it = addresses_.find(vlanIf);
    if (it != addresses_.end() && it->second.erase(prefix) && it->second.empty())
        addresses_.erase(it);
    return true;
}

int32_t Inventory::super_of(int32_t vlan) const
{
    auto it = supers_.find(vlan);
    return it == supers_.end() ? 0 : it->second;
}

bool Inventory::add_sub_vlan(int32_t superVlan, int32_t vlan, std::string &error)
{
    std::string key = ndplat::sub_vlan_key(static_cast<uint16_t>(vlan));
    if (!store(key, ndplat::kSubVlanType, &superVlan, sizeof superVlan, error))
        return false;
    supers_[vlan] = superVlan;
    return true;
}

bool Inventory::remove_sub_vlan(int32_t vlan, std::string &error)
{
    if (!erase(ndplat::sub_vlan_key(static_cast<uint16_t>(vlan)), error))
        return false;
    supers_.erase(vlan);
    return true;
}

// The sub-VLANs of a super VLAN, or the membership of a VLAN, about to be removed.
bool Inventory::remove_memberships(Kind kind, int32_t number, std::string &error)
{
    std::vector<int32_t> members;
    for (const auto &[vlan, super] : supers_)
        if ((kind == Kind::SuperVlan && super == number) || (kind == Kind::Vlan && vlan == number))
            members.push_back(vlan);
    for (int32_t vlan : members)
        if (!remove_sub_vlan(vlan, error))
            return false;
    return true;
}

bool Inventory::remove_dependents(Kind kind, int32_t number, std::string &error)
{
    if (!remove_memberships(kind, number, error))
        return false;
    if (kind == Kind::Vlan) {
        std::vector<int32_t> ports;
        for (const auto &[port, vlan] : access_)
            if (vlan == number)
                ports.push_back(port);
        for (int32_t port : ports)
            if (!set_access_vlan(port, kDefaultVlan, error))
                return false;
    }
    if (kind == Kind::VlanIf) {
        std::set<std::string> held = addresses(number);
        for (const std::string &prefix : held)
            if (!remove_address(number, prefix, error))
                return false;
    }
    return true;
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
    if (!remove_dependents(kind, number, error))
        return false;
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
    // Records of ports whose VLAN the inventory did not hold, and of sub-VLANs likewise.
    std::map<int32_t, int32_t> ports = access_;
    for (const auto &[port, vlan] : ports)
        if (!set_access_vlan(port, kDefaultVlan, error))
            return false;
    std::map<int32_t, int32_t> members = supers_;
    for (const auto &[vlan, super] : members)
        if (!remove_sub_vlan(vlan, error))
            return false;
    return true;
}

} // namespace ndsh
