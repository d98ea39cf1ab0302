// The ND service model: answers the requests of the ND plug-in and keeps the ND state. The
// configuration lives in the configuration database "ec_nd", in the records that the plug-in's
// running-configuration handlers read; the dynamic state (learned bindings, prefixes,
// counters, VXLAN host tables, proxy addresses, debug switches) lives here in memory.
#ifndef NDSVC_ND_SERVICE_H
#define NDSVC_ND_SERVICE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "nd_cli_wire.h"
#include "ndplat.h"

namespace ndsvc {

// The test-injection requests of the shell's ND library, and the item that holds their records.
using ndwire::kInjectRemoteNbrAdd;
using ndwire::kInjectRemoteNbrDel;
using ndwire::kInjectSuppressionAdd;
using ndwire::kInjectSuppressionDel;
constexpr uint32_t kInjectItem = ndwire::kItemObject;

// Static user-binds the service keeps at most; one more is refused with error 45.
constexpr size_t kStaticUserBindCeiling = 1024;
// The bindings learned on the wire (tentative ones included): a flood of claims stops there.
constexpr size_t kLearnedBindingCeiling = 4096;

// Limits of the dynamic state, held to by the requests and by the seed file alike.
constexpr uint32_t kMaxVlanId = 4094;
constexpr int64_t kMaxPrefixLength = 128;
constexpr uint32_t kMaxVxlanId = 16777215;
// Learned user-binds of one part: a listing pass cannot go beyond its 16-bit start index.
constexpr size_t kDynamicUserBindCeiling = 65535;
// Hosts of one VXLAN table (local or suppression): the most the plug-in follows, 32,768
// answers of 64 records.
constexpr size_t kVxlanTableCeiling = 32768 * ndwire::vxlan::kRecordsPerResponse;

using ndwire::kDiagnoseFile;

using Ip6 = std::array<uint8_t, 16>;
using Mac = std::array<uint8_t, 6>;

struct UserBind {
    Ip6 ip{};
    Mac mac{};
    uint16_t vlan = 0;
    int32_t portId = 0;
    std::string port; // interface name
    bool mpu = true;  // listed by the first pass (kTableUserBindFirst); else by the second
};

struct Prefix {
    Ip6 prefix{};
    int32_t length = 0;
    uint32_t valid = 0, preferred = 0;
};

struct Counters {
    uint8_t member = 0, instance = 0;
    std::vector<uint32_t> values; // 14 (snooping) or 20 (fast response)
};

struct ProxyAddress {
    uint32_t module = 0;
    Ip6 begin{}, end{};
};

struct VxlanHost {
    Mac mac{};
    uint32_t portIndex = 0;
};

struct SuppressionHost {
    uint32_t tunnelId = 0;
    std::string tunnelIp;
    Mac mac{};
};

struct RemoteNbr {
    uint32_t ifIndex = 0, tunnelId = 0, vrfId = 0;
    std::string tunnelIp;
    Mac mac{};
};

using VxlanKey = std::pair<uint32_t, Ip6>; // VXLAN id, host address
// The VXLAN id that the listings take for every instance: 0 is never a configured one.
constexpr uint32_t kEveryVxlan = 0;

class EcStore;
class SnoopWire;
struct VxlanSettings;

class NdService {
public:
    NdService();

    // Answers one request. Safe to call from several connections at once.
    ndplat::CmfResponse handle(const ndplat::CmfRequest &request);

    // Dynamic state from a JSON seed file; false (with the reason, which names the faulty
    // field) when it cannot be read or breaks a limit above. A refused seed changes nothing.
    bool seed_file(const std::string &path, std::string *why);
    bool seed_text(const std::string &json, std::string *why);

    // Where the plug-in is loaded from for the ISSU store (dlopen on first use).
    void plugin_path_set(const std::string &path) { pluginPath_ = path; }
    // Configuration requests are held this long (tests of concurrent configuration).
    void config_delay_set(uint32_t ms) { configDelayMs_ = ms; }
    // A smaller static user-bind table than kStaticUserBindCeiling (tests of the full table).
    void user_bind_ceiling_set(size_t ceiling) { userBindCeiling_ = ceiling; }
    // Snooping on the wire of a lab: from now on the learned bindings and the snooping counters
    // are the wire's, and every configuration request hands it the stored configuration.
    void wire_attach(SnoopWire *wire);

