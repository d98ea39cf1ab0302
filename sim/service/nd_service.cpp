// The ND service model. Configuration requests check and change the records of "ec_nd" (the
// database is the one place where configuration lives, so that it survives a restart of the
// service and shows in the running configuration); everything learned at run time is kept in
// memory.
#include "nd_service.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "nd_cli_types.h"
#include "ndplat_dbm.h"
#include "ndplat_ports.h"

namespace ndsvc {
namespace {

using ndplat::CmfItem;
using ndplat::CmfRequest;
using ndplat::CmfResponse;

// ---- codes ------------------------------------------------------------------------------------

constexpr uint32_t kStatusMore = 0;
constexpr uint32_t kStatusLast = 13;
constexpr uint32_t kStatusNotSet = 6; // undoing a VXLAN setting that is not set

// Response codes (type of the response item).
constexpr uint32_t kRspSnoopingStats = 9;
constexpr uint32_t kRspPrefixPage = 10;
constexpr uint32_t kRspUserBindPage = 11;
constexpr uint32_t kRspUserBindOne = 12;
constexpr uint32_t kRspDebug = 14;
constexpr uint32_t kRspForwardStats = 16;
constexpr uint32_t kRspVxlanRecord = 17;
constexpr uint32_t kRspProxyAddress = 18;
constexpr uint32_t kRspVxlanEnd = 20;

// Request item types.
constexpr uint32_t kItemObject = 1;
constexpr uint32_t kItemVlan = 2;
constexpr uint32_t kItemPortId = 3;
constexpr uint32_t kItemAddress = 4;
constexpr uint32_t kItemPrefixLength = 5;
constexpr uint32_t kItemMac = 6;
constexpr uint32_t kItemRetransmit = 7;
constexpr uint32_t kItemInterval = 8;
constexpr uint32_t kItemQuery = 9;
constexpr uint32_t kItemMask = 11;
constexpr uint32_t kItemNoAddress = 12;
constexpr uint32_t kItemDiagnoseKind = 13;
constexpr uint32_t kItemTimeout = 14;
constexpr uint32_t kItemVxlanId = 15;
constexpr uint32_t kItemLimit = 16;
constexpr uint32_t kItemLastRecord = 19;
constexpr uint32_t kItemIssuSelector = 21;

// Value types of the "ec_nd" records. The running-configuration handlers walk 0, 2, 3, 4, 9
// and 10 by type and read the others by key, so no other record may use those six.
constexpr uint32_t kTypeFastResponse = 0;
constexpr uint32_t kTypeInterface = 1;
constexpr uint32_t kTypeUserBindList = 2;
constexpr uint32_t kTypeSnooping = 3;
constexpr uint32_t kTypeDetect = 4;
constexpr uint32_t kTypeSuperVlan = 5;
constexpr uint32_t kTypeVlan = 6;
constexpr uint32_t kTypePort = 8;
constexpr uint32_t kTypeAttackLog = 9;
constexpr uint32_t kTypeLoose = 10;
constexpr uint32_t kTypeVxlan = 11;

constexpr const char *kKeyFastResponse = "nd_fast_response";
constexpr const char *kKeySnooping = "nd_snooping_enable";
constexpr const char *kKeyLoose = "nd_snooping_ns_check_loose";
constexpr const char *kKeyDetect = "nd_snooping_detect";
constexpr const char *kKeyAttackLog = "nd_snooping_attack_log";
constexpr const char *kKeyUserBinds = "nd_snooping_user_bind_static";

constexpr uint32_t kUserBindSize = 72;
constexpr uint32_t kUserBindSortKey = 16; // unique by address
constexpr uint32_t kInterfaceRecordSize = 72;
constexpr uint32_t kSmallRecordSize = 56;
constexpr uint32_t kVxlanRecordSizeDb = 20;
constexpr uint32_t kIfFlagProxy = 1;
constexpr uint32_t kIfFlagAnyway = 2;

constexpr uint32_t kVxFlagAdvertise = 1;
constexpr uint32_t kVxFlagSuppression = 2;
constexpr uint32_t kVxFlagUnicast = 4;
constexpr uint32_t kVxFlagMissDiscard = 8;
constexpr uint32_t kVxDefaultFlags = kVxFlagAdvertise;
constexpr uint32_t kVxDefaultTimeout = 360;
constexpr uint32_t kVxDefaultLimit = 20480;

constexpr size_t kSnoopingCounters = 14;
constexpr size_t kForwardCounters = 20;
constexpr uint32_t kPageHeader = 12;
constexpr uint32_t kPrefixRecordSize = 28;
constexpr uint32_t kProxyRecordSize = 36;
constexpr uint32_t kSuppressionRecordSize = 52;
constexpr uint32_t kRemoteNbrRecordSize = 64;
constexpr uint32_t kIssuEntrySize = 80;

// ---- small helpers ----------------------------------------------------------------------------

CmfResponse status(uint32_t code)
{
    CmfResponse r;
    r.status = code;
    r.endStatus = kStatusLast;
    return r;
}

CmfResponse ok()
{
    return status(kStatusLast);
}

CmfResponse notSet()
{
    CmfResponse r = ok();
    r.endStatus = kStatusNotSet;
    return r;
}

CmfResponse withItem(uint32_t code, std::vector<uint8_t> bytes)
{
    CmfResponse r = ok();
    CmfItem item;
    item.type = code;
    item.length = static_cast<uint32_t>(bytes.size());
    item.bytes = std::move(bytes);
    r.items.push_back(std::move(item));
    return r;
}

const CmfItem *findItem(const CmfRequest &request, uint32_t type)
{
    for (const CmfItem &item : request.items)
        if (item.type == type)
            return &item;
    return nullptr;
}

// An unsigned number item of 1, 2 or 4 bytes, in host order.
bool itemNumber(const CmfRequest &request, uint32_t type, uint32_t &out)
{
    const CmfItem *item = findItem(request, type);
    if (!item)
        return false;
    switch (item->bytes.size()) {
    case 1:
        out = item->bytes[0];
        return true;
    case 2: {
        uint16_t v;
        memcpy(&v, item->bytes.data(), 2);
        out = v;
        return true;
    }
    case 4:
        memcpy(&out, item->bytes.data(), 4);
        return true;
    default:
        return false;
    }
}

bool itemAddress(const CmfRequest &request, uint32_t type, Ip6 &out)
{
    const CmfItem *item = findItem(request, type);
    if (!item || item->bytes.size() != 16)
        return false;
    memcpy(out.data(), item->bytes.data(), 16);
    return true;
}

// A text item: NUL-terminated within its bytes (or the whole value when no NUL).
bool itemText(const CmfRequest &request, uint32_t type, std::string &out)
{
    const CmfItem *item = findItem(request, type);
    if (!item || item->bytes.empty())
        return false;
    const char *p = reinterpret_cast<const char *>(item->bytes.data());
    out.assign(p, strnlen(p, item->bytes.size()));
    return true;
}

template <typename T> void put(std::vector<uint8_t> &buf, size_t offset, T value)
{
    memcpy(buf.data() + offset, &value, sizeof value);
}

template <typename T> T get(const std::vector<uint8_t> &buf, size_t offset)
{
    T value{};
    if (buf.size() >= offset + sizeof value)
        memcpy(&value, buf.data() + offset, sizeof value);
    return value;
}

void putText(std::vector<uint8_t> &buf, size_t offset, size_t room, const std::string &text)
{
    size_t n = std::min(text.size(), room - 1);
    memcpy(buf.data() + offset, text.data(), n);
}

std::string ip6Text(const Ip6 &ip)
{
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(AF_INET6, ip.data(), text, sizeof text);
    return text;
}

std::string macText(const Mac &mac)
{
    char text[16];
    snprintf(text, sizeof text, "%02x%02x.%02x%02x.%02x%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

bool parseIp6(const std::string &text, Ip6 &out)
{
    return inet_pton(AF_INET6, text.c_str(), out.data()) == 1;
}

// Twelve hexadecimal digits, in groups separated by ':', '-' or '.'.
bool parseMac(const std::string &text, Mac &out)
{
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)))
            digits += c;
        else if (c != ':' && c != '-' && c != '.')
            return false;
    }
    if (digits.size() != 12)
        return false;
    for (size_t i = 0; i < 6; ++i)
        out[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
    return true;
}

// Adds n to the last 32 bits of an address (big-endian, wrapping, no carry upwards).
Ip6 addToAddress(Ip6 ip, uint32_t n)
{
    uint32_t low = (uint32_t(ip[12]) << 24) | (uint32_t(ip[13]) << 16) | (uint32_t(ip[14]) << 8) | ip[15];
    low += n;
    ip[12] = uint8_t(low >> 24);
    ip[13] = uint8_t(low >> 16);
    ip[14] = uint8_t(low >> 8);
    ip[15] = uint8_t(low);
    return ip;
}

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *fmt, ...)
{
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return buf;
}

