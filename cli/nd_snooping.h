// Handlers of the ND snooping commands: configuration, and the show and clear commands with
// their paged listings. The shell reaches them through the command table.
#ifndef ND_SNOOPING_H
#define ND_SNOOPING_H

#include "framework/nd_cli_owned.h"
#include "nd_cli_internal.h"
#include "nd_request.h"

namespace ndcli {

} // namespace ndcli

extern "C" {

/* configuration */
int32_t ndArgProcForGlbSnpEnable(int32_t argc, char **argv);
int32_t ndArgProcForSnpLooseEnable(int32_t argc, char **argv);
int32_t ndArgProcForVlanSnpEnable(int32_t argc, char **argv);
int32_t ndArgProcForSnptrust(int32_t argc, char **argv);
int32_t ndArgProcForSnpdetect(int32_t argc, char **argv);
int32_t ndArgProcForSnpStUb(int32_t argc, char **argv);
int32_t ndCliSnpAttackLogEnable(int32_t argc, char **argv);

/* show and clear */
int32_t ndShowNdSnoopingUserBind(int32_t argc, char **argv);
int32_t ndShowNdSnoopingUserBindAddr(int32_t argc, char **argv);
int32_t ndShowNdSnoopingPrefix(int32_t argc, char **argv);
int32_t ndCliOptNdSnoopingPrefix(int32_t argc, char **argv);
int32_t ndShowNdSnoopingStat(int32_t argc, char **argv);
int32_t ndClearNdSnoopingDyUbUserBind(int32_t argc, char **argv);
int32_t ndClearNdSnoopingStat(int32_t argc, char **argv);
}

#endif
