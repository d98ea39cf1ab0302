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
#include <string>
#include <vector>

#include "ndplat.h"

namespace ndsvc {

// Request codes that only the emulation uses: the ND library of the shell's process hands the
// test-injection records to the service with these (one item of type 1 holding one or more
// records back to back).
constexpr uint32_t kInjectSuppressionAdd = 1000;
constexpr uint32_t kInjectSuppressionDel = 1001;
constexpr uint32_t kInjectRemoteNbrAdd = 1002;
constexpr uint32_t kInjectRemoteNbrDel = 1003;
constexpr uint32_t kInjectItem = 1;

// Static user-binds the service keeps at most; one more is refused with error 45.
constexpr size_t kStaticUserBindCeiling = 1024;
// Records of a VXLAN table answer; the client asks for the rest with a follow-up request.
constexpr size_t kVxlanRecordsPerResponse = 64;
constexpr uint32_t kVxlanRecordSize = 124;

// Limits of the dynamic state, held to by the requests and by the seed file alike.
constexpr uint32_t kMaxVlanId = 4094;
constexpr int64_t kMaxPrefixLength = 128;
constexpr uint32_t kStatisticsMembers = 8;   // member numbers 0..7
constexpr uint32_t kStatisticsInstances = 2; // instance numbers 0..1
constexpr uint32_t kDebugMaskAll = 63;
constexpr uint32_t kMaxVxlanId = 16777215;
// Learned user-binds of one part: a listing pass cannot go beyond its 16-bit start index.
constexpr size_t kDynamicUserBindCeiling = 65535;
// Hosts of one VXLAN table (local or suppression): the most the plug-in follows, 32,768
// answers of kVxlanRecordsPerResponse.
constexpr size_t kVxlanTableCeiling = 32768 * kVxlanRecordsPerResponse;

// Where the diagnose text goes; the plug-in prints and deletes it.
constexpr const char *kDiagnoseFile = "/tmp/.nd_diagnose";

using Ip6 = std::array<uint8_t, 16>;
using Mac = std::array<uint8_t, 6>;

struct UserBind {
    Ip6 ip{};
    Mac mac{};
    uint16_t vlan = 0;
    int32_t portId = 0;
    std::string port; // interface name
    bool mpu = true;  // listed by the first pass (kind 3); else by the second (kind 4)
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

    // Looks for the state (tests).
    size_t suppression_count();
    size_t remote_nbr_count();
    size_t vxlan_host_count();
    uint32_t debug_mask();

private:
    using Response = ndplat::CmfResponse;
    using Request = ndplat::CmfRequest;

    Response dispatch(const Request &request);
    Response configure(const Request &request);
    Response configureLocked(const Request &request);

    Response proxyInterface(const Request &request, uint32_t flag);
    Response localProxy(const Request &request);
    Response fastResponse(const Request &request);
    Response globalSnooping(const Request &request);
    Response globalFlag(const Request &request, uint32_t valueType, const char *key);
    Response vlanSnooping(const Request &request);
    Response trustPort(const Request &request);
    Response detect(const Request &request);
    Response staticUserBind(const Request &request);
    Response userBindPage(const Request &request);
    Response userBindOne(const Request &request);
    Response prefixes(const Request &request);
    Response statistics(const Request &request, bool snooping);
    Response debug(const Request &request);
    Response proxyAddresses(const Request &request);
    Response vxlanConfig(const Request &request);
    Response vxlanSuppressionShow(const Request &request);
    Response vxlanHosts(const Request &request);
    Response vxlanIssu(const Request &request, uint32_t selector);
    Response diagnose(const Request &request);
    Response inject(const Request &request);

    bool anyInterfaceAnyway();
    bool anyVxlanSuppression();
    bool loadPlugin();

    std::mutex stateMutex_;   // the in-memory state
    std::mutex configMutex_;  // one configuration request at a time
    std::string pluginPath_;
    void *plugin_ = nullptr;
    uint32_t configDelayMs_ = 0;
    size_t userBindCeiling_ = kStaticUserBindCeiling;

    uint32_t debugMask_ = 0;
    std::vector<UserBind> dynamicBinds_[2]; // listed by the first pass (kind 3), by the second (kind 4)
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
