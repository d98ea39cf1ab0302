// Request dispatch: every request is counted, configuration requests are taken one at a time,
// and the command code picks the area of the model that answers.
#include <chrono>
#include <thread>

#include "svc_items.h"
#include "svc_store.h"

namespace ndsvc {

namespace {

// Requests that change the configuration: the setting and undoing forms of these codes.
bool is_configuration(const CmfRequest &r)
{
    bool changes = r.optKind == ND_CLI_OPT_SET || r.optKind == ND_CLI_OPT_UNDO;
    switch (r.cmdCode) {
    case ND_CMD_PROXY_ENABLE:
    case ND_CMD_LOCAL_PROXY_ENABLE:
    case ND_CMD_FAST_RESPONSE:
    case ND_CMD_SNP_GLOBAL_ENABLE:
    case ND_CMD_SNP_LOOSE:
    case ND_CMD_SNP_VLAN_ENABLE:
    case ND_CMD_SNP_TRUST:
    case ND_CMD_SNP_DETECT:
    case ND_CMD_SNP_ATTACK_LOG:
    case ND_CMD_PROXY_ANYWAY:
    case ND_CMD_SNP_USER_BIND:
    case ndwire::kCmdVxlanTimeout:
    case ndwire::kCmdVxlanLimit:
    case ndwire::kCmdVxlanAdvertise:
    case ndwire::kCmdVxlanSuppression:
    case ndwire::kCmdVxlanMissDiscard:
    case ndwire::kCmdVxlanUnicast:
        return changes;
    default:
        return false;
    }
}

} // namespace

NdService::NdService()
{
    snoopingStats_.push_back(Counters{0, 0, std::vector<uint32_t>(ndwire::stat::kSnoopingCounters, 0)});
    forwardStats_.push_back(Counters{0, 0, std::vector<uint32_t>(ndwire::stat::kForwardCounters, 0)});
}

size_t NdService::suppression_count()
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return suppression_.size();
}

size_t NdService::remote_nbr_count()
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return remoteNbrs_.size();
}

size_t NdService::vxlan_host_count()
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    wire_vxlan_hosts_locked();
    return hosts_.size();
}

uint32_t NdService::debug_mask()
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return debugMask_;
}

CmfResponse NdService::handle(const CmfRequest &request)
{
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        ++requestCounts_[request.cmdCode];
    }
    if (is_configuration(request))
        return configure(request);
    return dispatch(request);
}

CmfResponse NdService::configure(const CmfRequest &request)
{
    // A configuration request that finds another one still in progress is refused, as the
    // service on the switch does, rather than queued.
    std::unique_lock<std::mutex> busy(configMutex_, std::try_to_lock);
    if (!busy.owns_lock())
        return status(ND_ERR_SYSTEM_BUSY);
    if (configDelayMs_)
        std::this_thread::sleep_for(std::chrono::milliseconds(configDelayMs_));
    CmfResponse response = dispatch(request);
    wire_sync();
    return response;
}

CmfResponse NdService::dispatch(const CmfRequest &r)
{
    struct Route {
        uint32_t code;
        Handler handler;
    };
    static constexpr Route kRoutes[] = {
        {ND_CMD_PROXY_ENABLE, &NdService::proxy_enable},
        {ND_CMD_PROXY_ANYWAY, &NdService::proxy_anyway},
        {ND_CMD_LOCAL_PROXY_ENABLE, &NdService::local_proxy},
        {ND_CMD_FAST_RESPONSE, &NdService::fast_response},
        {ND_CMD_PROXY_ADDRESS, &NdService::proxy_addresses},
        {ND_CMD_SNP_GLOBAL_ENABLE, &NdService::global_snooping},
        {ND_CMD_SNP_LOOSE, &NdService::loose_check},
        {ND_CMD_SNP_ATTACK_LOG, &NdService::attack_log},
        {ND_CMD_SNP_VLAN_ENABLE, &NdService::vlan_snooping},
        {ND_CMD_SNP_TRUST, &NdService::trust_port},
        {ND_CMD_SNP_DETECT, &NdService::detect},
        {ND_CMD_SNP_STATISTICS, &NdService::snooping_statistics},
        {ND_CMD_FORWARD_STATISTICS, &NdService::forward_statistics},
        {ND_CMD_SNP_PREFIX, &NdService::prefixes},
        {ND_CMD_SNP_USER_BIND, &NdService::user_bind},
        {ND_CMD_SNP_USER_BIND_ADDR, &NdService::user_bind_one},
        {ND_CMD_SNP_CLEAR_DYNAMIC, &NdService::clear_dynamic},
        {ND_CMD_DEBUG, &NdService::debug},
        {ndwire::kCmdVxlanTimeout, &NdService::vxlan_setting},
        {ndwire::kCmdVxlanLimit, &NdService::vxlan_setting},
        {ndwire::kCmdVxlanAdvertise, &NdService::vxlan_setting},
        {ndwire::kCmdVxlanSuppression, &NdService::vxlan_suppression},
        {ndwire::kCmdVxlanMissDiscard, &NdService::vxlan_setting},
        {ndwire::kCmdVxlanUnicast, &NdService::vxlan_setting},
        {ND_CMD_VXLAN_HOST, &NdService::vxlan_host},
        {ND_CMD_DIAGNOSE, &NdService::diagnose},
        {kInjectSuppressionAdd, &NdService::inject},
        {kInjectSuppressionDel, &NdService::inject},
        {kInjectRemoteNbrAdd, &NdService::inject},
        {kInjectRemoteNbrDel, &NdService::inject},
    };
    for (const Route &route : kRoutes)
        if (route.code == r.cmdCode)
            return (this->*route.handler)(r);
    return status(ND_ERR_OPERATION_FAILED);
}

} // namespace ndsvc
