// The parts of other ND components that the ND plug-in registers or calls: the
// publish-subscribe (nd-ps) and MLAG command handlers with their debug controls, and the
// shell's own part of the proxy command. Their state lives in the emulation; tests and the
// shell may look at it here.
#ifndef NDPLAT_ND_MODULES_H
#define NDPLAT_ND_MODULES_H

#include <cstdint>
#include <string>
#include <vector>

namespace ndplat {

struct NdPsSubscriber {
    std::string module;
    uint32_t received;
    uint32_t dropped;
    bool debug;
};

struct NdModulesState {
    bool publisherDebug;
    uint32_t published;
    uint32_t publishFailed;
    std::vector<NdPsSubscriber> subscribers;
    bool mlagDebug;
    std::string mlagDebugAddress; // empty: every address
    uint32_t proxyCalls;          // calls of shell_nd6_proxy
};

NdModulesState nd_modules_state(); // a copy of the state now

} // namespace ndplat

#endif
