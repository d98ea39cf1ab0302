// ND snooping: the global switches, VLANs, trusted ports, detection and static user-binds kept
// in "ec_nd"; the learned user-binds, prefixes, counters and debug switches kept in memory.
#include <algorithm>

#include "snoop_wire.h"
#include "svc_items.h"
#include "svc_store.h"

namespace ndsvc {

// ---- configuration ------------------------------------------------------------------------------

CmfResponse NdService::global_snooping(const CmfRequest &r)
{
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind == ND_CLI_OPT_SET)
        return stored(ec.write(ndwire::kKeySnooping, ndwire::kTypeSnooping, flag_value(1)));
    // Switching snooping off deletes all of its configuration, as the operator was warned.
    bool done = true;
    for (const char *key : {ndwire::kKeySnooping, ndwire::kKeyLoose, ndwire::kKeyDetect, ndwire::kKeyAttackLog,
                            ndwire::kKeyUserBinds})
        done = ec.remove(key) && done;
    for (uint32_t type : {ndwire::kTypeVlan, ndwire::kTypePort})
        for (const std::string &key : ec.keys(type))
            done = ec.remove(key) && done;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        dynamicBinds_[0].clear();
        dynamicBinds_[1].clear();
        prefixes_.clear();
    }
    return stored(done);
}

CmfResponse NdService::loose_check(const CmfRequest &r)
{
    return global_flag(r, ndwire::kTypeLoose, ndwire::kKeyLoose);
}

CmfResponse NdService::attack_log(const CmfRequest &r)
{
    return global_flag(r, ndwire::kTypeAttackLog, ndwire::kKeyAttackLog);
}

CmfResponse NdService::global_flag(const CmfRequest &r, uint32_t valueType, const char *key)
{
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    return stored(r.optKind == ND_CLI_OPT_SET ? ec.write(key, valueType, flag_value(1)) : ec.remove(key));
}

CmfResponse NdService::vlan_snooping(const CmfRequest &r)
{
    uint32_t vlan = 0;
    if (!item_number(r, ndwire::kItemVlan, vlan) || vlan == 0 || vlan > kMaxVlanId)
        return status(ND_ERR_GET_VLAN);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::string key = format("vlan %u", vlan);
    bool enabled = ec.exists(key);
    if (r.optKind == ND_CLI_OPT_SET) {
        if (ec.flag(ndwire::kKeySnooping) != 1)
            return status(ND_ERR_GLOBAL_SNP_DISABLED);
        if (enabled)
            return status(ND_ERR_VLAN_ENABLED);
        return stored(ec.write(key, ndwire::kTypeVlan, vlan_record(vlan)));
    }
    if (!enabled)
        return status(ND_ERR_VLAN_DISABLED);
    return stored(ec.remove(key));
}

CmfResponse NdService::trust_port(const CmfRequest &r)
{
    uint32_t portId = 0;
    std::string name;
    if (!item_number(r, ndwire::kItemPortId, portId) || !item_text(r, ndwire::kItemObject, name) || name.empty())
        return status(ND_ERR_GET_PORTMAP);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    // The record's key is the port's name as the port manager formats it.
    bool trusted = ec.exists(name);
    if (r.optKind == ND_CLI_OPT_SET) {
        if (trusted)
            return status(ND_ERR_PORT_TRUSTED);
        return stored(ec.write(name, ndwire::kTypePort, port_record(portId, name)));
    }
    if (!trusted)
        return status(ND_ERR_PORT_NOT_TRUSTED);
    return stored(ec.remove(name));
}

CmfResponse NdService::detect(const CmfRequest &r)
{
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind == ND_CLI_OPT_UNDO)
        return stored(ec.remove(ndwire::kKeyDetect));
    uint32_t retransmit = 0, interval = 0;
    if (!item_number(r, ndwire::kItemRetransmit, retransmit) || !item_number(r, ndwire::kItemInterval, interval))
        return status(ND_ERR_OPERATION_FAILED);
    return stored(ec.write(ndwire::kKeyDetect, ndwire::kTypeDetect,
                           detect_record(static_cast<uint16_t>(retransmit), static_cast<uint16_t>(interval))));
}

// ---- static user-binds ----------------------------------------------------------------------------

CmfResponse NdService::user_bind(const CmfRequest &r)
{
    if (r.optKind == ND_CLI_OPT_SHOW)
        return user_bind_page(r);
    if (r.optKind == ND_CLI_OPT_UNDO)
        return static_user_bind_undo(r);
    return static_user_bind(r);
}

