// Functions of the plug-in that stay inside it: command handlers, registration steps and
// helpers shared between its files. The shell reaches the handlers through the registrations.
#ifndef ND_CLI_INTERNAL_H
#define ND_CLI_INTERNAL_H

#include "nd_cli.h"
#include "nd_cli_wire.h"
#include "nd_platform.h"

extern "C" {

/* start-up */
uint32_t ndCliRegService(void);
uint32_t ndCliEvtRegister(void);
}

#endif
