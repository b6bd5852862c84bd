// The library's writing operations as the power and fault tests run them:
// each with the state it starts from, the files it writes, and whether they
// change as one.
#ifndef VLM_TESTS_POWER_OPERATIONS_H
#define VLM_TESTS_POWER_OPERATIONS_H

#include <string>
#include <vector>

#include "power/Outcome.h"

namespace powertest {

// What an operation answers when the test's own read of its input (through
// the port layer, and so under the faults of the test) failed.
constexpr int kSourceUnread = -1000;

std::vector<Operation> WritingOperations();
// The operation of that name; one with an empty name when there is none.
Operation WritingOperation(const std::string& name);

}  // namespace powertest

#endif  // VLM_TESTS_POWER_OPERATIONS_H
