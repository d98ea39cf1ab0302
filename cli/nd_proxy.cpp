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

// A request about the current interface, whose name the shell keeps in its environment.
struct InterfaceRequest {
    ndcli::Request request;
    const char *name = nullptr;
    int32_t result = ND_OK;

    // Starts the request. False after printing why there is no interface; `result` then holds
    // the handler's result.
    bool start(int32_t argc, char **argv, uint32_t code, const InterfaceMessages &messages)
    {
        if (!request.start(argc, argv, code, {messages.initError, ndcli::InitFailure::Answer::Status})) {
            result = request.result();
            return false;
        }
        name = SHELL_GetEnv(ND_SHELL_ENV_IF_NAME);
        if (!name) {
            // The number shown is the init result, which is 0 here.
            printf(messages.noInterface, 0);
            result = ND_ERR_GET_IFINDEX;
        }
        return name != nullptr;
    }

    // The name goes with its terminating zero.
    void addName() { request.add(ndwire::kItemObject, static_cast<uint32_t>(strlen(name) + 1), name, true); }
};

} // namespace

extern "C" int32_t ndArgProcForProxyEnable(int32_t argc, char **argv)
{
    InterfaceRequest proxy;
    if (!proxy.start(argc, argv, ND_CMD_PROXY_ENABLE, kProxyMessages))
        return proxy.result;
    proxy.addName();
    proxy.request.send();
    // The shell's own proxy handling follows the request whatever the service answered.
    return shell_nd6_proxy(argc, argv);
}

extern "C" int32_t ndArgProcForProxyAnywayEnable(int32_t argc, char **argv)
{
    InterfaceRequest anyway;
    if (!anyway.start(argc, argv, ND_CMD_PROXY_ANYWAY, kAnywayMessages))
        return anyway.result;
    if (strchr(anyway.name, '.')) {
        // Sub-interfaces are refused before the service is asked.
        printf("\n %% Not support!");
        return ND_ERR_OPERATION_FAILED;
    }
    // The switch item is 1 in both forms: the operation kind says on or off.
    const uint32_t on = 1;
    anyway.request.add(ndwire::kItemAnywaySwitch, sizeof on, &on, false);
    anyway.addName();
    return anyway.request.finish();
}

extern "C" int32_t ndArgProcForLocProxyEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_LOCAL_PROXY_ENABLE, ndcli::kInitError))
        return request.result();
    const uint16_t superVlan = static_cast<uint16_t>(mpsh_get_int_env(ND_SHELL_ENV_SUPER_VLAN));
    request.add(ndwire::kItemObject, sizeof superVlan, &superVlan, true);
    return request.finish();
}

extern "C" int32_t ndArgProcForFrEnable(int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, ND_CMD_FAST_RESPONSE, ndcli::kInitError))
        return request.result();
    return request.finish();
}

extern "C" int32_t ndShowNdForwardPktStat(int32_t argc, char **argv)
{
    return ndcli::sendZeroWord(argc, argv, ND_CMD_FORWARD_STATISTICS, ndwire::kItemQuery);
}

extern "C" int32_t ndShowProxyAddr(int32_t argc, char **argv)
{
    return ndcli::sendZeroWord(argc, argv, ND_CMD_PROXY_ADDRESS, ndwire::kItemQuery);
}
