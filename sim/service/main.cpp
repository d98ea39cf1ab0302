// ndsvc: the ND service process ("ipv6") of the emulated switch. It answers the plug-in's
// requests on the Unix-domain socket of the state directory until it is told to stop.
//
//   ndsvc [--state DIR] [--seed FILE] [--plugin PATH] [--config-delay-ms N] [--die-after N]
//         [--user-bind-ceiling N]
//
// --die-after N makes the process end abruptly, without an answer, when the Nth request arrives
// (tests of a service that dies in the middle of a listing). --user-bind-ceiling N makes the
// static user-bind table full at N entries instead of 1,024 (tests of the full table).
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <unistd.h>

#include "nd_service.h"
#include "ndplat_dbm.h"
#include "ndplat_service.h"

#ifndef ND_CLI_SO_PATH
#define ND_CLI_SO_PATH "libnd-cli.so"
#endif

namespace {

ndplat::ServiceServer *gServer = nullptr;

void onSignal(int)
{
    if (gServer)
        gServer->stop();
}

int usage()
{
    fprintf(stderr, "usage: ndsvc [--state DIR] [--seed FILE] [--plugin PATH] [--config-delay-ms N] [--die-after N]\n"
                    "             [--user-bind-ceiling N]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    // The platform's call trace is a test aid; a long-running service keeps none of it.
    ndplat::trace_record_set(false);
    std::string stateDir = ndplat::state_dir();
    std::string seed;
    const char *pluginEnv = getenv("NDSIM_PLUGIN");
    std::string plugin = pluginEnv && *pluginEnv ? pluginEnv : ND_CLI_SO_PATH;
    uint32_t delayMs = 0;
    unsigned long dieAfter = 0;
    size_t ceiling = ndsvc::kStaticUserBindCeiling;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--state" && hasValue)
            stateDir = argv[++i];
        else if (arg == "--seed" && hasValue)
            seed = argv[++i];
        else if (arg == "--plugin" && hasValue)
            plugin = argv[++i];
        else if (arg == "--config-delay-ms" && hasValue)
            delayMs = static_cast<uint32_t>(strtoul(argv[++i], nullptr, 10));
        else if (arg == "--die-after" && hasValue)
            dieAfter = strtoul(argv[++i], nullptr, 10);
        else if (arg == "--user-bind-ceiling" && hasValue)
            ceiling = strtoul(argv[++i], nullptr, 10);
        else
            return usage();
    }
    setenv("NDSIM_STATE", stateDir.c_str(), 1);
    ndplat::dbm_state_dir_set(stateDir);

    ndsvc::NdService service;
    service.plugin_path_set(plugin);
    service.config_delay_set(delayMs);
    service.user_bind_ceiling_set(ceiling);
    if (!seed.empty()) {
        std::string why;
        if (!service.seed_file(seed, &why)) {
            fprintf(stderr, "ndsvc: seed %s: %s\n", seed.c_str(), why.c_str());
            return 1;
        }
    }

    ndplat::ServiceServer server;
    if (!server.listen(ndplat::service_socket_path(stateDir)))
        return 1;
    std::string pidPath = ndplat::service_pid_path(stateDir);
    if (FILE *f = fopen(pidPath.c_str(), "w")) {
        fprintf(f, "%ld\n", static_cast<long>(getpid()));
        fclose(f);
    }
    gServer = &server;
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    std::atomic<unsigned long> requests{0};
    server.serve([&service, &requests, dieAfter](const ndplat::CmfRequest &request, ndplat::ServiceConnection &) {
        if (dieAfter && ++requests >= dieAfter)
            _exit(3);
        return service.handle(request);
    });
    gServer = nullptr;
    unlink(server.path().c_str());
    unlink(pidPath.c_str());
    return 0;
}
