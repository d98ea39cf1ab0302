// VXLAN-mode ND configuration commands and the registration of every VXLAN command.
#include <cstdio>
#include <cstdlib>
#include <strings.h>

#include "vxlan/nd_cli_vxlan.h"
#include "nd_request.h"

namespace {

// What a configuration command sends besides the VXLAN id: nothing, or one value word read
// after "timeout" / "limited", whose absence on the negated form means the default.
struct VxlanCfgCommand {
    uint32_t code;
    uint32_t valueItem; // 0: no value word
    uint32_t undoDefault;
};

constexpr VxlanCfgCommand kTimeout = {ndwire::kCmdVxlanTimeout, ndwire::kItemTimeout, ndwire::vxlancfg::kDefaultTimeout};
constexpr VxlanCfgCommand kLimit = {ndwire::kCmdVxlanLimit, ndwire::kItemLimit, ndwire::vxlancfg::kDefaultLimit};
constexpr VxlanCfgCommand kLocalAdv = {ndwire::kCmdVxlanAdvertise, 0, 0};
constexpr VxlanCfgCommand kSuppression = {ndwire::kCmdVxlanSuppression, 0, 0};
constexpr VxlanCfgCommand kMissDiscard = {ndwire::kCmdVxlanMissDiscard, 0, 0};
constexpr VxlanCfgCommand kUnicastFwd = {ndwire::kCmdVxlanUnicast, 0, 0};

// Words before the value: "ipv6 nd host timeout" or the hidden "nd host timeout".
constexpr uint32_t kWordsWithIpv6 = 4;
constexpr uint32_t kWordsWithoutIpv6 = 3;

uint32_t valueWord(NdCliParam &block, const VxlanCfgCommand &command, int32_t argc, char **argv)
{
    const char *first = ndcli::wordAt(argc, argv, static_cast<int32_t>(block.argIndex));
    block.argIndex += first && strcasecmp(first, "ipv6") == 0 ? kWordsWithIpv6 : kWordsWithoutIpv6;
    const char *value = ndcli::wordAt(argc, argv, static_cast<int32_t>(block.argIndex));
    if (!value)
        return block.optKind == ND_CLI_OPT_UNDO ? command.undoDefault : 0;
    if (block.optKind != ND_CLI_OPT_SET)
        return 0;
    return static_cast<uint32_t>(atoi(value));
}

// Failures after the request was sent are printed and the handler still answers 0.
int32_t runCfgCommand(const VxlanCfgCommand &command, int32_t argc, char **argv)
{
    ndcli::Request request;
    if (!request.start(argc, argv, command.code, ndcli::kInitErrorPrinted))
        return request.result();
    if (gnl_mem_state() != 0 && request.block().optKind == ND_CLI_OPT_SET)
        return ndcli::printedResult("\n%% Memory short, Can't configure this command, please try later");

    uint32_t vxlanId = static_cast<uint32_t>(mpsh_get_int_env(ND_SHELL_ENV_VXLAN));
    request.add(ndwire::kItemVxlanId, sizeof vxlanId, &vxlanId, false);
    uint32_t value = 0;
    if (command.valueItem != 0) {
        value = valueWord(request.block(), command, argc, argv);
        request.add(command.valueItem, sizeof value, &value, true);
    }
    request.sendVxlan(nullptr);
    return 0;
}

} // namespace

extern "C" {

ND_CLI_BOUND_HANDLER(ndCliVxlanTimeoutSet, runCfgCommand, kTimeout)
ND_CLI_BOUND_HANDLER(ndCliVxlanLimitSet, runCfgCommand, kLimit)
ND_CLI_BOUND_HANDLER(ndCliVxlanLocalAdvSet, runCfgCommand, kLocalAdv)
ND_CLI_BOUND_HANDLER(ndCliVxlanSuppressionSet, runCfgCommand, kSuppression)
ND_CLI_BOUND_HANDLER(ndCliVxlanSuppressionMissDiscardSet, runCfgCommand, kMissDiscard)
ND_CLI_BOUND_HANDLER(ndCliVxlanSuppressionUnicastFwdSet, runCfgCommand, kUnicastFwd)

} // extern "C"

