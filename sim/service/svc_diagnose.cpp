// Diagnose: a text of the state that the request's kind picks, written to kDiagnoseFile for
// the plug-in to print.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>

#include "svc_items.h"
#include "svc_store.h"

namespace ndsvc {

namespace {

const char *on_off(bool on)
{
    return on ? "on" : "off";
}

const char *enable_disable(bool on)
{
    return on ? "enable" : "disable";
}

// Writes the whole text to a fresh descriptor; false when any of it is not written.
bool write_all(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    return done == text.size();
}

// Writes the diagnose text to kDiagnoseFile. The text is written first into a file of a fresh
// directory that only this process can write (mkdtemp: a name nobody can guess, mode 0700),
// then renamed into place: rename replaces whatever was planted at the final name, a symbolic
// link included, instead of following it. When the text cannot be put in place, what is at
// the final name is removed, so that nothing planted there is shown as the dump; false then.
bool write_diagnose(const std::string &text)
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
        bool written = write_all(fd, text);
        good = close(fd) == 0 && written && rename(tmp.c_str(), kDiagnoseFile) == 0;
    }
    if (!good) {
        unlink(tmp.c_str());
        unlink(kDiagnoseFile);
    }
    rmdir(dir.c_str());
    return good;
}

} // namespace

CmfResponse NdService::diagnose(const CmfRequest &r)
{
    uint32_t kind = ndwire::kDiagnoseGeneral, value = 0;
    item_number(r, ndwire::kItemDiagnoseKind, kind);
    bool hasValue = item_number(r, ndwire::kItemVlan, value);
    EcStore ec;
    if (!ec.ok())
        return status(ND_ERR_DBM);
    std::lock_guard<std::mutex> hold(stateMutex_);
    wire_bindings_locked();
    wire_vxlan_hosts_locked();
    if (kind == ndwire::kDiagnoseRequests && r.optKind == ND_CLI_OPT_UNDO) {
        requestCounts_.clear();
        return ok();
    }
    std::string text;
    switch (kind) {
    case ndwire::kDiagnoseGeneral:
        // A VXLAN id names that id; 0 every instance; no value the interfaces.
        text = !hasValue              ? diagnose_interfaces(ec)
               : value != kEveryVxlan ? diagnose_vxlan(ec, value)
                                      : diagnose_every_vxlan(ec);
        break;
    case ndwire::kDiagnoseHosts:
    case ndwire::kDiagnoseMacs:
        text = diagnose_vxlan_hosts(kind, value);
        break;
    case ndwire::kDiagnoseGlobalAcl:
        text = diagnose_acl(ec);
        break;
    case ndwire::kDiagnoseRequests:
        text = diagnose_requests();
        break;
    case ndwire::kDiagnoseInterfaces:
        text = diagnose_interfaces(ec);
        break;
    default:
        return status(ND_ERR_OPERATION_FAILED);
    }
    return write_diagnose(text) ? ok() : status(ND_ERR_OPERATION_FAILED);
}

std::string NdService::diagnose_vxlan(EcStore &ec, uint32_t id)
{
    namespace vc = ndwire::vxlancfg;
    VxlanSettings s = ec.vxlan(id);
    size_t hosts = 0, suppressed = 0, remote = 0;
    for (const auto &entry : hosts_)
        hosts += entry.first.first == id;
    for (const auto &entry : suppression_)
        suppressed += entry.first.first == id;
    for (const auto &entry : remoteNbrs_)
        remote += entry.first.second.first == id;
    return format("vxlan %u\n  suppression: %s\n  missmatch discard: %s\n  unicast forward: %s\n"
                  "  host advertise: %s\n  host limit: %u\n  host timeout: %u\n  local hosts: %zu\n"
                  "  suppression hosts: %zu\n  remote neighbours: %zu\n",
                  id, on_off(s.flags & vc::kFlagSuppression), on_off(s.flags & vc::kFlagMissDiscard),
                  on_off(s.flags & vc::kFlagUnicast), on_off(s.flags & vc::kFlagAdvertise), s.limit, s.timeout, hosts,
                  suppressed, remote);
}

