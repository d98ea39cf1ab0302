// ND proxy, proxy anyway, local proxy and fast response: switches kept in "ec_nd", and the
// proxy address ranges kept in memory.
#include "svc_items.h"
#include "svc_store.h"

namespace ndsvc {

CmfResponse NdService::proxy_enable(const CmfRequest &r)
{
    return proxy_interface(r, ndwire::iface::kFlagProxy);
}

CmfResponse NdService::proxy_anyway(const CmfRequest &r)
{
    return proxy_interface(r, ndwire::iface::kFlagAnyway);
}

// Both switches of an interface share its record; the record goes when neither is on.
CmfResponse NdService::proxy_interface(const CmfRequest &r, uint32_t flag)
{
    std::string name;
    if (!item_text(r, ndwire::kItemObject, name) || name.empty() || name.size() >= ndwire::iface::kNameSize)
        return status(ND_ERR_GET_IFINDEX);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (flag == ndwire::iface::kFlagAnyway && r.optKind == ND_CLI_OPT_SET && any_vxlan_suppression())
        return status(ND_ERR_CONFLICT_SUPPRESS);
    std::string key = ndwire::kKeyInterfacePrefix + name;
    uint32_t flags = interface_flags(ec.read(key));
    if (r.optKind == ND_CLI_OPT_SET) {
        if (flags & flag)
            return status(ND_ERR_IF_ENABLED);
        flags |= flag;
    } else {
        if (!(flags & flag))
            return status(ND_ERR_IF_DISABLED);
        flags &= ~flag;
    }
    if (flags == 0)
        return stored(ec.remove(key));
    return stored(ec.write(key, ndwire::kTypeInterface, interface_record(name, flags)));
}

CmfResponse NdService::local_proxy(const CmfRequest &r)
{
    uint32_t vlan = 0;
    if (!item_number(r, ndwire::kItemObject, vlan))
        return status(ND_ERR_GET_VLAN);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::string key = format("super-vlan %u", vlan);
    bool enabled = ec.exists(key);
    if (r.optKind == ND_CLI_OPT_SET) {
        if (enabled)
            return status(ND_ERR_SUPER_VLAN_ENABLED);
        return stored(ec.write(key, ndwire::kTypeSuperVlan, vlan_record(vlan)));
    }
    if (!enabled)
        return status(ND_ERR_SUPER_VLAN_DISABLED);
    return stored(ec.remove(key));
}

CmfResponse NdService::fast_response(const CmfRequest &r)
{
    // Fast response is on by default: only the switched-off state is stored.
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind == ND_CLI_OPT_UNDO)
        return stored(ec.write(ndwire::kKeyFastResponse, ndwire::kTypeFastResponse, flag_value(0)));
    return stored(ec.remove(ndwire::kKeyFastResponse));
}

CmfResponse NdService::proxy_addresses(const CmfRequest &r)
{
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (proxyAddresses_.empty())
        return ok();
    Bytes payload(proxyAddresses_.size() * ndwire::proxy::kSize, 0);
    for (size_t i = 0; i < proxyAddresses_.size(); ++i)
        put_proxy_row(payload, i * ndwire::proxy::kSize, proxyAddresses_[i]);
    return with_item(ndwire::kRspProxyAddress, std::move(payload));
}

} // namespace ndsvc