// ---- the configuration database ----------------------------------------------------------------

class Ec {
public:
    explicit Ec(const char *name = "ec_nd")
    {
        const uint32_t param[7] = {1, 1, 256, 0, 0, 0, 0};
        if (DBM_Open(name, 1, param, 0, 0, &h_) != 0)
            h_ = nullptr;
    }
    ~Ec()
    {
        if (h_)
            DBM_Close(h_);
    }
    Ec(const Ec &) = delete;
    Ec &operator=(const Ec &) = delete;

    bool ok() const { return h_ != nullptr; }
    DBM_HANDLE handle() const { return h_; }

    static uint16_t len(const std::string &key) { return static_cast<uint16_t>(key.size()); }

    bool exists(const std::string &key) { return DBM_GetLen(h_, key.data(), len(key)) > 0; }
    std::vector<uint8_t> read(const std::string &key)
    {
        int32_t n = DBM_GetLen(h_, key.data(), len(key));
        if (n <= 0)
            return {};
        std::vector<uint8_t> buf(static_cast<size_t>(n));
        int32_t got = DBM_GetUniqueBinary(h_, key.data(), len(key), 0, buf.data(), static_cast<uint32_t>(n));
        buf.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return buf;
    }
    bool write(const std::string &key, uint32_t type, const std::vector<uint8_t> &value)
    {
        return DBM_SetUniqueBinary(h_, key.data(), len(key), type, value.data(), static_cast<uint32_t>(value.size()),
                                   0) == 0;
    }
    bool remove(const std::string &key) { return DBM_Delete(h_, key.data(), len(key)) == 0; }

    // The keys of every record of a value type, in key order.
    std::vector<std::string> keys(uint32_t type)
    {
        std::vector<std::string> out;
        DBM_Proc(h_, type,
                 [](DBM_HANDLE, const void *key, uint16_t keyLen, void *arg) -> int32_t {
                     static_cast<std::vector<std::string> *>(arg)->emplace_back(static_cast<const char *>(key), keyLen);
                     return 0;
                 },
                 &out);
        return out;
    }

private:
    DBM_HANDLE h_ = nullptr;
};

std::vector<uint8_t> u32Value(uint32_t v)
{
    std::vector<uint8_t> b(4);
    put<uint32_t>(b, 0, v);
    return b;
}

struct VxlanSettings {
    uint32_t flags = kVxDefaultFlags, timeout = kVxDefaultTimeout, limit = kVxDefaultLimit;
    bool isDefault() const
    {
        return flags == kVxDefaultFlags && timeout == kVxDefaultTimeout && limit == kVxDefaultLimit;
    }
};

std::string vxlanKey(uint32_t id)
{
    return format("vxlan %u", id);
}

VxlanSettings readVxlan(Ec &ec, uint32_t id)
{
    VxlanSettings s;
    std::vector<uint8_t> rec = ec.read(vxlanKey(id));
    if (rec.size() >= kVxlanRecordSizeDb && get<uint32_t>(rec, 0) == id) {
        s.flags = get<uint32_t>(rec, 8);
        s.timeout = get<uint32_t>(rec, 12);
        s.limit = get<uint32_t>(rec, 16);
    }
    return s;
}

bool writeVxlan(Ec &ec, uint32_t id, const VxlanSettings &s)
{
    if (s.isDefault())
        return ec.remove(vxlanKey(id));
    std::vector<uint8_t> rec(kVxlanRecordSizeDb, 0);
    put<uint32_t>(rec, 0, id);
    put<uint32_t>(rec, 8, s.flags);
    put<uint32_t>(rec, 12, s.timeout);
    put<uint32_t>(rec, 16, s.limit);
    return ec.write(vxlanKey(id), kTypeVxlan, rec);
}

bool isConfiguration(const CmfRequest &r)
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
    case 19:
    case 20:
    case 21:
    case 22:
    case 23:
    case 24:
        return changes;
    default:
        return false;
    }
}

// A user-bind as the listing carries it: the port ID at 22 (0 hides the row), type 2 static.
void putUserBindRecord(std::vector<uint8_t> &buf, size_t at, const UserBind &ub, bool isStatic)
{
    memcpy(buf.data() + at, ub.ip.data(), 16);
    put<uint16_t>(buf, at + 20, ub.vlan);
    put<uint16_t>(buf, at + 22, static_cast<uint16_t>(ub.portId));
    putText(buf, at + 24, 40, ub.port);
    memcpy(buf.data() + at + 64, ub.mac.data(), 6);
    buf[at + 70] = isStatic ? 2 : 1;
}

// The stored static entry: the port ID at 16 (not read by the running configuration), the
// static flag at 22.
std::vector<uint8_t> staticEntry(const UserBind &ub)
{
    std::vector<uint8_t> e(kUserBindSize, 0);
    memcpy(e.data(), ub.ip.data(), 16);
    put<uint32_t>(e, 16, static_cast<uint32_t>(ub.portId));
    put<uint16_t>(e, 20, ub.vlan);
    put<uint16_t>(e, 22, 1);
    putText(e, 24, 40, ub.port);
    memcpy(e.data() + 64, ub.mac.data(), 6);
    e[70] = 2;
    return e;
}

UserBind fromStaticEntry(const uint8_t *e)
{
    UserBind ub;
    memcpy(ub.ip.data(), e, 16);
    memcpy(&ub.portId, e + 16, 4);
    memcpy(&ub.vlan, e + 20, 2);
    char name[41] = {};
    memcpy(name, e + 24, 40);
    ub.port = name;
    memcpy(ub.mac.data(), e + 64, 6);
    // Replayed configuration carries the interface by name only; the listing needs its ID.
    if (ub.portId <= 0)
        ub.portId = ndplat::port_id(ub.port);
    return ub;
}

std::vector<UserBind> staticBinds(Ec &ec)
{
    std::vector<uint8_t> list = ec.read(kKeyUserBinds);
    std::vector<UserBind> out;
    for (size_t at = 0; at + kUserBindSize <= list.size(); at += kUserBindSize)
        out.push_back(fromStaticEntry(list.data() + at));
    return out;
}

std::vector<uint8_t> pageHeader(uint32_t records, uint16_t next, bool last)
{
    std::vector<uint8_t> h(kPageHeader, 0);
    put<uint32_t>(h, 0, records);
    put<uint16_t>(h, 4, next);
    put<uint32_t>(h, 8, last ? 1u : 0u);
    return h;
}

// Writes the diagnose text to kDiagnoseFile. The text is written first into a file of a fresh
// directory that only this process can write (mkdtemp: a name nobody can guess, mode 0700),
// then renamed into place: rename replaces whatever was planted at the final name, a symbolic
// link included, instead of following it. When the text cannot be put in place, what is at
// the final name is removed, so that nothing planted there is shown as the dump; false then.
bool writeDiagnose(const std::string &text)
{
    std::string dir = std::string(kDiagnoseFile) + ".XXXXXX";
    if (!mkdtemp(dir.data())) {
        unlink(kDiagnoseFile);
        return false;
    }
    std::string tmp = dir + "/text";
    bool good = false;
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd >= 0) {
        size_t done = 0;
        while (done < text.size()) {
            ssize_t n = write(fd, text.data() + done, text.size() - done);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                break;
            done += static_cast<size_t>(n);
        }
        good = close(fd) == 0 && done == text.size() && rename(tmp.c_str(), kDiagnoseFile) == 0;
    }
    if (!good) {
        unlink(tmp.c_str());
        unlink(kDiagnoseFile);
    }
    rmdir(dir.c_str());
    return good;
}