// The local hosts of one VXLAN id (all of them for 0), by address or by MAC address.
std::string NdService::diagnose_vxlan_hosts(uint32_t kind, uint32_t value)
{
    bool byAddress = kind == ndwire::kDiagnoseHosts;
    std::string text = format("vxlan %u local %s\n", value, byAddress ? "hosts" : "macs");
    for (const auto &[key, host] : hosts_)
        if (value == 0 || key.first == value)
            text += byAddress ? format("  %s %s port-index %u\n", ip6_text(key.second).c_str(),
                                       mac_text(host.mac).c_str(), host.portIndex)
                              : format("  %s vxlan %u\n", mac_text(host.mac).c_str(), key.first);
    return text;
}

std::string NdService::diagnose_global(EcStore &ec)
{
    size_t statics = ec.user_binds().size();
    std::string text = format("nd global\n  snooping: %s\n  ns-check-loose: %s\n  attack-log: %s\n",
                              enable_disable(ec.flag(ndwire::kKeySnooping) == 1),
                              enable_disable(ec.flag(ndwire::kKeyLoose) == 1),
                              enable_disable(ec.flag(ndwire::kKeyAttackLog) == 1));
    text += format("  fast-response: %s\n  static user-binds: %zu\n  dynamic user-binds: %zu\n  prefixes: %zu\n",
                   enable_disable(!ec.exists(ndwire::kKeyFastResponse)), statics,
                   dynamicBinds_[0].size() + dynamicBinds_[1].size(), prefixes_.size());
    return text;
}

// The global state, then every instance that is configured or has hosts: its settings and its
// local hosts, so that an output modifier finds a host line whichever instance holds it.
std::string NdService::diagnose_every_vxlan(EcStore &ec)
{
    std::vector<uint32_t> stored = ec.vxlan_ids();
    std::set<uint32_t> ids(stored.begin(), stored.end());
    for (const auto &entry : hosts_)
        ids.insert(entry.first.first);
    for (const auto &entry : suppression_)
        ids.insert(entry.first.first);
    for (const auto &entry : remoteNbrs_)
        ids.insert(entry.first.second.first);
    std::string text = diagnose_global(ec);
    for (uint32_t id : ids) {
        text += diagnose_vxlan(ec, id);
        auto first = hosts_.lower_bound(VxlanKey{id, Ip6{}});
        if (first != hosts_.end() && first->first.first == id)
            text += diagnose_vxlan_hosts(ndwire::kDiagnoseHosts, id);
    }
    return text;
}

std::string NdService::diagnose_acl(EcStore &ec)
{
    return format("nd global acl\n  snooping packets to cpu: %s\n  trusted ports: %zu\n  snooping vlans: %zu\n",
                  on_off(ec.flag(ndwire::kKeySnooping) == 1), ec.keys(ndwire::kTypePort).size(),
                  ec.keys(ndwire::kTypeVlan).size());
}

std::string NdService::diagnose_requests()
{
    std::string text = "nd service requests\n";
    for (const auto &[code, count] : requestCounts_)
        text += format("  code %u: %llu\n", code, static_cast<unsigned long long>(count));
    return text;
}

std::string NdService::diagnose_interfaces(EcStore &ec)
{
    std::string text = "nd interface neighbor\n";
    for (const std::string &key : ec.keys(ndwire::kTypeInterface)) {
        Bytes rec = ec.read(key);
        if (rec.size() < ndwire::iface::kSize)
            continue;
        std::string name = text_at(rec.data(), ndwire::iface::kName, ndwire::iface::kNameSize);
        uint32_t flags = interface_flags(rec);
        text += format("  %s: proxy %s, proxy anyway %s\n", name.c_str(), on_off(flags & ndwire::iface::kFlagProxy),
                       on_off(flags & ndwire::iface::kFlagAnyway));
    }
    return text;
}

} // namespace ndsvc
