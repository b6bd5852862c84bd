// A process stopped at any step: the body runs in a forked child whose
// mutating file system calls (open, close, write, fsync, fchmod, fchown,
// rename, unlink) are counted through the syscall table; at call number
// stopAt the child ends at once, as if killed there, so that nothing after it
// reaches the disk. Its locks go with it, as a killed process's do.
#ifndef VLM_TESTS_SUPPORT_STOPAT_H
#define VLM_TESTS_SUPPORT_STOPAT_H

#include <functional>

namespace testsupport {

// Runs body in a child stopped at call stopAt (never, for a stopAt below 1).
// Returns the number of calls the child made when body ran to its end and
// returned 0; -1 when body returned anything else; -2 when the child was
// stopped (or ended otherwise).
long RunStoppedAt(long stopAt, const std::function<int()>& body);

}  // namespace testsupport

#endif  // VLM_TESTS_SUPPORT_STOPAT_H
