// VXLAN: the settings of each VXLAN id kept in "ec_nd"; the local host, suppression host and
// remote neighbour tables kept in memory and answered page by page.
#include <optional>

#include "snoop_wire.h"
#include "svc_items.h"
#include "svc_store.h"

namespace ndsvc {

namespace {

namespace vx = ndwire::vxlan;
namespace vc = ndwire::vxlancfg;

// One answer of a VXLAN table: up to kRecordsPerResponse records from the position after the
// record that the follow-up request carries, of one VXLAN id when the request names one. Id 0,
// never a valid instance, is every instance: the show handlers read their id from the words the
// shell passes, and behind an output modifier ("| include ...") that word is not a number.
template <typename Map, typename MakeRecord>
CmfResponse vxlan_page(const CmfRequest &request, const Map &table, MakeRecord make)
{
    uint32_t id = 0;
    bool oneId = item_number(request, ndwire::kItemVxlanId, id) && id != kEveryVxlan;
    auto it = oneId ? table.lower_bound(VxlanKey{id, Ip6{}}) : table.begin();
    if (const CmfItem *last = find_item(request, ndwire::kItemLastRecord)) {
        // The record last received: its VXLAN id and address give the place to go on from.
        Ip6 ip{};
        uint32_t lastId = 0;
        std::string text;
        if (last->bytes.size() >= vx::kVxlanId + sizeof lastId) {
            text = text_at(last->bytes.data(), vx::kHostAddress, vx::kAddressTextSize);
            memcpy(&lastId, last->bytes.data() + vx::kVxlanId, sizeof lastId);
        }
        if (!parse_ip6(text, ip)) {
            CmfResponse end = ok();
            end.items.push_back(CmfItem::u32(ndwire::kRspVxlanEnd, 0));
            return end;
        }
        it = table.upper_bound(VxlanKey{lastId, ip});
    }
    CmfResponse r = ok();
    for (size_t n = 0; it != table.end() && n < vx::kRecordsPerResponse; ++it, ++n) {
        if (oneId && it->first.first != id)
            break;
        Bytes rec = make(it->first, it->second);
        r.items.push_back(CmfItem::of(ndwire::kRspVxlanRecord, rec.data(), vx::kSize));
    }
    bool more = it != table.end() && (!oneId || it->first.first == id);
    if (more)
        r.status = ndwire::kCmfOk;
    else
        r.items.push_back(CmfItem::u32(ndwire::kRspVxlanEnd, 0));
    return r;
}

} // namespace

// ---- settings -------------------------------------------------------------------------------------

bool NdService::any_interface_anyway()
{
    EcStore ec;
    for (const std::string &key : ec.keys(ndwire::kTypeInterface))
        if (interface_flags(ec.read(key)) & ndwire::iface::kFlagAnyway)
            return true;
    return false;
}

bool NdService::any_vxlan_suppression()
{
    EcStore ec;
    for (const std::string &key : ec.keys(ndwire::kTypeVxlan)) {
        Bytes rec = ec.read(key);
        if (rec.size() >= vc::kSize && (get<uint32_t>(rec, vc::kFlags) & vc::kFlagSuppression))
            return true;
    }
    return false;
}

CmfResponse NdService::vxlan_suppression(const CmfRequest &r)
{
    return r.optKind == ND_CLI_OPT_SHOW ? vxlan_suppression_show(r) : vxlan_setting(r);
}

CmfResponse NdService::vxlan_setting(const CmfRequest &r)
{
    uint32_t id = 0;
    if (!item_number(r, ndwire::kItemVxlanId, id))
        return status(ND_ERR_OPERATION_FAILED);
    bool set = r.optKind == ND_CLI_OPT_SET;
    if (!set && r.optKind != ND_CLI_OPT_UNDO)
        return status(ND_ERR_OPERATION_FAILED);
    if (r.cmdCode == ndwire::kCmdVxlanSuppression && set && any_interface_anyway())
        return status(ND_ERR_CONFLICT_ANYWAY);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    VxlanSettings s = ec.vxlan(id);
    std::optional<CmfResponse> answer;
    switch (r.cmdCode) {
    case ndwire::kCmdVxlanTimeout:
    case ndwire::kCmdVxlanLimit:
        answer = vxlan_value(r, set, s);
        break;
    case ndwire::kCmdVxlanAdvertise:
        // Advertisement is on by default; switching it off is the setting that is stored.
        answer = vxlan_flag(set, vc::kFlagAdvertise, false, s);
        break;
    case ndwire::kCmdVxlanSuppression:
        answer = vxlan_flag(set, vc::kFlagSuppression, false, s);
        break;
    case ndwire::kCmdVxlanMissDiscard:
        answer = vxlan_flag(set, vc::kFlagMissDiscard, true, s);
        break;
    default:
        answer = vxlan_flag(set, vc::kFlagUnicast, true, s);
        break;
    }
    return answer ? *answer : stored(ec.vxlan_set(id, s));
}

// The host timeout or limit. Undoing one that is at its default succeeds and stores nothing, as
// any `no` of what is not set does.
std::optional<CmfResponse> NdService::vxlan_value(const CmfRequest &r, bool set, VxlanSettings &s)
{
    bool timeout = r.cmdCode == ndwire::kCmdVxlanTimeout;
    uint32_t &field = timeout ? s.timeout : s.limit;
    uint32_t standard = timeout ? vc::kDefaultTimeout : vc::kDefaultLimit;
    uint32_t value = 0;
    if (!item_number(r, timeout ? ndwire::kItemTimeout : ndwire::kItemLimit, value))
        return status(ND_ERR_OPERATION_FAILED);
    if (!set) {
        if (field == standard)
            return ok();
        value = standard;
    }
    field = value;
    return std::nullopt;
}

// A switch of the settings. Unicast forwarding and miss discard need suppression, and go with it.
// Switching off what is off succeeds and stores nothing.
std::optional<CmfResponse> NdService::vxlan_flag(bool set, uint32_t flag, bool needsSuppression, VxlanSettings &s)
{
    if (set) {
        if (needsSuppression && !(s.flags & vc::kFlagSuppression))
            return status(ND_ERR_VXLAN_NO_SUPPRESS);
        s.flags |= flag;
        return std::nullopt;
    }
    if (!(s.flags & flag))
        return ok();
    s.flags &= ~flag;
    if (flag == vc::kFlagSuppression)
        s.flags &= ~(vc::kFlagUnicast | vc::kFlagMissDiscard);
    return std::nullopt;
}

// ---- tables ---------------------------------------------------------------------------------------

CmfResponse NdService::vxlan_suppression_show(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return vxlan_page(r, suppression_, [](const VxlanKey &key, const SuppressionHost &h) {
        return vxlan_row(key.first, key.second, h.tunnelIp, h.tunnelId, 0, h.mac);
    });
}

CmfResponse NdService::vxlan_host(const CmfRequest &r)
{
    uint32_t selector = 0;
    if (r.optKind == ND_CLI_OPT_SET && item_number(r, ndwire::kItemIssuSelector, selector))
        return vxlan_issu(selector);
    return vxlan_hosts(r);
}

CmfResponse NdService::vxlan_hosts(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (r.optKind == ND_CLI_OPT_UNDO) {
        uint32_t id = 0;
        bool oneId = item_number(r, ndwire::kItemVxlanId, id);
        Ip6 ip{};
        bool oneIp = item_address(r, ndwire::kItemAddress, ip);
        if (wire_)
            wire_->forget_vxlan_hosts(oneId ? id : kEveryVxlan, oneIp ? &ip : nullptr);
        for (auto it = hosts_.begin(); it != hosts_.end();) {
            bool match = (!oneId || it->first.first == id) && (!oneIp || it->first.second == ip);
            it = match ? hosts_.erase(it) : std::next(it);
        }
        return ok();
    }
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    // A listing reads the wire's table once, at its first page; the next pages go on from the
    // last record in that copy.
    if (!find_item(r, ndwire::kItemLastRecord))
        wire_vxlan_hosts_locked();
    return vxlan_page(r, hosts_, [](const VxlanKey &key, const VxlanHost &h) {
        return vxlan_row(key.first, key.second, "", 0, h.portIndex, h.mac);
    });
}

// ---- test injection ---------------------------------------------------------------------------------

CmfResponse NdService::inject(const CmfRequest &r)
{
    const CmfItem *records = find_item(r, kInjectItem);
    bool suppression = r.cmdCode == kInjectSuppressionAdd || r.cmdCode == kInjectSuppressionDel;
    bool add = r.cmdCode == kInjectSuppressionAdd || r.cmdCode == kInjectRemoteNbrAdd;
    size_t size = suppression ? ndwire::suppression::kSize : ndwire::remotenbr::kSize;
    if (!records || records->bytes.size() % size != 0)
        return status(ND_ERR_OPERATION_FAILED);
    std::lock_guard<std::mutex> hold(stateMutex_);
    std::vector<SnoopWire::SuppressionChange> changes;
    for (size_t at = 0; at < records->bytes.size(); at += size) {
        const uint8_t *p = records->bytes.data() + at;
        VxlanKey key;
        if (suppression) {
            SuppressionHost h;
            read_suppression(p, key, h);
            if (wire_)
                changes.push_back({key, h.mac, add});
            if (add)
                suppression_[key] = std::move(h);
            else
                suppression_.erase(key);
            continue;
        }
        uint32_t type = 0;
        RemoteNbr n;
        read_remote_nbr(p, type, key, n);
        if (add)
            remoteNbrs_[{type, key}] = std::move(n);
        else
            remoteNbrs_.erase({type, key});
    }
    // The wire answers for the remote hosts of the suppression table.
    if (wire_ && !changes.empty())
        wire_->suppression_hosts(changes);
    return ok();
}

} // namespace ndsvc