std::string tunnelText(uint8_t family, const uint8_t *addr)
{
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(family == AF_INET ? AF_INET : AF_INET6, addr, text, sizeof text);
    return text;
}

std::vector<uint8_t> vxlanRecord(uint32_t vxlan, const Ip6 &ip, const std::string &tunnelIp, uint32_t tunnelId,
                                 uint32_t portIndex, const Mac &mac)
{
    std::vector<uint8_t> r(kVxlanRecordSize, 0);
    putText(r, 0, 48, ip6Text(ip));
    putText(r, 48, 48, tunnelIp);
    put<uint32_t>(r, 96, vxlan);
    put<uint32_t>(r, 100, tunnelId);
    put<uint32_t>(r, 104, portIndex);
    memcpy(r.data() + 116, mac.data(), 6);
    return r;
}

// One answer of a VXLAN table: up to 64 records from the position after the record that the
// follow-up request carries, of one VXLAN id when the request names one.
template <typename Map, typename MakeRecord>
CmfResponse vxlanPage(const CmfRequest &request, const Map &table, MakeRecord make)
{
    uint32_t id = 0;
    bool oneId = itemNumber(request, kItemVxlanId, id);
    auto it = oneId ? table.lower_bound(VxlanKey{id, Ip6{}}) : table.begin();
    const CmfItem *last = findItem(request, kItemLastRecord);
    if (last) {
        // The record last received: its VXLAN id and address give the place to go on from.
        Ip6 ip{};
        char text[49] = {};
        if (last->bytes.size() >= 100)
            memcpy(text, last->bytes.data(), 48);
        uint32_t lastId = 0;
        if (last->bytes.size() >= 100)
            memcpy(&lastId, last->bytes.data() + 96, 4);
        if (!parseIp6(text, ip)) {
            CmfResponse end = ok();
            end.items.push_back(CmfItem::u32(kRspVxlanEnd, 0));
            return end;
        }
        it = table.upper_bound(VxlanKey{lastId, ip});
    }
    CmfResponse r = ok();
    size_t n = 0;
    for (; it != table.end() && n < kVxlanRecordsPerResponse; ++it, ++n) {
        if (oneId && it->first.first != id)
            break;
        std::vector<uint8_t> rec = make(it->first, it->second);
        r.items.push_back(CmfItem::of(kRspVxlanRecord, rec.data(), kVxlanRecordSize));
    }
    bool more = it != table.end() && (!oneId || it->first.first == id);
    if (more) {
        r.status = kStatusMore;
    } else {
        r.items.push_back(CmfItem::u32(kRspVxlanEnd, 0));
    }
    return r;
}

} // namespace

// ---- the service ---------------------------------------------------------------------------------

NdService::NdService()
{
    snoopingStats_.push_back(Counters{0, 0, std::vector<uint32_t>(kSnoopingCounters, 0)});
    forwardStats_.push_back(Counters{0, 0, std::vector<uint32_t>(kForwardCounters, 0)});
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
    if (isConfiguration(request))
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
    return dispatch(request);
}

CmfResponse NdService::dispatch(const CmfRequest &r)
{
    switch (r.cmdCode) {
    case ND_CMD_PROXY_ENABLE:
        return proxyInterface(r, kIfFlagProxy);
    case ND_CMD_PROXY_ANYWAY:
        return proxyInterface(r, kIfFlagAnyway);
    case ND_CMD_LOCAL_PROXY_ENABLE:
        return localProxy(r);
    case ND_CMD_FAST_RESPONSE:
        return fastResponse(r);
    case ND_CMD_SNP_GLOBAL_ENABLE:
        return globalSnooping(r);
    case ND_CMD_SNP_LOOSE:
        return globalFlag(r, kTypeLoose, kKeyLoose);
    case ND_CMD_SNP_ATTACK_LOG:
        return globalFlag(r, kTypeAttackLog, kKeyAttackLog);
    case ND_CMD_SNP_VLAN_ENABLE:
        return vlanSnooping(r);
    case ND_CMD_SNP_TRUST:
        return trustPort(r);
    case ND_CMD_SNP_DETECT:
        return detect(r);
    case ND_CMD_SNP_STATISTICS:
        return statistics(r, true);
    case ND_CMD_FORWARD_STATISTICS:
        return statistics(r, false);
    case ND_CMD_SNP_PREFIX:
        return prefixes(r);
    case ND_CMD_SNP_USER_BIND:
        return r.optKind == ND_CLI_OPT_SHOW ? userBindPage(r) : staticUserBind(r);
    case ND_CMD_SNP_USER_BIND_ADDR:
        return userBindOne(r);
    case ND_CMD_SNP_CLEAR_DYNAMIC: {
        if (r.optKind != ND_CLI_OPT_UNDO)
            return status(ND_ERR_OPERATION_FAILED);
        std::lock_guard<std::mutex> hold(stateMutex_);
        dynamicBinds_[0].clear();
        dynamicBinds_[1].clear();
        return ok();
    }
    case ND_CMD_DEBUG:
        return debug(r);
    case ND_CMD_PROXY_ADDRESS:
        return proxyAddresses(r);
    case 19:
    case 20:
    case 21:
    case 23:
    case 24:
        return vxlanConfig(r);
    case 22:
        return r.optKind == ND_CLI_OPT_SHOW ? vxlanSuppressionShow(r) : vxlanConfig(r);
    case ND_CMD_VXLAN_HOST: {
        uint32_t selector = 0;
        if (r.optKind == ND_CLI_OPT_SET && itemNumber(r, kItemIssuSelector, selector))
            return vxlanIssu(r, selector);
        return vxlanHosts(r);
    }
    case ND_CMD_DIAGNOSE:
        return diagnose(r);
    case kInjectSuppressionAdd:
    case kInjectSuppressionDel:
    case kInjectRemoteNbrAdd:
    case kInjectRemoteNbrDel:
        return inject(r);
    default:
        return status(ND_ERR_OPERATION_FAILED);
    }
}

// ---- proxy and fast response ------------------------------------------------------------------

