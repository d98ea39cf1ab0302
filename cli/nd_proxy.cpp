// ND proxy, proxy anyway, local proxy and fast-response commands: each turns one command line
// into one request to the ND service. The service decides every conflict; the handlers only
// report what it answers.
#include <cstdio>
#include <cstring>

#include "nd_cmd.h"
#include "nd_request.h"

namespace {

// The two proxy handlers print their failures in forms of their own; the forms are part of
// what the operator sees and differ on purpose.
struct InterfaceMessages {
    const char *initError;
    const char *noInterface;
};
constexpr InterfaceMessages kProxyMessages = {"cli param init error %d!", "cli get ifindex error %d!"};
constexpr InterfaceMessages kAnywayMessages = {"\n cli param init error %d!", "\n cli get ifindex error %d!"};

// Starts a request about the current interface. Returns its name, or null after printing
// why there is none; `result` then holds the handler's result.
const char *beginInterfaceRequest(ndcli::Request &request, const char *keyword, uint32_t code,
                                  const InterfaceMessages &messages, uint32_t &result)
{
    result = request.init(keyword, code);
    if (result != ND_OK) {
        printf(messages.initError, static_cast<int32_t>(result));
        return nullptr;
    }
    const char *name = SHELL_GetEnv(ND_SHELL_ENV_IF_NAME);
    if (!name) {
        // The number shown is the init result, which is 0 here.
        printf(messages.noInterface, static_cast<int32_t>(result));
        result = ND_ERR_GET_IFINDEX;
    }
    return name;
}

uint32_t interfaceNameLength(const char *name)
{
    return static_cast<uint32_t>(strlen(name) + 1);
}

// Show and clear requests that carry the single parameter 0.
int32_t showRequest(int32_t argc, char **argv, uint32_t code)
{
    ndcli::Request request;
    uint32_t result = request.init(ndcli::firstWord(argc, argv), code);
    if (result != ND_OK) {
        printf("nd cli param init failed\n");
        return static_cast<int32_t>(result);
    }
    const uint32_t param = 0;
    request.add(ndwire::kItemQuery, sizeof param, &param, true);
    return static_cast<int32_t>(request.send());
}

} // namespace

extern "C" int32_t ndArgProcForProxyEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    uint32_t result = ND_OK;
    const char *name = beginInterfaceRequest(request, ndcli::firstWord(argc, argv), ND_CMD_PROXY_ENABLE,
                                             kProxyMessages, result);
    if (!name)
        return static_cast<int32_t>(result);
    request.add(ndwire::kItemObject, interfaceNameLength(name), name, true);
    request.send();
    // The shell's own proxy handling follows the request whatever the service answered.
    return shell_nd6_proxy(argc, argv);
}

extern "C" int32_t ndArgProcForProxyAnywayEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    uint32_t result = ND_OK;
    const char *name = beginInterfaceRequest(request, ndcli::firstWord(argc, argv), ND_CMD_PROXY_ANYWAY,
                                             kAnywayMessages, result);
    if (!name)
        return static_cast<int32_t>(result);
    if (strchr(name, '.')) {
        // Sub-interfaces are refused before the service is asked.
        printf("\n %% Not support!");
        return ND_ERR_OPERATION_FAILED;
    }
    // The switch item is 1 in both forms: the operation kind says on or off.
    const uint32_t on = 1;
    request.add(ndwire::kItemAnywaySwitch, sizeof on, &on, false);
    request.add(ndwire::kItemObject, interfaceNameLength(name), name, true);
    return static_cast<int32_t>(request.send());
}

extern "C" int32_t ndArgProcForLocProxyEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    uint32_t result = request.init(ndcli::firstWord(argc, argv), ND_CMD_LOCAL_PROXY_ENABLE);
    if (result != ND_OK) {
        printf("cli param init error %d!\n", static_cast<int32_t>(result));
        return static_cast<int32_t>(result);
    }
    const uint16_t superVlan = static_cast<uint16_t>(mpsh_get_int_env(ND_SHELL_ENV_SUPER_VLAN));
    request.add(ndwire::kItemObject, sizeof superVlan, &superVlan, true);
    return static_cast<int32_t>(request.send());
}

extern "C" int32_t ndArgProcForFrEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    uint32_t result = request.init(ndcli::firstWord(argc, argv), ND_CMD_FAST_RESPONSE);
    if (result != ND_OK) {
        printf("cli param init error %d!\n", static_cast<int32_t>(result));
        return static_cast<int32_t>(result);
    }
    return static_cast<int32_t>(request.send());
}

extern "C" int32_t ndShowNdForwardPktStat(int32_t argc, char **argv)
{
    return showRequest(argc, argv, ND_CMD_FORWARD_STATISTICS);
}

extern "C" int32_t ndShowProxyAddr(int32_t argc, char **argv)
{
    return showRequest(argc, argv, ND_CMD_PROXY_ADDRESS);
}