CmfResponse NdService::static_user_bind(const CmfRequest &r)
{
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind != ND_CLI_OPT_SET)
        return status(ND_ERR_OPERATION_FAILED);
    UserBind ub;
    uint32_t vlan = 0, portId = 0;
    const CmfItem *mac = find_item(r, ndwire::kItemMac);
    if (!item_address(r, ndwire::kItemAddress, ub.ip) || !mac || mac->bytes.size() != ub.mac.size() ||
        !item_number(r, ndwire::kItemVlan, vlan) || !item_number(r, ndwire::kItemPortId, portId) ||
        !item_text(r, ndwire::kItemObject, ub.port))
        return status(ND_ERR_OPERATION_FAILED);
    memcpy(ub.mac.data(), mac->bytes.data(), ub.mac.size());
    ub.vlan = static_cast<uint16_t>(vlan);
    ub.portId = static_cast<int32_t>(portId);
    for (const UserBind &present : ec.user_binds())
        if (present.ip == ub.ip)
            return status(ND_ERR_UB_EXIST);
    if (ec.user_bind_count() >= userBindCeiling_)
        return status(ND_ERR_UB_CEILING);
    return stored(ec.user_bind_add(ub));
}

// With an address the one entry goes; without, every static entry.
CmfResponse NdService::static_user_bind_undo(const CmfRequest &r)
{
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    Ip6 ip{};
    if (item_address(r, ndwire::kItemAddress, ip)) {
        bool present = false;
        for (const UserBind &ub : ec.user_binds())
            present = present || ub.ip == ip;
        if (!present)
            return status(ND_ERR_UB_NOT_EXIST);
        return stored(ec.user_bind_remove(ip));
    }
    if (ec.user_bind_count() == 0)
        return status(ND_ERR_UB_NOT_EXIST);
    return stored(ec.remove(ndwire::kKeyUserBinds));
}

// ---- tables ---------------------------------------------------------------------------------------

CmfResponse NdService::user_bind_page(const CmfRequest &r)
{
    const CmfItem *query = find_item(r, ndwire::kItemQuery);
    if (!query || query->bytes.size() != ndwire::query::kSize)
        return status(ND_ERR_OPERATION_FAILED);
    uint32_t kind = get<uint32_t>(query->bytes, ndwire::query::kKind);
    uint32_t start = get<uint16_t>(query->bytes, ndwire::query::kStart);
    uint32_t size = get<uint16_t>(query->bytes, ndwire::query::kCount);
    if (size == 0)
        size = ndwire::kPageEntries;
    bool isStatic = kind == ndwire::kTableUserBindStatic;
    if (!isStatic && kind != ndwire::kTableUserBindFirst && kind != ndwire::kTableUserBindSecond)
        return status(ND_ERR_OPERATION_FAILED);
    std::vector<UserBind> statics;
    if (isStatic) {
        EcStore ec;
        if (!ec.ok())
            return status(ND_ERR_DBM);
        statics = ec.user_binds();
    }
    // The page is cut straight out of the table: a listing of n entries costs O(n) in all.
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (!isStatic && start == 0)
        wire_bindings_locked();
    const std::vector<UserBind> &rows =
        isStatic ? statics : dynamicBinds_[kind == ndwire::kTableUserBindFirst ? 0 : 1];
    size_t first = std::min<size_t>(start, rows.size());
    size_t n = std::min<size_t>(size, rows.size() - first);
    bool last = first + n >= rows.size();
    Bytes out = page(static_cast<uint32_t>(n), static_cast<uint16_t>(first + n), last, ndwire::userbind::kSize);
    for (size_t i = 0; i < n; ++i)
        put_user_bind_row(out, ndwire::page::kSize + i * ndwire::userbind::kSize, rows[first + i], isStatic);
    return with_item(ndwire::kRspUserBindPage, std::move(out));
}

CmfResponse NdService::user_bind_one(const CmfRequest &r)
{
    Ip6 ip{};
    if (!item_address(r, ndwire::kItemAddress, ip))
        return status(ND_ERR_OPERATION_FAILED);
    std::vector<std::pair<UserBind, bool>> found;
    {
        EcStore ec;
        if (!ec.ok())
            return status(ND_ERR_DBM);
        for (const UserBind &ub : ec.user_binds())
            if (ub.ip == ip)
                found.emplace_back(ub, true);
    }
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        wire_bindings_locked();
        for (const std::vector<UserBind> &part : dynamicBinds_)
            for (const UserBind &ub : part)
                if (ub.ip == ip)
                    found.emplace_back(ub, false);
    }
    Bytes out = page(static_cast<uint32_t>(found.size()), 0, true, ndwire::userbind::kSize);
    for (size_t i = 0; i < found.size(); ++i)
        put_user_bind_row(out, ndwire::page::kSize + i * ndwire::userbind::kSize, found[i].first, found[i].second);
    return with_item(ndwire::kRspUserBindOne, std::move(out));
}

