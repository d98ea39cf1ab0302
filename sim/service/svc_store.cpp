// The configuration store "ec_nd".
#include "svc_store.h"

#include <algorithm>
#include <cstdio>

#include "ndplat_dbm.h"

namespace ndsvc {

namespace {

uint16_t len(const std::string &key)
{
    return static_cast<uint16_t>(key.size());
}

} // namespace

EcStore::EcStore(const char *name)
{
    const uint32_t param[7] = ND_DBM_OPEN_PARAM;
    if (DBM_Open(name, ND_DBM_OPEN_MODE, param, 0, 0, &h_) != 0)
        h_ = nullptr;
}

EcStore::~EcStore()
{
    if (h_)
        DBM_Close(h_);
}

bool EcStore::exists(const std::string &key)
{
    return DBM_GetLen(h_, key.data(), len(key)) > 0;
}

Bytes EcStore::read(const std::string &key)
{
    int32_t n = DBM_GetLen(h_, key.data(), len(key));
    if (n <= 0)
        return {};
    Bytes buf(static_cast<size_t>(n));
    int32_t got = DBM_GetUniqueBinary(h_, key.data(), len(key), 0, buf.data(), static_cast<uint32_t>(n));
    buf.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return buf;
}

bool EcStore::write(const std::string &key, uint32_t type, const Bytes &value)
{
    return DBM_SetUniqueBinary(h_, key.data(), len(key), type, value.data(), static_cast<uint32_t>(value.size()), 0) ==
           0;
}

bool EcStore::remove(const std::string &key)
{
    return DBM_Delete(h_, key.data(), len(key)) == 0;
}

std::vector<std::string> EcStore::keys(uint32_t type)
{
    std::vector<std::string> out;
    DBM_Proc(
        h_, type,
        [](DBM_HANDLE, const void *key, uint16_t keyLen, void *arg) -> int32_t {
            static_cast<std::vector<std::string> *>(arg)->emplace_back(static_cast<const char *>(key), keyLen);
            return 0;
        },
        &out);
    return out;
}

size_t EcStore::user_bind_count()
{
    const std::string key = ndwire::kKeyUserBinds;
    return static_cast<size_t>(std::max(0, DBM_GetLen(h_, key.data(), len(key)))) / ndwire::userbind::kSize;
}

std::vector<UserBind> EcStore::user_binds()
{
    Bytes list = read(ndwire::kKeyUserBinds);
    std::vector<UserBind> out;
    for (size_t at = 0; at + ndwire::userbind::kSize <= list.size(); at += ndwire::userbind::kSize)
        out.push_back(from_static_entry(list.data() + at));
    return out;
}

bool EcStore::user_bind_add(const UserBind &ub)
{
    const std::string key = ndwire::kKeyUserBinds;
    Bytes entry = static_entry(ub);
    return DBM_AddToSortList(h_, key.data(), len(key), ndwire::kTypeUserBindList, entry.data(),
                             ndwire::userbind::kSize, ndwire::userbind::kSortKeySize) == 0;
}

bool EcStore::user_bind_remove(const Ip6 &ip)
{
    const std::string key = ndwire::kKeyUserBinds;
    return DBM_DelFromSortList(h_, key.data(), len(key), ip.data(), ndwire::userbind::kSortKeySize) == 0;
}

std::string vxlan_key(uint32_t id)
{
    return format("vxlan %u", id);
}

std::vector<uint32_t> EcStore::vxlan_ids()
{
    std::vector<uint32_t> ids;
    for (const std::string &key : keys(ndwire::kTypeVxlan)) {
        unsigned id = 0;
        if (sscanf(key.c_str(), "vxlan %u", &id) == 1)
            ids.push_back(id);
    }
    return ids;
}

VxlanSettings EcStore::vxlan(uint32_t id)
{
    VxlanSettings s;
    vxlan_settings_of(read(vxlan_key(id)), id, s);
    return s;
}

bool EcStore::vxlan_set(uint32_t id, const VxlanSettings &s)
{
    if (s.is_default())
        return remove(vxlan_key(id));
    return write(vxlan_key(id), ndwire::kTypeVxlan, vxlan_settings_record(id, s));
}

uint32_t EcStore::flag(const char *key)
{
    Bytes rec = read(key);
    return rec.size() >= ndwire::flag::kSize ? get<uint32_t>(rec, ndwire::flag::kValue) : 0u;
}

} // namespace ndsvc
