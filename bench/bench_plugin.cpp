#include "bench_plugin.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "bench_common.h"
#include "bench_control.h"
#include "bench_rows.h"
#include "dbm/nd_cli_dbm_internal.h"
#include "ndplat.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

namespace ndbench {

OutputTo::OutputTo(const std::string &path)
{
    fflush(stdout);
    saved_ = dup(1);
    Fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    dup2(fd.get(), 1);
}

OutputTo::~OutputTo()
{
    fflush(stdout);
    dup2(saved_, 1);
    close(saved_);
}

SHELL_CMD_FN handlerOf(const char *part, bool negated)
{
    for (const ndplat::CmdRegistration &r : ndplat::cmd_registrations())
        if (r.definition.find(part) != std::string::npos && (r.definition.rfind("no(", 0) == 0) == negated)
            return r.fn;
    return nullptr;
}

int32_t run(SHELL_CMD_FN fn, std::vector<std::string> words)
{
    Words argv(std::move(words));
    return fn(argv.count(), argv.get());
}

uint32_t send(uint32_t code, const char *keyword, const Items &items, bool vxlan)
{
    NdCliParam block;
    memset(&block, 0, sizeof block);
    nd_CliParamInit(&block, keyword, code);
    for (auto &[type, bytes] : items)
        nd_CliParamSet(&block, bytes.data(), static_cast<uint32_t>(bytes.size()), type, 1);
    return vxlan ? ndCliVxlanSetProc(&block, nullptr) : ndCliParamProc(&block);
}

std::string diagnose(uint32_t vxlan)
{
    constexpr const char *kDiagnoseFile = "/tmp/.nd_diagnose";
    unlink(kDiagnoseFile);
    send(29, "show", {{13, bytesOf<uint32_t>(0)}, {2, bytesOf<uint32_t>(vxlan)}});
    std::string text = readFile(kDiagnoseFile);
    unlink(kDiagnoseFile);
    return text;
}

namespace {

// One learned binding and one VXLAN host, each counted up to the sizes by the service.
void writeSeed(const std::string &path, const Sizes &sizes)
{
    std::ofstream out(path);
    out << R"({"dynamic_user_binds":[{"ip":"2001:db8:10::1","mac":"00:10:00:00:00:01","vlan":10,)"
        << R"("port":"gigabitethernet0/1","count":)" << sizes.dynamicBinds << "}],"
        << R"("vxlan_hosts":[{"vxlan":10,"ip":"2001:db8:a::1","mac":"00:0a:00:00:00:01","port_index":1,"count":)"
        << sizes.vxlanHosts << "}]}";
}

} // namespace

SwitchSession::SwitchSession(RunDir &runDir, const std::string &stateDir, const Sizes &sizes, const std::string &ndsvc)
{
    std::string seed = runDir.path() + "/seed.json";
    writeSeed(seed, sizes);
    if (stateDir.empty())
        return;
    runDir.stopService(stateDir);
    if (!runDir.startService(stateDir, {"--seed", seed}))
        return;
    setenv("NDSIM_STATE", stateDir.c_str(), 1);
    setenv("NDSIM_NDSVC", ndsvc.c_str(), 1);
    ndplat::dbm_storage_set(ndplat::DbmStorage::Sqlite);
    ndplat::dbm_state_dir_set(stateDir);
    ndplat::service_attach(stateDir);
    attached_ = true;
    ready_ = dl_nd_cli_init() == 0;
    if (ready_)
        servicePid_ = ndplat::service_lock_holder(stateDir);
}

SwitchSession::~SwitchSession()
{
    if (attached_)
        ndplat::service_detach();
}

} // namespace ndbench
