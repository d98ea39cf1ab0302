// ISSU of the VXLAN host table: the backup writes every local host into the plug-in's ISSU
// store, the recovery reads them back. The store's functions come from the plug-in itself,
// loaded on first use.
#include <dlfcn.h>

#include <cstdio>

#include "svc_items.h"
#include "svc_records.h"

namespace ndsvc {

namespace {

// The plug-in's ISSU store functions.
struct IssuStore {
    int32_t (*open)() = nullptr;
    int32_t (*insert)(const void *entry) = nullptr;
    int32_t (*save)(const char *path, uint32_t, uint32_t, uint32_t) = nullptr;
    void (*close)() = nullptr;
    int32_t (*walk)(NdDbmLibIssuIterCtx *ctx) = nullptr;

    // False when the plug-in lacks one of them.
    bool resolve(void *plugin)
    {
        open = reinterpret_cast<decltype(open)>(dlsym(plugin, "nd_DbmLibIssuOpen"));
        insert = reinterpret_cast<decltype(insert)>(dlsym(plugin, "nd_DbmLibIssuEntryInsert"));
        save = reinterpret_cast<decltype(save)>(dlsym(plugin, "nd_DbmLibSaveIssu"));
        close = reinterpret_cast<decltype(close)>(dlsym(plugin, "nd_DbmLibIssuClose"));
        walk = reinterpret_cast<decltype(walk)>(dlsym(plugin, "nd_DbmLibIssuHandler"));
        return open && insert && save && close && walk;
    }
};

bool backup(const IssuStore &store, const std::map<VxlanKey, VxlanHost> &hosts)
{
    if (store.open() != 0)
        return false;
    bool good = true;
    for (const auto &[key, host] : hosts) {
        Bytes e = issu_entry(key, host);
        good = store.insert(e.data()) == 0 && good;
    }
    good = store.save(ndwire::kIssuSavePath, 0, 0, 0) == 0 && good;
    store.close();
    return good;
}

bool recover(const IssuStore &store, std::map<VxlanKey, VxlanHost> &hosts)
{
    struct Walk {
        IssuPorts ports = issu_ports();
        std::map<VxlanKey, VxlanHost> &hosts;
    } walk{.hosts = hosts};
    NdDbmLibIssuIterCtx ctx;
    ctx.callback = [](const void *entry, void *arg) -> int32_t {
        Walk &w = *static_cast<Walk *>(arg);
        VxlanKey key;
        VxlanHost host;
        read_issu_entry(static_cast<const uint8_t *>(entry), w.ports, key, host);
        w.hosts.emplace(key, host);
        return 0;
    };
    ctx.arg = &walk;
    return store.walk(&ctx) == 0;
}

} // namespace

bool NdService::load_plugin()
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

CmfResponse NdService::vxlan_issu(uint32_t selector)
{
    IssuStore store;
    if (!load_plugin() || !store.resolve(plugin_))
        return status(ND_ERR_DBM);
    std::lock_guard<std::mutex> hold(stateMutex_);
    wire_vxlan_hosts_locked();
    switch (selector) {
    case ndwire::kIssuBackup:
        return stored(backup(store, hosts_));
    case ndwire::kIssuRecover: {
        // A host of the table keeps its entry; on the wire the others are taken as heard now.
        std::map<VxlanKey, VxlanHost> recovered;
        bool good = recover(store, recovered);
        for (auto it = recovered.begin(); it != recovered.end();)
            it = hosts_.emplace(it->first, it->second).second ? std::next(it) : recovered.erase(it);
        wire_restore_hosts_locked(recovered);
        return stored(good);
    }
    default:
        return status(ND_ERR_OPERATION_FAILED);
    }
}

} // namespace ndsvc