    // Looks for the state (tests).
    size_t suppression_count();
    size_t remote_nbr_count();
    size_t vxlan_host_count();
    uint32_t debug_mask();

private:
    using Response = ndplat::CmfResponse;
    using Request = ndplat::CmfRequest;
    using Handler = Response (NdService::*)(const Request &);

    // request dispatch (svc_dispatch.cpp)
    Response dispatch(const Request &request);
    Response configure(const Request &request);

    // proxy and fast response (svc_proxy.cpp)
    Response proxy_enable(const Request &request);
    Response proxy_anyway(const Request &request);
    Response proxy_interface(const Request &request, uint32_t flag);
    Response local_proxy(const Request &request);
    Response fast_response(const Request &request);
    Response proxy_addresses(const Request &request);

    // snooping configuration and tables (svc_snooping.cpp)
    Response global_snooping(const Request &request);
    Response loose_check(const Request &request);
    Response attack_log(const Request &request);
    Response global_flag(const Request &request, uint32_t valueType, const char *key);
    Response vlan_snooping(const Request &request);
    Response trust_port(const Request &request);
    Response detect(const Request &request);
    Response user_bind(const Request &request);
    Response static_user_bind(const Request &request);
    Response static_user_bind_undo(const Request &request);
    Response user_bind_page(const Request &request);
    Response user_bind_one(const Request &request);
    Response clear_dynamic(const Request &request);
    Response prefixes(const Request &request);
    Response prefix_undo(const Request &request);
    Response snooping_statistics(const Request &request);
    Response forward_statistics(const Request &request);
    Response statistics(const Request &request, bool snooping);
    Response debug(const Request &request);

    // VXLAN (svc_vxlan.cpp)
    Response vxlan_setting(const Request &request);
    Response vxlan_suppression(const Request &request);
    // An answer when the request ends there; none when the changed settings are to be stored.
    std::optional<Response> vxlan_value(const Request &request, bool set, VxlanSettings &s);
    std::optional<Response> vxlan_flag(bool set, uint32_t flag, bool needsSuppression, VxlanSettings &s);
    Response vxlan_suppression_show(const Request &request);
    Response vxlan_host(const Request &request);
    Response vxlan_hosts(const Request &request);
    Response inject(const Request &request);
    bool any_interface_anyway();
    bool any_vxlan_suppression();

    // ISSU of the VXLAN host table (svc_issu.cpp)
    Response vxlan_issu(uint32_t selector);
    bool load_plugin();

    // the wire (svc_wire.cpp)
    void wire_sync();
    void wire_bindings_locked();
    void wire_statistics_locked();
    void wire_forward_statistics_locked();
    void wire_prefixes_locked();
    void wire_vxlan_hosts_locked();
    void wire_restore_hosts_locked(const std::map<VxlanKey, VxlanHost> &hosts);

    // diagnose (svc_diagnose.cpp)
    Response diagnose(const Request &request);
    std::string diagnose_vxlan(EcStore &ec, uint32_t id);
    std::string diagnose_vxlan_hosts(uint32_t kind, uint32_t value);
    std::string diagnose_global(EcStore &ec);
    std::string diagnose_every_vxlan(EcStore &ec);
    std::string diagnose_acl(EcStore &ec);
    std::string diagnose_requests();
    std::string diagnose_interfaces(EcStore &ec);

    std::mutex stateMutex_;  // the in-memory state
    std::mutex configMutex_; // one configuration request at a time
    std::string pluginPath_;
    void *plugin_ = nullptr;
    uint32_t configDelayMs_ = 0;
    size_t userBindCeiling_ = kStaticUserBindCeiling;
    SnoopWire *wire_ = nullptr;

    uint32_t debugMask_ = 0;
    std::vector<UserBind> dynamicBinds_[2]; // listed by the first pass, by the second pass
    std::vector<Prefix> prefixes_;
    std::vector<Counters> snoopingStats_;
    std::vector<Counters> forwardStats_;
    std::vector<ProxyAddress> proxyAddresses_;
    std::map<VxlanKey, VxlanHost> hosts_;
    std::map<VxlanKey, SuppressionHost> suppression_;
    std::map<std::pair<uint32_t, VxlanKey>, RemoteNbr> remoteNbrs_; // entry type first
    std::map<uint32_t, uint64_t> requestCounts_;                    // per command code
};

} // namespace ndsvc

#endif
