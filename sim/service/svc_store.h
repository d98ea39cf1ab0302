// The configuration store "ec_nd": one handle per request, opened as the plug-in's readers open
// it, closed when the request is done.
#ifndef NDSVC_SVC_STORE_H
#define NDSVC_SVC_STORE_H

#include <cstdint>
#include <string>
#include <vector>

#include "nd_platform.h"
#include "svc_records.h"

namespace ndsvc {

class EcStore {
public:
    explicit EcStore(const char *name = ndwire::kDatabase);
    ~EcStore();
    EcStore(const EcStore &) = delete;
    EcStore &operator=(const EcStore &) = delete;

    bool ok() const { return h_ != nullptr; }

    bool exists(const std::string &key);
    // The record's bytes; empty when there is none.
    Bytes read(const std::string &key);
    bool write(const std::string &key, uint32_t type, const Bytes &value);
    bool remove(const std::string &key);
    // The keys of every record of a value type, in key order.
    std::vector<std::string> keys(uint32_t type);

    // The static user-binds: a sorted list unique by address.
    size_t user_bind_count();
    std::vector<UserBind> user_binds();
    bool user_bind_add(const UserBind &ub);
    bool user_bind_remove(const Ip6 &ip);

    // The VXLAN ids that have settings stored, ascending by key.
    std::vector<uint32_t> vxlan_ids();
    // The settings of one VXLAN id, and storing them (the record goes when all are default).
    VxlanSettings vxlan(uint32_t id);
    bool vxlan_set(uint32_t id, const VxlanSettings &s);
    // The 32-bit value of a global switch; 0 when it is not stored.
    uint32_t flag(const char *key);

private:
    DBM_HANDLE h_ = nullptr;
};

std::string vxlan_key(uint32_t id);

} // namespace ndsvc

#endif
