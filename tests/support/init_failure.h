// Makes the plug-in's request-block initialisation fail on demand, for the loaded-library
// tests of the handlers' failure paths. A program that uses it links init_failure.cpp and
// exports its symbols (ENABLE_EXPORTS), so that its nd_CliParamInit comes before the plug-in's.
#ifndef ND_TEST_INIT_FAILURE_H
#define ND_TEST_INIT_FAILURE_H

#include <cstdint>

namespace ndtest {

// The next initialisation does its work and then reports `result` (0: disarmed).
void fail_next_param_init(uint32_t result);

} // namespace ndtest

#endif
