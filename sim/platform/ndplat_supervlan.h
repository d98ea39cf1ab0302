// The sub-VLANs of the super VLANs, as the shells configured them (`subvlan V` in the mode of
// super VLAN S): the shell stores them, the ND service reads them.
//
// They live in the shell's inventory database kInventoryDb, one record per sub-VLAN, made and
// read through the two key functions below only: value type kSubVlanType, value the number of
// the super VLAN (32-bit, host order). The record is keyed by the sub-VLAN, so that a VLAN
// belongs to at most one super VLAN. Each change is one committed transaction of the shell.
#ifndef NDPLAT_SUPERVLAN_H
#define NDPLAT_SUPERVLAN_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace ndplat {

// The shell's inventory of VLANs, super VLANs, interfaces and their settings.
constexpr const char *kInventoryDb = "ndsh_inventory";
// The value type of a sub-VLAN's record, after those of the shell's own objects and settings.
constexpr uint32_t kSubVlanType = 22;

// The key of the record of sub-VLAN `vlan`.
std::string sub_vlan_key(uint16_t vlan);
// The sub-VLAN whose record has this key; nothing for any other key.
std::optional<uint16_t> sub_vlan_of_key(const std::string &key);
// The super VLAN a record's value names; nothing for a value that is not a VLAN id (1..4094).
std::optional<uint16_t> super_vlan_of_value(const void *value, int32_t length);

// Each sub-VLAN and the super VLAN it belongs to, as the shells configured them (read afresh each call).
//
// Cheap when nothing changed: one look at the database file and at SQLite's data version;
// the records are read again only when either moved. A database that does not exist yet
// (no shell configured anything) gives an empty map and is not created. Safe from any thread.
std::map<uint16_t, uint16_t> sub_vlan_supers();

} // namespace ndplat

#endif
