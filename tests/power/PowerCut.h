// Power cuts at every system call of one writing operation, with a reboot
// after each.
//
// The operation runs in a forked child on a VolatileDisk holding the state
// before it; the power goes at its call k, for every k of its sequence. What
// the cut leaves (nothing undurable, and random subsets of the undurable
// changes) is written to the real disk, and a second child, a fresh process
// as after a reboot, looks at it: the next reader of the agent's list first
// (it finishes a change that was recorded but not completed), then every
// file the operation writes, then the same operation once more. Each child
// is forked from a parent that has not used the library, so no cache of the
// library survives a cut.
#ifndef VLM_TESTS_POWER_POWERCUT_H
#define VLM_TESTS_POWER_POWERCUT_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "power/Outcome.h"
#include "power/VolatileDisk.h"

namespace powertest {

// What a fresh process finds after a reboot: the files after the next
// reader, the result of the operation run again, the files after it, and the
// temporaries and change records left in their directories.
struct RebootState {
  std::vector<FileState> files;
  int nextRc = -999;
  std::vector<FileState> filesAfterNext;
  std::vector<std::string> leftovers;
  std::string failure;  // set when the child could not report
};

// Counts of one operation's run.
struct Figures {
  long cutPoints = 0;
  long images = 0;
  long allOld = 0;
  long allNew = 0;
  long mixed = 0;  // files of an operation that are not one change: some old, some new
  long failures = 0;
};

// Runs op under cuts at every call, imagesPerCut - 1 random subsets (seeded
// with seed) besides the all-lost image per cut, and checks each reboot.
// Failures are reported with gtest; the figures are returned.
Figures CutEverywhere(const Operation& op, int randomImagesPerCut, unsigned seed);

}  // namespace powertest

#endif  // VLM_TESTS_POWER_POWERCUT_H