CmfResponse NdService::proxyInterface(const CmfRequest &r, uint32_t flag)
{
    std::string name;
    if (!itemText(r, kItemObject, name) || name.empty() || name.size() >= 68)
        return status(ND_ERR_GET_IFINDEX);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (flag == kIfFlagAnyway && r.optKind == ND_CLI_OPT_SET && anyVxlanSuppression())
        return status(ND_ERR_CONFLICT_SUPPRESS);
    std::string key = "nd_nbr_if_" + name;
    std::vector<uint8_t> rec = ec.read(key);
    uint32_t flags = rec.size() >= kInterfaceRecordSize ? get<uint32_t>(rec, 68) : 0;
    if (r.optKind == ND_CLI_OPT_SET) {
        if (flags & flag)
            return status(ND_ERR_IF_ENABLED);
        flags |= flag;
    } else {
        if (!(flags & flag))
            return status(ND_ERR_IF_DISABLED);
        flags &= ~flag;
    }
    bool done;
    if (flags == 0) {
        done = ec.remove(key);
    } else {
        std::vector<uint8_t> out(kInterfaceRecordSize, 0);
        putText(out, 0, 68, name);
        put<uint32_t>(out, 68, flags);
        done = ec.write(key, kTypeInterface, out);
    }
    return done ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::localProxy(const CmfRequest &r)
{
    uint32_t vlan = 0;
    if (!itemNumber(r, kItemObject, vlan))
        return status(ND_ERR_GET_VLAN);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::string key = format("super-vlan %u", vlan);
    bool enabled = ec.exists(key);
    if (r.optKind == ND_CLI_OPT_SET) {
        if (enabled)
            return status(ND_ERR_SUPER_VLAN_ENABLED);
        std::vector<uint8_t> rec(kSmallRecordSize, 0);
        put<uint32_t>(rec, 0, vlan);
        put<uint16_t>(rec, 12, static_cast<uint16_t>(vlan));
        return ec.write(key, kTypeSuperVlan, rec) ? ok() : status(ND_ERR_DBM);
    }
    if (!enabled)
        return status(ND_ERR_SUPER_VLAN_DISABLED);
    return ec.remove(key) ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::fastResponse(const CmfRequest &r)
{
    // Fast response is on by default: only the switched-off state is stored.
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    bool done = r.optKind == ND_CLI_OPT_UNDO ? ec.write(kKeyFastResponse, kTypeFastResponse, u32Value(0))
                                              : ec.remove(kKeyFastResponse);
    return done ? ok() : status(ND_ERR_DBM);
}

// ---- snooping configuration -------------------------------------------------------------------

CmfResponse NdService::globalSnooping(const CmfRequest &r)
{
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind == ND_CLI_OPT_SET)
        return ec.write(kKeySnooping, kTypeSnooping, u32Value(1)) ? ok() : status(ND_ERR_DBM);
    // Switching snooping off deletes all of its configuration, as the operator was warned.
    bool done = true;
    for (const char *key : {kKeySnooping, kKeyLoose, kKeyDetect, kKeyAttackLog, kKeyUserBinds})
        done = ec.remove(key) && done;
    for (uint32_t type : {kTypeVlan, kTypePort})
        for (const std::string &key : ec.keys(type))
            done = ec.remove(key) && done;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        dynamicBinds_[0].clear();
        dynamicBinds_[1].clear();
        prefixes_.clear();
    }
    return done ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::globalFlag(const CmfRequest &r, uint32_t valueType, const char *key)
{
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    bool done = r.optKind == ND_CLI_OPT_SET ? ec.write(key, valueType, u32Value(1)) : ec.remove(key);
    return done ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::vlanSnooping(const CmfRequest &r)
{
    uint32_t vlan = 0;
    if (!itemNumber(r, kItemVlan, vlan) || vlan == 0 || vlan > kMaxVlanId)
        return status(ND_ERR_GET_VLAN);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::string key = format("vlan %u", vlan);
    bool enabled = ec.exists(key);
    if (r.optKind == ND_CLI_OPT_SET) {
        std::vector<uint8_t> global = ec.read(kKeySnooping);
        if (global.size() < 4 || get<uint32_t>(global, 0) != 1)
            return status(ND_ERR_GLOBAL_SNP_DISABLED);
        if (enabled)
            return status(ND_ERR_VLAN_ENABLED);
        std::vector<uint8_t> rec(kSmallRecordSize, 0);
        put<uint32_t>(rec, 0, vlan);
        put<uint16_t>(rec, 12, static_cast<uint16_t>(vlan));
        return ec.write(key, kTypeVlan, rec) ? ok() : status(ND_ERR_DBM);
    }
    if (!enabled)
        return status(ND_ERR_VLAN_DISABLED);
    return ec.remove(key) ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::trustPort(const CmfRequest &r)
{
    uint32_t portId = 0;
    std::string name;
    if (!itemNumber(r, kItemPortId, portId) || !itemText(r, kItemObject, name) || name.empty())
        return status(ND_ERR_GET_PORTMAP);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    // The record's key is the port's name as the port manager formats it.
    bool trusted = ec.exists(name);
    if (r.optKind == ND_CLI_OPT_SET) {
        if (trusted)
            return status(ND_ERR_PORT_TRUSTED);
        std::vector<uint8_t> rec(kSmallRecordSize, 0);
        put<uint32_t>(rec, 0, portId);
        putText(rec, 16, 40, name);
        return ec.write(name, kTypePort, rec) ? ok() : status(ND_ERR_DBM);
    }
    if (!trusted)
        return status(ND_ERR_PORT_NOT_TRUSTED);
    return ec.remove(name) ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::detect(const CmfRequest &r)
{
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    if (r.optKind == ND_CLI_OPT_UNDO)
        return ec.remove(kKeyDetect) ? ok() : status(ND_ERR_DBM);
    uint32_t retransmit = 0, interval = 0;
    if (!itemNumber(r, kItemRetransmit, retransmit) || !itemNumber(r, kItemInterval, interval))
        return status(ND_ERR_OPERATION_FAILED);
    std::vector<uint8_t> rec(4, 0);
    put<uint16_t>(rec, 0, static_cast<uint16_t>(retransmit));
    put<uint16_t>(rec, 2, static_cast<uint16_t>(interval));
    return ec.write(kKeyDetect, kTypeDetect, rec) ? ok() : status(ND_ERR_DBM);
}

CmfResponse NdService::staticUserBind(const CmfRequest &r)
{
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::string key = kKeyUserBinds;
    size_t count = static_cast<size_t>(std::max(0, DBM_GetLen(ec.handle(), key.data(), Ec::len(key)))) /
                   kUserBindSize;
    if (r.optKind == ND_CLI_OPT_UNDO) {
        Ip6 ip{};
        if (itemAddress(r, kItemAddress, ip)) {
            bool present = false;
            for (const UserBind &ub : staticBinds(ec))
                present = present || ub.ip == ip;
            if (!present)
                return status(ND_ERR_UB_NOT_EXIST);
            return DBM_DelFromSortList(ec.handle(), key.data(), Ec::len(key), ip.data(), kUserBindSortKey) == 0
                       ? ok()
                       : status(ND_ERR_DBM);
        }
        // Without an address: every static entry goes.
        if (count == 0)
            return status(ND_ERR_UB_NOT_EXIST);
        return ec.remove(key) ? ok() : status(ND_ERR_DBM);
    }
    if (r.optKind != ND_CLI_OPT_SET)
        return status(ND_ERR_OPERATION_FAILED);
    UserBind ub;
    uint32_t vlan = 0, portId = 0;
    const CmfItem *mac = findItem(r, kItemMac);
    if (!itemAddress(r, kItemAddress, ub.ip) || !mac || mac->bytes.size() != 6 || !itemNumber(r, kItemVlan, vlan) ||
        !itemNumber(r, kItemPortId, portId) || !itemText(r, kItemObject, ub.port))
        return status(ND_ERR_OPERATION_FAILED);
    memcpy(ub.mac.data(), mac->bytes.data(), 6);
    ub.vlan = static_cast<uint16_t>(vlan);
    ub.portId = static_cast<int32_t>(portId);
    for (const UserBind &present : staticBinds(ec))
        if (present.ip == ub.ip)
            return status(ND_ERR_UB_EXIST);
    if (count >= userBindCeiling_)
        return status(ND_ERR_UB_CEILING);
    std::vector<uint8_t> entry = staticEntry(ub);
    return DBM_AddToSortList(ec.handle(), key.data(), Ec::len(key), kTypeUserBindList, entry.data(), kUserBindSize,
                             kUserBindSortKey) == 0
               ? ok()
               : status(ND_ERR_DBM);
}

// ---- snooping tables ------------------------------------------------------------------------------

CmfResponse NdService::userBindPage(const CmfRequest &r)
{
    const CmfItem *query = findItem(r, kItemQuery);
    if (!query || query->bytes.size() != 12)
        return status(ND_ERR_OPERATION_FAILED);
    uint32_t kind = get<uint32_t>(query->bytes, 0);
    uint32_t start = get<uint16_t>(query->bytes, 4);
    uint32_t size = get<uint16_t>(query->bytes, 6);
    if (size == 0)
        size = 15;
    bool isStatic = kind == 2;
    if (!isStatic && kind != 3 && kind != 4)
        return status(ND_ERR_OPERATION_FAILED);
    std::vector<UserBind> statics;
    if (isStatic) {
        Ec ec;
        if (!ec.ok())
            return status(ND_ERR_DBM);
        statics = staticBinds(ec);
    }
    // The page is cut straight out of the table: a listing of n entries costs O(n) in all.
    std::lock_guard<std::mutex> hold(stateMutex_);
    const std::vector<UserBind> &rows = isStatic ? statics : dynamicBinds_[kind == 3 ? 0 : 1];
    size_t first = std::min<size_t>(start, rows.size());
    size_t n = std::min<size_t>(size, rows.size() - first);
    bool last = first + n >= rows.size();
    std::vector<uint8_t> page = pageHeader(static_cast<uint32_t>(n), static_cast<uint16_t>(first + n), last);
    page.resize(kPageHeader + n * kUserBindSize, 0);
    for (size_t i = 0; i < n; ++i)
        putUserBindRecord(page, kPageHeader + i * kUserBindSize, rows[first + i], isStatic);
    return withItem(kRspUserBindPage, std::move(page));
}

CmfResponse NdService::userBindOne(const CmfRequest &r)
{
    Ip6 ip{};
    if (!itemAddress(r, kItemAddress, ip))
        return status(ND_ERR_OPERATION_FAILED);
    std::vector<std::pair<UserBind, bool>> found;
    {
        Ec ec;
        if (!ec.ok())
            return status(ND_ERR_DBM);
        for (const UserBind &ub : staticBinds(ec))
            if (ub.ip == ip)
                found.emplace_back(ub, true);
    }
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        for (const std::vector<UserBind> &part : dynamicBinds_)
            for (const UserBind &ub : part)
                if (ub.ip == ip)
                    found.emplace_back(ub, false);
    }
    std::vector<uint8_t> page = pageHeader(static_cast<uint32_t>(found.size()), 0, true);
    page.resize(kPageHeader + found.size() * kUserBindSize, 0);
    for (size_t i = 0; i < found.size(); ++i)
        putUserBindRecord(page, kPageHeader + i * kUserBindSize, found[i].first, found[i].second);
    return withItem(kRspUserBindOne, std::move(page));
}

CmfResponse NdService::prefixes(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (r.optKind == ND_CLI_OPT_UNDO) {
        uint32_t all = 0;
        if (itemNumber(r, kItemNoAddress, all) && all == 1) {
            prefixes_.clear();
            return ok();
        }
        Ip6 ip{};
        uint32_t length = 128;
        if (!itemAddress(r, kItemAddress, ip))
            return status(ND_ERR_OPERATION_FAILED);
        itemNumber(r, kItemPrefixLength, length);
        prefixes_.erase(std::remove_if(prefixes_.begin(), prefixes_.end(),
                                       [&](const Prefix &p) {
                                           return p.prefix == ip && static_cast<uint32_t>(p.length) == length;
                                       }),
                        prefixes_.end());
        return ok();
    }
    const CmfItem *query = findItem(r, kItemQuery);
    if (r.optKind != ND_CLI_OPT_SHOW || !query || query->bytes.size() != 12)
        return status(ND_ERR_OPERATION_FAILED);
    uint32_t start = get<uint16_t>(query->bytes, 4);
    uint32_t size = get<uint16_t>(query->bytes, 6);
    if (size == 0)
        size = 15;
    size_t first = std::min<size_t>(start, prefixes_.size());
    size_t n = std::min<size_t>(size, prefixes_.size() - first);
    bool last = first + n >= prefixes_.size();
    std::vector<uint8_t> page = pageHeader(static_cast<uint32_t>(n), static_cast<uint16_t>(first + n), last);
    page.resize(kPageHeader + n * kPrefixRecordSize, 0);
    for (size_t i = 0; i < n; ++i) {
        const Prefix &p = prefixes_[first + i];
        size_t at = kPageHeader + i * kPrefixRecordSize;
        memcpy(page.data() + at, p.prefix.data(), 16);
        put<uint32_t>(page, at + 16, p.valid);
        put<uint32_t>(page, at + 20, p.preferred);
        put<int32_t>(page, at + 24, p.length);
    }
    return withItem(kRspPrefixPage, std::move(page));
}

CmfResponse NdService::statistics(const CmfRequest &r, bool snooping)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    std::vector<Counters> &table = snooping ? snoopingStats_ : forwardStats_;
    if (r.optKind == ND_CLI_OPT_UNDO) {
        for (Counters &c : table)
            std::fill(c.values.begin(), c.values.end(), 0u);
        return ok();
    }
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    size_t counters = snooping ? kSnoopingCounters : kForwardCounters;
    size_t recordSize = 4 + 4 * counters;
    std::vector<uint8_t> payload = pageHeader(static_cast<uint32_t>(table.size()), 0, true);
    payload.resize(kPageHeader + table.size() * recordSize, 0);
    for (size_t i = 0; i < table.size(); ++i) {
        size_t at = kPageHeader + i * recordSize;
        payload[at] = table[i].instance;
        payload[at + 1] = table[i].member;
        for (size_t k = 0; k < counters && k < table[i].values.size(); ++k)
            put<uint32_t>(payload, at + 4 + 4 * k, table[i].values[k]);
    }
    return withItem(snooping ? kRspSnoopingStats : kRspForwardStats, std::move(payload));
}

CmfResponse NdService::debug(const CmfRequest &r)
{
    uint32_t mask = 0;
    itemNumber(r, kItemMask, mask);
    std::lock_guard<std::mutex> hold(stateMutex_);
    switch (r.optKind) {
    case ND_CLI_OPT_SET:
        debugMask_ |= mask & kDebugMaskAll;
        return ok();
    case ND_CLI_OPT_UNDO:
        debugMask_ &= ~mask;
        return ok();
    case ND_CLI_OPT_SHOW:
        return withItem(kRspDebug, u32Value(debugMask_));
    default:
        return status(ND_ERR_OPERATION_FAILED);
    }
}

CmfResponse NdService::proxyAddresses(const CmfRequest &r)
{
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (proxyAddresses_.empty())
        return ok();
    std::vector<uint8_t> payload(proxyAddresses_.size() * kProxyRecordSize, 0);
    for (size_t i = 0; i < proxyAddresses_.size(); ++i) {
        size_t at = i * kProxyRecordSize;
        put<uint32_t>(payload, at, proxyAddresses_[i].module);
        memcpy(payload.data() + at + 4, proxyAddresses_[i].begin.data(), 16);
        memcpy(payload.data() + at + 20, proxyAddresses_[i].end.data(), 16);
    }
    return withItem(kRspProxyAddress, std::move(payload));
}

// ---- VXLAN ----------------------------------------------------------------------------------------

bool NdService::anyInterfaceAnyway()
{
    Ec ec;
    for (const std::string &key : ec.keys(kTypeInterface)) {
        std::vector<uint8_t> rec = ec.read(key);
        if (rec.size() >= kInterfaceRecordSize && (get<uint32_t>(rec, 68) & kIfFlagAnyway))
            return true;
    }
    return false;
}

bool NdService::anyVxlanSuppression()
{
    Ec ec;
    for (const std::string &key : ec.keys(kTypeVxlan)) {
        std::vector<uint8_t> rec = ec.read(key);
        if (rec.size() >= kVxlanRecordSizeDb && (get<uint32_t>(rec, 8) & kVxFlagSuppression))
            return true;
    }
    return false;
}

CmfResponse NdService::vxlanConfig(const CmfRequest &r)
{
    uint32_t id = 0;
    if (!itemNumber(r, kItemVxlanId, id))
        return status(ND_ERR_OPERATION_FAILED);
    bool set = r.optKind == ND_CLI_OPT_SET;
    if (!set && r.optKind != ND_CLI_OPT_UNDO)
        return status(ND_ERR_OPERATION_FAILED);
    if (r.cmdCode == 22 && set && anyInterfaceAnyway())
        return status(ND_ERR_CONFLICT_ANYWAY);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    VxlanSettings s = readVxlan(ec, id);
    auto flagSetting = [&](uint32_t flag, bool needsSuppression) -> CmfResponse {
        if (set) {
            if (needsSuppression && !(s.flags & kVxFlagSuppression))
                return status(ND_ERR_VXLAN_NO_SUPPRESS);
            s.flags |= flag;
        } else {
            if (!(s.flags & flag))
                return notSet();
            s.flags &= ~flag;
            // The suppression options mean nothing without suppression.
            if (flag == kVxFlagSuppression)
                s.flags &= ~(kVxFlagUnicast | kVxFlagMissDiscard);
        }
        return writeVxlan(ec, id, s) ? ok() : status(ND_ERR_DBM);
    };
    switch (r.cmdCode) {
    case 19:
    case 20: {
        uint32_t &field = r.cmdCode == 19 ? s.timeout : s.limit;
        uint32_t standard = r.cmdCode == 19 ? kVxDefaultTimeout : kVxDefaultLimit;
        uint32_t value = 0;
        if (!itemNumber(r, r.cmdCode == 19 ? kItemTimeout : kItemLimit, value))
            return status(ND_ERR_OPERATION_FAILED);
        if (!set) {
            if (field == standard)
                return notSet();
            value = standard;
        }
        field = value;
        return writeVxlan(ec, id, s) ? ok() : status(ND_ERR_DBM);
    }
    case 21:
        // Advertisement is on by default; switching it off is the setting that is stored.
        if (set) {
            s.flags |= kVxFlagAdvertise;
            return writeVxlan(ec, id, s) ? ok() : status(ND_ERR_DBM);
        }
        return flagSetting(kVxFlagAdvertise, false);
    case 22:
        return flagSetting(kVxFlagSuppression, false);
    case 23:
        return flagSetting(kVxFlagMissDiscard, true);
    default:
        return flagSetting(kVxFlagUnicast, true);
    }
}

CmfResponse NdService::vxlanSuppressionShow(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return vxlanPage(r, suppression_, [](const VxlanKey &key, const SuppressionHost &h) {
        return vxlanRecord(key.first, key.second, h.tunnelIp, h.tunnelId, 0, h.mac);
    });
}

CmfResponse NdService::vxlanHosts(const CmfRequest &r)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (r.optKind == ND_CLI_OPT_UNDO) {
        uint32_t id = 0;
        bool oneId = itemNumber(r, kItemVxlanId, id);
        Ip6 ip{};
        bool oneIp = itemAddress(r, kItemAddress, ip);
        for (auto it = hosts_.begin(); it != hosts_.end();) {
            bool match = (!oneId || it->first.first == id) && (!oneIp || it->first.second == ip);
            it = match ? hosts_.erase(it) : std::next(it);
        }
        return ok();
    }
    if (r.optKind != ND_CLI_OPT_SHOW)
        return status(ND_ERR_OPERATION_FAILED);
    return vxlanPage(r, hosts_, [](const VxlanKey &key, const VxlanHost &h) {
        return vxlanRecord(key.first, key.second, "", 0, h.portIndex, h.mac);
    });
}

bool NdService::loadPlugin()
{
    if (plugin_)
        return true;
    if (pluginPath_.empty())
        return false;
    plugin_ = dlopen(pluginPath_.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (!plugin_)
        fprintf(stderr, "ndsvc: cannot load %s: %s\n", pluginPath_.c_str(), dlerror());
    return plugin_ != nullptr;
}

CmfResponse NdService::vxlanIssu(const CmfRequest &, uint32_t selector)
{
    if (!loadPlugin())
        return status(ND_ERR_DBM);
    using OpenFn = int32_t (*)();
    using InsertFn = int32_t (*)(const void *);
    using SaveFn = int32_t (*)(const char *, uint32_t, uint32_t, uint32_t);
    using CloseFn = void (*)();
    using HandlerFn = int32_t (*)(NdDbmLibIssuIterCtx *);
    auto open = reinterpret_cast<OpenFn>(dlsym(plugin_, "nd_DbmLibIssuOpen"));
    auto insert = reinterpret_cast<InsertFn>(dlsym(plugin_, "nd_DbmLibIssuEntryInsert"));
    auto save = reinterpret_cast<SaveFn>(dlsym(plugin_, "nd_DbmLibSaveIssu"));
    auto close = reinterpret_cast<CloseFn>(dlsym(plugin_, "nd_DbmLibIssuClose"));
    auto walk = reinterpret_cast<HandlerFn>(dlsym(plugin_, "nd_DbmLibIssuHandler"));
    if (!open || !insert || !save || !close || !walk)
        return status(ND_ERR_DBM);
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (selector == 1) {
        if (open() != 0)
            return status(ND_ERR_DBM);
        bool good = true;
        for (const auto &[key, host] : hosts_) {
            std::vector<uint8_t> e(kIssuEntrySize, 0);
            memcpy(e.data(), key.second.data(), 16);
            memcpy(e.data() + 16, host.mac.data(), 6);
            uint8_t info[1612] = {};
            if (VXLAN_GetVxportBasicInfo(host.portIndex, info) == 0) {
                uint16_t kind, svlan, cvlan;
                int32_t portId;
                memcpy(&kind, info + 4, 2);
                memcpy(&portId, info + 8, 4);
                memcpy(&svlan, info + 12, 2);
                memcpy(&cvlan, info + 14, 2);
                char name[100] = {};
                if (kind == 1 && portID2FmtString(portId, name) == 0)
                    putText(e, 28, 40, name);
                put<uint32_t>(e, 72, svlan);
                put<uint32_t>(e, 76, cvlan);
            }
            put<uint32_t>(e, 68, key.first);
            good = insert(e.data()) == 0 && good;
        }
        good = save("/flash", 0, 0, 0) == 0 && good;
        close();
        return good ? ok() : status(ND_ERR_DBM);
    }
    if (selector == 2) {
        NdDbmLibIssuIterCtx ctx;
        ctx.callback = [](const void *entry, void *arg) -> int32_t {
            auto *hosts = static_cast<std::map<VxlanKey, VxlanHost> *>(arg);
            const uint8_t *e = static_cast<const uint8_t *>(entry);
            VxlanKey key;
            memcpy(&key.first, e + 68, 4);
            memcpy(key.second.data(), e, 16);
            VxlanHost host;
            memcpy(host.mac.data(), e + 16, 6);
            hosts->emplace(key, host);
            return 0;
        };
        ctx.arg = &hosts_;
        return walk(&ctx) == 0 ? ok() : status(ND_ERR_DBM);
    }
    return status(ND_ERR_OPERATION_FAILED);
}

// ---- diagnose --------------------------------------------------------------------------------------

CmfResponse NdService::diagnose(const CmfRequest &r)
{
    uint32_t kind = 0, value = 0;
    itemNumber(r, kItemDiagnoseKind, kind);
    bool hasValue = itemNumber(r, kItemVlan, value);
    Ec ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (kind == 4 && r.optKind == ND_CLI_OPT_UNDO) {
        requestCounts_.clear();
        return ok();
    }
    auto flagOf = [&](const char *key) {
        std::vector<uint8_t> rec = ec.read(key);
        return rec.size() >= 4 ? get<uint32_t>(rec, 0) : 0u;
    };
    std::string text;
    auto vxlanSummary = [&](uint32_t id) {
        VxlanSettings s = readVxlan(ec, id);
        size_t hosts = 0, suppressed = 0, remote = 0;
        for (const auto &entry : hosts_)
            hosts += entry.first.first == id;
        for (const auto &entry : suppression_)
            suppressed += entry.first.first == id;
        for (const auto &entry : remoteNbrs_)
            remote += entry.first.second.first == id;
        text += format("vxlan %u\n  suppression: %s\n  missmatch discard: %s\n  unicast forward: %s\n"
                       "  host advertise: %s\n  host limit: %u\n  host timeout: %u\n  local hosts: %zu\n"
                       "  suppression hosts: %zu\n  remote neighbours: %zu\n",
                       id, (s.flags & kVxFlagSuppression) ? "on" : "off", (s.flags & kVxFlagMissDiscard) ? "on" : "off",
                       (s.flags & kVxFlagUnicast) ? "on" : "off", (s.flags & kVxFlagAdvertise) ? "on" : "off", s.limit,
                       s.timeout, hosts, suppressed, remote);
    };
    if (kind == 1 || kind == 2 || (kind == 0 && hasValue && value != 0)) {
        if (kind == 0) {
            vxlanSummary(value);
        } else {
            text += format("vxlan %u local %s\n", value, kind == 1 ? "hosts" : "macs");
            for (const auto &[key, host] : hosts_)
                if (value == 0 || key.first == value)
                    text += kind == 1 ? format("  %s %s port-index %u\n", ip6Text(key.second).c_str(),
                                               macText(host.mac).c_str(), host.portIndex)
                                      : format("  %s vxlan %u\n", macText(host.mac).c_str(), key.first);
        }
    } else if (kind == 0 && hasValue) {
        size_t statics = staticBinds(ec).size();
        text += format("nd global\n  snooping: %s\n  ns-check-loose: %s\n  attack-log: %s\n",
                       flagOf(kKeySnooping) == 1 ? "enable" : "disable", flagOf(kKeyLoose) == 1 ? "enable" : "disable",
                       flagOf(kKeyAttackLog) == 1 ? "enable" : "disable");
        text += format("  fast-response: %s\n  static user-binds: %zu\n  dynamic user-binds: %zu\n  prefixes: %zu\n",
                       ec.exists(kKeyFastResponse) ? "disable" : "enable", statics, dynamicBinds_[0].size() + dynamicBinds_[1].size(),
                       prefixes_.size());
        for (const std::string &key : ec.keys(kTypeVxlan)) {
            unsigned id = 0;
            if (sscanf(key.c_str(), "vxlan %u", &id) == 1)
                vxlanSummary(id);
        }
    } else if (kind == 3) {
        text += format("nd global acl\n  snooping packets to cpu: %s\n  trusted ports: %zu\n  snooping vlans: %zu\n",
                       flagOf(kKeySnooping) == 1 ? "on" : "off", ec.keys(kTypePort).size(),
                       ec.keys(kTypeVlan).size());
    } else if (kind == 4) {
        text += "nd service requests\n";
        for (const auto &[code, count] : requestCounts_)
            text += format("  code %u: %llu\n", code, static_cast<unsigned long long>(count));
    } else if (kind == 5 || kind == 0) {
        text += "nd interface neighbor\n";
        for (const std::string &key : ec.keys(kTypeInterface)) {
            std::vector<uint8_t> rec = ec.read(key);
            if (rec.size() < kInterfaceRecordSize)
                continue;
            char name[69] = {};
            memcpy(name, rec.data(), 68);
            uint32_t flags = get<uint32_t>(rec, 68);
            text += format("  %s: proxy %s, proxy anyway %s\n", name, (flags & kIfFlagProxy) ? "on" : "off",
                           (flags & kIfFlagAnyway) ? "on" : "off");
        }
    } else {
        return status(ND_ERR_OPERATION_FAILED);
    }
    return writeDiagnose(text) ? ok() : status(ND_ERR_OPERATION_FAILED);
}

// ---- test injection ---------------------------------------------------------------------------------

CmfResponse NdService::inject(const CmfRequest &r)
{
    const CmfItem *records = findItem(r, kInjectItem);
    bool suppression = r.cmdCode == kInjectSuppressionAdd || r.cmdCode == kInjectSuppressionDel;
    bool add = r.cmdCode == kInjectSuppressionAdd || r.cmdCode == kInjectRemoteNbrAdd;
    uint32_t size = suppression ? kSuppressionRecordSize : kRemoteNbrRecordSize;
    if (!records || records->bytes.size() % size != 0)
        return status(ND_ERR_OPERATION_FAILED);
    std::lock_guard<std::mutex> hold(stateMutex_);
    for (size_t at = 0; at < records->bytes.size(); at += size) {
        const uint8_t *p = records->bytes.data() + at;
        if (suppression) {
            VxlanKey key;
            memcpy(&key.first, p, 4);
            memcpy(key.second.data(), p + 8, 16);
            if (!add) {
                suppression_.erase(key);
                continue;
            }
            SuppressionHost h;
            memcpy(&h.tunnelId, p + 4, 4);
            h.tunnelIp = tunnelText(p[24], p + 28);
            memcpy(h.mac.data(), p + 44, 6);
            suppression_[key] = std::move(h);
        } else {
            uint32_t type = 0;
            VxlanKey key;
            memcpy(&type, p, 4);
            memcpy(&key.first, p + 4, 4);
            memcpy(key.second.data(), p + 20, 16);
            if (!add) {
                remoteNbrs_.erase({type, key});
                continue;
            }
            RemoteNbr n;
            memcpy(&n.ifIndex, p + 8, 4);
            memcpy(&n.tunnelId, p + 12, 4);
            memcpy(&n.vrfId, p + 16, 4);
            n.tunnelIp = tunnelText(p[36], p + 40);
            memcpy(n.mac.data(), p + 56, 6);
            remoteNbrs_[{type, key}] = std::move(n);
        }
    }
    return ok();
}

// ---- seed -------------------------------------------------------------------------------------------

bool NdService::seed_file(const std::string &path, std::string *why)
{
    std::ifstream in(path);
    if (!in) {
        if (why)
            *why = "cannot read " + path;
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    return seed_text(text.str(), why);
}

namespace {

using nlohmann::json;

// Reads the fields of a seed file; the first fault is kept as "path: what is wrong".
class SeedReader {
public:
    const std::string &error() const { return error_; }

    bool fail(const std::string &path, const std::string &what)
    {
        if (error_.empty())
            error_ = path + ": " + what;
        return false;
    }

    // A whole number within low..high; `fallback` when the field is absent.
    bool number(const json &entry, const std::string &path, const char *key, int64_t low, int64_t high,
                int64_t fallback, int64_t &out)
    {
        const std::string at = path + "." + key;
        if (!entry.contains(key)) {
            out = fallback;
            return true;
        }
        return value(entry.at(key), at, low, high, out);
    }

    bool value(const json &v, const std::string &at, int64_t low, int64_t high, int64_t &out)
    {
        const std::string range = " is out of range " + std::to_string(low) + ".." + std::to_string(high);
        if (v.is_number_unsigned()) {
            const uint64_t u = v.get<uint64_t>();
            if (u > static_cast<uint64_t>(high) || static_cast<int64_t>(u) < low)
                return fail(at, v.dump() + range);
            out = static_cast<int64_t>(u);
            return true;
        }
        if (v.is_number_integer()) {
            const int64_t i = v.get<int64_t>();
            if (i < low || i > high)
                return fail(at, v.dump() + range);
            out = i;
            return true;
        }
        return fail(at, v.dump() + (v.is_number() ? " is not a whole number" : " is not a number"));
    }

    bool text(const json &entry, const std::string &path, const char *key, std::string &out)
    {
        if (!entry.contains(key))
            return true;
        const json &v = entry.at(key);
        if (!v.is_string())
            return fail(path + "." + key, v.dump() + " is not a text");
        out = v.get<std::string>();
        return true;
    }

    bool address(const json &entry, const std::string &path, const char *key, Ip6 &out)
    {
        if (!entry.contains(key))
            return fail(path + "." + key, "missing");
        const json &v = entry.at(key);
        if (!v.is_string() || !parseIp6(v.get<std::string>(), out))
            return fail(path + "." + key, "bad IPv6 address " + v.dump());
        return true;
    }

    bool mac(const json &entry, const std::string &path, const char *key, Mac &out)
    {
        if (!entry.contains(key))
            return fail(path + "." + key, "missing");
        const json &v = entry.at(key);
        if (!v.is_string() || !parseMac(v.get<std::string>(), out))
            return fail(path + "." + key, "bad MAC address " + v.dump());
        return true;
    }

    // Calls `each` with every entry of an optional list and its path ("name[i]").
    template <typename Fn> bool list(const json &doc, const char *name, Fn each)
    {
        if (!doc.contains(name))
            return true;
        const json &items = doc.at(name);
        if (!items.is_array())
            return fail(name, "not a list");
        for (size_t i = 0; i < items.size(); ++i) {
            const std::string path = std::string(name) + "[" + std::to_string(i) + "]";
            if (!items[i].is_object())
                return fail(path, "not an object");
            if (!each(items[i], path))
                return false;
        }
        return true;
    }

private:
    std::string error_;
};

constexpr int64_t kU32Max = UINT32_MAX;

// What one seed file holds, read in full before any of it is taken.
struct Seed {
    std::vector<UserBind> binds[2];
    std::vector<Prefix> prefixes;
    bool hasSnooping = false, hasForward = false;
    std::vector<Counters> snooping, forward;
    std::vector<ProxyAddress> proxies;
    std::map<VxlanKey, VxlanHost> hosts;
    std::map<VxlanKey, SuppressionHost> suppression;
    bool hasDebug = false;
    uint32_t debug = 0;
};

bool readUserBinds(SeedReader &in, const json &doc, Seed &seed, const size_t (&held)[2])
{
    return in.list(doc, "dynamic_user_binds", [&](const json &e, const std::string &path) {
        UserBind ub;
        Ip6 base{};
        int64_t count = 0, vlan = 0, portId = 0;
        std::string part = "mpu";
        if (!in.address(e, path, "ip", base) || !in.mac(e, path, "mac", ub.mac) ||
            !in.number(e, path, "vlan", 1, kMaxVlanId, 1, vlan) || !in.text(e, path, "port", ub.port) ||
            !in.text(e, path, "part", part) ||
            !in.number(e, path, "count", 1, static_cast<int64_t>(kDynamicUserBindCeiling), 1, count))
            return false;
        if (part != "mpu" && part != "lpu")
            return in.fail(path + ".part", "\"" + part + "\" is neither \"mpu\" nor \"lpu\"");
        if (!in.number(e, path, "port_id", INT32_MIN, INT32_MAX, ndplat::port_id(ub.port), portId))
            return false;
        ub.vlan = static_cast<uint16_t>(vlan);
        ub.portId = static_cast<int32_t>(portId);
        ub.mpu = part == "mpu";
        std::vector<UserBind> &into = seed.binds[ub.mpu ? 0 : 1];
        const size_t room = kDynamicUserBindCeiling - std::min(kDynamicUserBindCeiling, held[ub.mpu ? 0 : 1] + into.size());
        if (static_cast<size_t>(count) > room)
            return in.fail(path + ".count", std::to_string(count) + " is more than the " + std::to_string(room) +
                                                " entries left of part \"" + part + "\" (at most " +
                                                std::to_string(kDynamicUserBindCeiling) + ")");
        for (int64_t n = 0; n < count; ++n) {
            ub.ip = addToAddress(base, static_cast<uint32_t>(n));
            into.push_back(ub);
        }
        return true;
    });
}

bool readCounters(SeedReader &in, const json &doc, const char *name, size_t values, std::vector<Counters> &out)
{
    return in.list(doc, name, [&](const json &e, const std::string &path) {
        Counters c;
        int64_t member = 0, instance = 0;
        if (!in.number(e, path, "member", 0, kStatisticsMembers - 1, 0, member) ||
            !in.number(e, path, "instance", 0, kStatisticsInstances - 1, 0, instance))
            return false;
        c.member = static_cast<uint8_t>(member);
        c.instance = static_cast<uint8_t>(instance);
        c.values.assign(values, 0);
        if (e.contains("counters")) {
            const json &list = e.at("counters");
            if (!list.is_array())
                return in.fail(path + ".counters", "not a list");
            if (list.size() > values)
                return in.fail(path + ".counters", std::to_string(list.size()) + " values, at most " +
                                                       std::to_string(values));
            for (size_t i = 0; i < list.size(); ++i) {
                int64_t v = 0;
                if (!in.value(list[i], path + ".counters[" + std::to_string(i) + "]", 0, kU32Max, v))
                    return false;
                c.values[i] = static_cast<uint32_t>(v);
            }
        }
        out.push_back(std::move(c));
        return true;
    });
}

// Both VXLAN tables: `fill` reads what is particular to one table into its host record.
template <typename Host, typename Fill>
bool readVxlanTable(SeedReader &in, const json &doc, const char *name, size_t held, std::map<VxlanKey, Host> &out,
                    Fill fill)
{
    size_t made = 0;
    return in.list(doc, name, [&](const json &e, const std::string &path) {
        Host h;
        Ip6 base{};
        int64_t vxlan = 0, count = 0;
        if (!e.contains("vxlan"))
            return in.fail(path + ".vxlan", "missing");
        if (!in.number(e, path, "vxlan", 1, kMaxVxlanId, 0, vxlan) || !in.address(e, path, "ip", base) ||
            !in.mac(e, path, "mac", h.mac) || !fill(e, path, h) ||
            !in.number(e, path, "count", 1, static_cast<int64_t>(kVxlanTableCeiling), 1, count))
            return false;
        const size_t room = kVxlanTableCeiling - std::min(kVxlanTableCeiling, held + made);
        if (static_cast<size_t>(count) > room)
            return in.fail(path + ".count", std::to_string(count) + " is more than the " + std::to_string(room) +
                                                " entries left (at most " + std::to_string(kVxlanTableCeiling) +
                                                ")");
        made += static_cast<size_t>(count);
        VxlanKey key;
        key.first = static_cast<uint32_t>(vxlan);
        for (int64_t n = 0; n < count; ++n) {
            key.second = addToAddress(base, static_cast<uint32_t>(n));
            out[key] = h;
        }
        return true;
    });
}

bool readSeed(SeedReader &in, const json &doc, Seed &seed, const size_t (&heldBinds)[2], size_t heldHosts,
              size_t heldSuppression)
{
    if (!readUserBinds(in, doc, seed, heldBinds))
        return false;
    if (!in.list(doc, "prefixes", [&](const json &e, const std::string &path) {
            Prefix p;
            int64_t length = 0, valid = 0, preferred = 0;
            if (!in.address(e, path, "prefix", p.prefix) ||
                !in.number(e, path, "length", 0, kMaxPrefixLength, 64, length) ||
                !in.number(e, path, "valid", 0, kU32Max, 2592000, valid) ||
                !in.number(e, path, "preferred", 0, kU32Max, 604800, preferred))
                return false;
            p.length = static_cast<int32_t>(length);
            p.valid = static_cast<uint32_t>(valid);
            p.preferred = static_cast<uint32_t>(preferred);
            seed.prefixes.push_back(p);
            return true;
        }))
        return false;
    seed.hasSnooping = doc.contains("snooping_statistics");
    seed.hasForward = doc.contains("forward_statistics");
    if (!readCounters(in, doc, "snooping_statistics", kSnoopingCounters, seed.snooping) ||
        !readCounters(in, doc, "forward_statistics", kForwardCounters, seed.forward))
        return false;
    if (!in.list(doc, "proxy_addresses", [&](const json &e, const std::string &path) {
            ProxyAddress a;
            int64_t module = 0;
            if (!in.number(e, path, "module", 0, kU32Max, 0, module) || !in.address(e, path, "begin", a.begin) ||
                !in.address(e, path, "end", a.end))
                return false;
            a.module = static_cast<uint32_t>(module);
            seed.proxies.push_back(a);
            return true;
        }))
        return false;
    if (!readVxlanTable(in, doc, "vxlan_hosts", heldHosts, seed.hosts,
                        [&](const json &e, const std::string &path, VxlanHost &h) {
                            int64_t portIndex = 0;
                            if (!in.number(e, path, "port_index", 0, kU32Max, 0, portIndex))
                                return false;
                            h.portIndex = static_cast<uint32_t>(portIndex);
                            return true;
                        }))
        return false;
    if (!readVxlanTable(in, doc, "suppression_hosts", heldSuppression, seed.suppression,
                        [&](const json &e, const std::string &path, SuppressionHost &h) {
                            int64_t tunnelId = 0;
                            if (!in.number(e, path, "tunnel_id", 0, kU32Max, 0, tunnelId) ||
                                !in.text(e, path, "tunnel_ip", h.tunnelIp))
                                return false;
                            h.tunnelId = static_cast<uint32_t>(tunnelId);
                            return true;
                        }))
        return false;
    if (doc.contains("debug")) {
        int64_t debug = 0;
        if (!in.value(doc.at("debug"), "debug", 0, kDebugMaskAll, debug))
            return false;
        seed.hasDebug = true;
        seed.debug = static_cast<uint32_t>(debug);
    }
    return true;
}

} // namespace

bool NdService::seed_text(const std::string &text, std::string *why)
{
    json doc = json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        if (why)
            *why = "not a JSON object";
        return false;
    }
    std::lock_guard<std::mutex> hold(stateMutex_);
    // Read and checked in full first: a refused seed leaves the state as it was.
    SeedReader in;
    Seed seed;
    const size_t heldBinds[2] = {dynamicBinds_[0].size(), dynamicBinds_[1].size()};
    if (!readSeed(in, doc, seed, heldBinds, hosts_.size(), suppression_.size())) {
        if (why)
            *why = in.error();
        return false;
    }
    for (size_t part = 0; part < 2; ++part)
        dynamicBinds_[part].insert(dynamicBinds_[part].end(), seed.binds[part].begin(), seed.binds[part].end());
    prefixes_.insert(prefixes_.end(), seed.prefixes.begin(), seed.prefixes.end());
    if (seed.hasSnooping)
        snoopingStats_ = std::move(seed.snooping);
    if (seed.hasForward)
        forwardStats_ = std::move(seed.forward);
    proxyAddresses_.insert(proxyAddresses_.end(), seed.proxies.begin(), seed.proxies.end());
    for (auto &entry : seed.hosts)
        hosts_[entry.first] = entry.second;
    for (auto &entry : seed.suppression)
        suppression_[entry.first] = entry.second;
    if (seed.hasDebug)
        debugMask_ = seed.debug;
    return true;
}

} // namespace ndsvc
