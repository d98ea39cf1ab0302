// Lets a test fail one particular platform allocation of the code under test: this program
// puts its own __UMV2L_malloc in front of the platform's and forwards every other call.
#ifndef ND_TEST_ALLOC_CONTROL_H
#define ND_TEST_ALLOC_CONTROL_H

namespace ndtest {
// After `successes` more allocations the next one fails, once; a negative value disarms.
void fail_allocation_after(int successes);
} // namespace ndtest

#endif
