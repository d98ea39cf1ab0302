// The six debug switches of the ND service: the debug nd commands and the hook through which
// the platform's debug framework turns them all on or off or asks for their state.
#include <cstdio>

#include "nd_cmd.h"
#include "nd_request.h"

namespace {

constexpr uint32_t kDebugConfig = 1;
constexpr uint32_t kDebugEvent = 2;
constexpr uint32_t kDebugForward = 4;
constexpr uint32_t kDebugPacket = 8;
constexpr uint32_t kDebugError = 16;
constexpr uint32_t kDebugServe = 32;

// The shell has completed the keyword already, so its first letter names the switch; only
// "event" and "error" share theirs and are told apart by the second.
uint32_t maskOfKeyword(const char *keyword)
{
    if (!keyword)
        return 0;
    switch (keyword[0]) {
    case 'c':
        return kDebugConfig;
    case 'f':
        return kDebugForward;
    case 'p':
        return kDebugPacket;
    case 's':
        return kDebugServe;
    case 'e':
        return keyword[1] == 'v' ? kDebugEvent : kDebugError;
    case 'a':
        return ndwire::kDebugMaskAll;
    default:
        return 0;
    }
}

// One request of command code 14: the operation kind of the keyword applied to the mask.
uint32_t debugRequest(const char *keyword, uint32_t mask)
{
    ndcli::Request request;
    if (!request.start(keyword, ND_CMD_DEBUG, ndcli::kInitFailed))
        return static_cast<uint32_t>(request.result());
    request.add(ndwire::kItemMask, sizeof mask, &mask, true);
    return request.send();
}

// What each control code of the debug framework does. The outside controls are told of
// every code handled, except that code 1 is deliberately not passed on to the MLAG control:
// the MLAG module has always been left out of "all on", and changing that would change what
// "debugging all" does to MLAG on switches already in service.
struct DebugControl {
    uint32_t code;
    uint32_t (*apply)();
    bool toMlag;
};
constexpr DebugControl kDebugControls[] = {
    {1, ndCliSetDebugAllOn, false},
    {2, ndCliSetDebugAllOff, true},
    {3, ndCliShowDebuggingInfo, true},
};

} // namespace

extern "C" int32_t ndDebugSnooping(int32_t argc, char **argv)
{
    const char *first = ndcli::firstWord(argc, argv);
    // "debug nd <keyword>" or "no debug nd <keyword>".
    const int32_t at = nd_CliArgGetOptFlag(first) == ND_CLI_OPT_UNDO ? 3 : 2;
    // A shorter line than the grammar allows reads as an unknown keyword rather than past
    // the end of the vector.
    const char *keyword = ndcli::wordAt(argc, argv, at);
    return static_cast<int32_t>(debugRequest(first, maskOfKeyword(keyword)));
}

extern "C" uint32_t ndCliSetDebugAllOn(void)
{
    return debugRequest("debug", ndwire::kDebugMaskAll);
}

extern "C" uint32_t ndCliSetDebugAllOff(void)
{
    return debugRequest("no", ndwire::kDebugMaskAll);
}

extern "C" uint32_t ndCliShowDebuggingInfo(void)
{
    return debugRequest("show", 0);
}

extern "C" void ndCliDebugCtrlProc(uint32_t code)
{
    for (const DebugControl &control : kDebugControls) {
        if (control.code != code)
            continue;
        // The outside controls follow whatever the request's result.
        control.apply();
        nd_MposPublishCliDebugCtrl(code);
        if (control.toMlag)
            nd_MlagDbgCtrl(code);
        return;
    }
}