// Every configuration command is registered four times: visible with "ipv6", its negation,
// and a hidden twin without "ipv6" with its negation. The first string's extra closing brace
// is part of the registered text.
// Not reformatted: one row per command, its definition laid out as the tree it defines.
// clang-format off
constexpr NdCliVxlanCmdRow kNdCliVxlanCmdTable[kNdCliVxlanCmdCount] = {
    {ndCliVxlanTimeoutSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout'){_30_2147483_(VXLAN, 0, 'Seconds(default:300)')}}}}}"},
    {ndCliVxlanTimeoutSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){timeout(VXLAN, 0, 'Set ND cache timeout')}}}}"},
    {ndCliVxlanTimeoutSet,
     "nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout'){_30_2147483_(VXLAN, 0, HIDE,'Seconds(default:300)')}}}"},
    {ndCliVxlanTimeoutSet,
     "no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {host(VXLAN, 0, HIDE,'Configure ND host'){timeout(VXLAN, 0, HIDE,'Set ND cache timeout')}}}"},
    {ndCliVxlanLimitSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}}}"},
    {ndCliVxlanLimitSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Configure ND host'){limited(VXLAN, 0, 'Set ND host entry limit number')}}}}"},
    {ndCliVxlanLimitSet,
     "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number'){_0_20480_(VXLAN, 0,HIDE, 'Local ND hosts limit number(default:20480), 0 is unlimited')}}}"},
    {ndCliVxlanLimitSet,
     "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Configure ND host'){limited(VXLAN, 0,HIDE, 'Set ND host entry limit number')}}}"},
    {ndCliVxlanLocalAdvSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}}"},
    {ndCliVxlanLocalAdvSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {host(VXLAN, 0, 'Local host'){advertise(VXLAN, 0, 'Set ND local host advertise')}}}}"},
    {ndCliVxlanLocalAdvSet,
     "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}}"},
    {ndCliVxlanLocalAdvSet,
     "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {host(VXLAN, 0,HIDE, 'Local host'){advertise(VXLAN, 0,HIDE, 'Set ND local host advertise')}}}"},
    {ndCliVxlanSuppressionSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}}"},
    {ndCliVxlanSuppressionSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0, '')}}}}"},
    {ndCliVxlanSuppressionSet,
     "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}}"},
    {ndCliVxlanSuppressionSet,
     "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){_CR_(VXLAN, 0,HIDE, '')}}}"},
    {ndCliVxlanSuppressionMissDiscardSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}}"},
    {ndCliVxlanSuppressionMissDiscardSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){missmatch(VXLAN, 0, 'ND missmatch host entry') {discard(VXLAN, 0, 'Discard missmatch host entry')}}}}}"},
    {ndCliVxlanSuppressionMissDiscardSet,
     "nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}}"},
    {ndCliVxlanSuppressionMissDiscardSet,
     "no(VXLAN, 0, HIDE,'Negate a command or set its defaults'){nd(VXLAN, 0, HIDE,'Configure ND parameters') {suppression(VXLAN, 0, HIDE,'Set ND Broadcast suppression'){missmatch(VXLAN, 0, HIDE,'ND missmatch host entry') {discard(VXLAN, 0, HIDE,'Discard missmatch host entry')}}}}"},
    {ndCliVxlanSuppressionUnicastFwdSet,
     "ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}}"},
    {ndCliVxlanSuppressionUnicastFwdSet,
     "no(VXLAN, 0, 'Negate a command or set its defaults'){ipv6(VXLAN, 0, '') {nd(VXLAN, 0, 'Configure ND parameters') {suppression(VXLAN, 0, 'Set ND Broadcast suppression'){unicast(VXLAN, 0, 'ND suppression unicast forward'){forward(VXLAN, 0, 'ND suppression unicast forward')}}}}}"},
    {ndCliVxlanSuppressionUnicastFwdSet,
     "nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}}"},
    {ndCliVxlanSuppressionUnicastFwdSet,
     "no(VXLAN, 0,HIDE, 'Negate a command or set its defaults'){nd(VXLAN, 0,HIDE, 'Configure ND parameters') {suppression(VXLAN, 0,HIDE, 'Set ND Broadcast suppression'){unicast(VXLAN, 0,HIDE, 'ND suppression unicast forward'){forward(VXLAN, 0,HIDE, 'ND suppression unicast forward')}}}}"},
    {ndCliVxlanSuppressionShow,
     "show(EN, 0, 'Show running system information') {ipv6(EN, 0, '') {nd(EN, 0, 'Show ND parameters') {suppression(EN, 0, 'Show ND Broadcast suppression'){"
     ND_CLI_OUTPUT_MODIFIERS ","
     "vxlan(EN, 0, 'Vxlan'){_1_8190_(EN, 0, 'VxlanId'){" ND_CLI_OUTPUT_MODIFIERS ",_CR_(EN, 0, '')}},"
     "_CR_(EN, 0, '')}}}}"},
    {ndCliVxlanHostShow,
     "show(EN, 0, 'Show running system information') {ipv6(EN, 0, '') {nd(EN, 0, 'Show ND parameters') {host(EN, 0, 'Show ND Host entry'){vxlan(EN, 0, 'Vxlan'){"
     ND_CLI_OUTPUT_MODIFIERS ","
     "_1_8190_(EN, 0, 'VxlanId'){" ND_CLI_OUTPUT_MODIFIERS ",_CR_(EN, 0, '')},"
     "_CR_(EN, 0, '')}}}}}"},
    {ndCliVxlanHostclear,
     "clear(EN, 0, ' ') {ipv6(EN, 0, '') {nd(EN, 0, 'Neighbor discovery') {host(EN, 0, 'Host entry'){vxlan(EN, 0, 'Vxlan'){all(EN, 0, 'All vxlan host entry'),_1_8190_(EN, 0, 'VxlanId'){_IPV6ADDR_(EN,0,'IPv6 address of host entry'),_CR_(EN, 0, '')}}}}}}"},
    {ndCliVxlanHostIssu,
     "ipv6(EN, 0, '') {nd(EN, 0, 'Command nd') {host(EN, 0, 'Nd vxlan local host') {issu(EN, 0, 'Nd vxlan local host issu') {backup(EN, 0, 'Backup nd vxlan local host by issu') {_CR_(EN, 0, '')},recover(EN, 0, 'Recover nd vxlan local host by issu') {_CR_(EN, 0, '')}}}}}"},
};
// clang-format on

extern "C" void nd_CliVxlanCmdRegister(void)
{
    for (const NdCliVxlanCmdRow &row : kNdCliVxlanCmdTable)
        SHELL_CmdRegByModule(0, ND_CLI_MODULE_ID, row.handler, row.definition);
}