CmfResponse NdService::clear_dynamic(const CmfRequest &r)
{
    if (r.optKind != ND_CLI_OPT_UNDO)
        return status(ND_ERR_OPERATION_FAILED);
    if (wire_)
        wire_->clear_learned(0);
    std::lock_guard<std::mutex> hold(stateMutex_);
    dynamicBinds_[0].clear();
    dynamicBinds_[1].clear();
    return ok();
}

CmfResponse NdService::prefixes(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (r.optKind == ND_CLI_OPT_UNDO)
        return prefix_undo(r);
    const CmfItem *query = find_item(r, ndwire::kItemQuery);
    if (r.optKind != ND_CLI_OPT_SHOW || !query || query->bytes.size() != ndwire::query::kSize)
        return status(ND_ERR_OPERATION_FAILED);
    uint32_t start = get<uint16_t>(query->bytes, ndwire::query::kStart);
    uint32_t size = get<uint16_t>(query->bytes, ndwire::query::kCount);
    if (size == 0)
        size = ndwire::kPageEntries;
    if (start == 0)
        wire_prefixes_locked();
    size_t first = std::min<size_t>(start, prefixes_.size());
    size_t n = std::min<size_t>(size, prefixes_.size() - first);
    bool last = first + n >= prefixes_.size();
    Bytes out = page(static_cast<uint32_t>(n), static_cast<uint16_t>(first + n), last, ndwire::prefix::kSize);
    for (size_t i = 0; i < n; ++i)
        put_prefix_row(out, ndwire::page::kSize + i * ndwire::prefix::kSize, prefixes_[first + i]);
    return with_item(ndwire::kRspPrefixPage, std::move(out));
}

// All prefixes, or the one of an address and length (128 when none is given). Called with
// stateMutex_ held.
CmfResponse NdService::prefix_undo(const CmfRequest &r)
{
    uint32_t all = 0;
    if (item_number(r, ndwire::kItemNoAddress, all) && all == 1) {
        if (wire_)
            wire_->clear_prefixes(nullptr, 0);
        prefixes_.clear();
        return ok();
    }
    Ip6 ip{};
    uint32_t length = kMaxPrefixLength;
    if (!item_address(r, ndwire::kItemAddress, ip))
        return status(ND_ERR_OPERATION_FAILED);
    item_number(r, ndwire::kItemPrefixLength, length);
    if (wire_)
        wire_->clear_prefixes(&ip, static_cast<uint8_t>(length));
    prefixes_.erase(std::remove_if(prefixes_.begin(), prefixes_.end(),
                                   [&](const Prefix &p) {
                                       return p.prefix == ip && static_cast<uint32_t>(p.length) == length;
                                   }),
                    prefixes_.end());
    return ok();
}

CmfResponse NdService::snooping_statistics(const CmfRequest &r)
{
    return statistics(r, true);
}

CmfResponse NdService::forward_statistics(const CmfRequest &r)
{
    return statistics(r, false);
}

CmfResponse NdService::statistics(const CmfRequest &r, bool snooping)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    std::vector<Counters> &table = snooping ? snoopingStats_ : forwardStats_;
    if (wire_ && r.optKind == ND_CLI_OPT_UNDO)
        snooping ? wire_->clear_statistics() : wire_->clear_fast_statistics();
    if (r.optKind == ND_CLI_OPT_SHOW)
        snooping ? wire_statistics_locked() : wire_forward_statistics_locked();
    if (r.optKind == ND_CLI_OPT_UNDO) {
        for (Counters &c : table)
            std::fill(c.values.begin(), c.values.end(), 0u);
        return ok();
    }
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    size_t counters = snooping ? ndwire::stat::kSnoopingCounters : ndwire::stat::kForwardCounters;
    size_t rowSize = snooping ? ndwire::stat::kSnoopingSize : ndwire::stat::kForwardSize;
    Bytes out = page(static_cast<uint32_t>(table.size()), 0, true, rowSize);
    for (size_t i = 0; i < table.size(); ++i)
        put_stat_row(out, ndwire::page::kSize + i * rowSize, table[i], counters);
    return with_item(snooping ? ndwire::kRspSnoopingStats : ndwire::kRspForwardStats, std::move(out));
}

CmfResponse NdService::debug(const CmfRequest &r)
{
    uint32_t mask = 0;
    item_number(r, ndwire::kItemMask, mask);
    std::lock_guard<std::mutex> hold(stateMutex_);
    switch (r.optKind) {
    case ND_CLI_OPT_SET:
        debugMask_ |= mask & ndwire::kDebugMaskAll;
        return ok();
    case ND_CLI_OPT_UNDO:
        debugMask_ &= ~mask;
        return ok();
    case ND_CLI_OPT_SHOW:
        return with_item(ndwire::kRspDebug, flag_value(debugMask_));
    default:
        return status(ND_ERR_OPERATION_FAILED);
    }
}

} // namespace ndsvc
