// Fuzzes the client side of the framing with the plug-in's commands behind it. The first byte
// chooses the command; the rest is a sequence of service answers, each a 32-bit length in host
// order and a response body, handed to the command's requests one after the other (a body
// that does not decode is skipped; when the answers run out, the in-process service answers
// "the last one, nothing in it"). So every renderer, the paged listings and the VXLAN
// exchange with its follow-up rounds meet hostile answers. Nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "nd_cli.h"
#include "nd_snooping.h"
#include "ndplat_service.h"
#include "vxlan/nd_cli_vxlan.h"

namespace {

struct Command {
    SHELL_CMD_FN handler;
    std::vector<const char *> words;
};

int32_t showDebugging(int32_t, char **)
{
    ndCliShowDebuggingInfo();
    return 0;
}

// Show and undo commands only: a configuration request would start a real ND service.
const Command kCommands[] = {
    {ndShowNdSnoopingStat, {"show", "nd", "snooping", "statistics"}},
    {ndShowNdSnoopingUserBindAddr, {"show", "nd", "snooping", "user-bind", "2001:db8::1"}},
    {ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "static"}},
    {ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic"}},
    {ndShowNdSnoopingUserBind, {"show", "nd", "snooping", "user-bind", "dynamic-mpu"}},
    {ndShowNdSnoopingPrefix, {"show", "nd", "snooping", "prefix"}},
    {ndClearNdSnoopingStat, {"clear", "nd", "snooping", "statistics"}},
    {ndCliOptNdSnoopingPrefix, {"clear", "nd", "snooping", "prefix", "2001:db8::/64"}},
    {ndShowNdForwardPktStat, {"show", "nd", "fast-response", "statistics"}},
    {ndShowProxyAddr, {"show", "nd", "proxy", "address"}},
    {showDebugging, {}},
    {ndDebugSnooping, {"no", "debug", "nd", "all"}},
    {ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression", "vxlan", "10"}},
    {ndCliVxlanSuppressionShow, {"show", "ipv6", "nd", "suppression"}},
    {ndCliVxlanHostShow, {"show", "ipv6", "nd", "host", "vxlan", "10"}},
    {ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "10", "2001:db8::1"}},
    {ndCliVxlanHostclear, {"clear", "ipv6", "nd", "host", "vxlan", "all"}},
    {nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan", "20", "mac"}},
    {nd_CliVxlanDiagnoseShowVxlan, {"show", "diagnose", "nd", "vxlan"}},
    {ndCliVxlanSuppressionSet, {"no", "ipv6", "nd", "suppression"}},
    {ndCliVxlanTimeoutSet, {"no", "ipv6", "nd", "host", "timeout"}},
};
constexpr size_t kCommandCount = sizeof kCommands / sizeof kCommands[0];

// More answers than this are not scripted: the in-process answer ends the exchange after them.
constexpr size_t kMaxAnswers = 64;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // The commands print; the fuzzer's own output goes to stderr.
    if (!freopen("/dev/null", "w", stdout))
        return 0;
    ndplat::trace_record_set(false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    ndplat::reset();
    ndplat::trace_record_set(false);
    const Command &command = kCommands[data[0] % kCommandCount];
    size_t at = 1;
    size_t answers = 0;
    while (at + sizeof(uint32_t) <= size && answers < kMaxAnswers) {
        uint32_t length = 0;
        memcpy(&length, data + at, sizeof length);
        at += sizeof length;
        const size_t body = length < size - at ? length : size - at;
        ndplat::CmfResponse response;
        if (ndplat::wire_decode_response(data + at, body, response)) {
            ndplat::cmf_script(response);
            ++answers;
        }
        at += body;
    }
    // Writable words, as the shell passes them (a handler may cut a word in place).
    std::vector<std::string> words(command.words.begin(), command.words.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    command.handler(static_cast<int32_t>(command.words.size()), argv.data());
    fflush(stdout);
    ndplat::reset();
    return 0;
}
