// Driving the plug-in in process the way ndsh drives it: its registered command handlers, its
// configuration requests through the platform's socket transport, the service's diagnose
// text, and the session that attaches the plug-in to the configured switch.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "nd_cli.h"
#include "nd_platform.h"

namespace ndbench {

class RunDir;
struct Sizes;

// Standard output goes to a file while a command prints its table.
class OutputTo {
public:
    explicit OutputTo(const std::string &path);
    ~OutputTo();
    OutputTo(const OutputTo &) = delete;
    OutputTo &operator=(const OutputTo &) = delete;

private:
    int saved_;
};

// The registered handler whose definition holds part, the negated ("no ...") one or not.
SHELL_CMD_FN handlerOf(const char *part, bool negated);
// Runs a handler on the words of a command line; its return value.
int32_t run(SHELL_CMD_FN fn, std::vector<std::string> words);

// A request's parameters: type and value bytes.
using Items = std::vector<std::pair<uint32_t, std::vector<uint8_t>>>;
// One configuration request (the VXLAN one when vxlan); 0 when it was accepted.
uint32_t send(uint32_t code, const char *keyword, const Items &items, bool vxlan = false);

template <typename T> std::vector<uint8_t> bytesOf(T v)
{
    std::vector<uint8_t> b(sizeof v);
    memcpy(b.data(), &v, sizeof v);
    return b;
}

// The diagnose text of a VXLAN instance, as the service writes it.
std::string diagnose(uint32_t vxlan);

// The configured switch's service restarted on a seed of learned bindings and VXLAN hosts,
// and the plug-in attached to it and initialised; detached again when the session ends.
class SwitchSession {
public:
    SwitchSession(RunDir &runDir, const std::string &stateDir, const Sizes &sizes, const std::string &ndsvc);
    ~SwitchSession();
    SwitchSession(const SwitchSession &) = delete;
    SwitchSession &operator=(const SwitchSession &) = delete;
    bool ready() const { return ready_; }
    // The pid of the service, -1 when it is not known.
    long servicePid() const { return servicePid_; }

private:
    bool attached_ = false;
    bool ready_ = false;
    long servicePid_ = -1;
};

} // namespace ndbench
