// Making the library's allocations fail on purpose, and checking that nothing
// leaked, in the site helper's tests.
#ifndef VLM_TESTS_SITEHLP_ALLOCATIONTESTUTIL_H
#define VLM_TESTS_SITEHLP_ALLOCATIONTESTUTIL_H

#include <gtest/gtest.h>

#include "sitehlp/Allocation.h"

#if defined(__SANITIZE_ADDRESS__)
#define VLM_HAS_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VLM_HAS_LSAN 1
#endif
#endif
#ifdef VLM_HAS_LSAN
#include <sanitizer/lsan_interface.h>
#endif

namespace sitetest {

// Under the address sanitizer: nothing allocated so far is unreachable.
inline void ExpectNoLeak() {
#ifdef VLM_HAS_LSAN
  EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0) << "memory leaked";
#endif
}

// Counts the allocations of one use (by default the merge's records) and
// makes the one with a chosen index, counted from 0, fail: once, or from
// there on. Restores the previous hook when it ends.
class AllocationControl {
 public:
  enum Mode { Never, Once, FromThereOn };
  explicit AllocationControl(Mode mode = Never, int failAt = -1,
                             sitehlp::AllocationUse use = sitehlp::AllocationUse::MergedRecord) {
    s_mode = mode;
    s_failAt = failAt;
    s_use = use;
    s_count = 0;
    m_previous = sitehlp::SetAllocationFault(&Fails);
  }
  ~AllocationControl() { sitehlp::SetAllocationFault(m_previous); }
  AllocationControl(const AllocationControl&) = delete;
  AllocationControl& operator=(const AllocationControl&) = delete;
  static int count() { return s_count; }

 private:
  static bool Fails(sitehlp::AllocationUse use) {
    if (use != s_use) return false;
    const int index = s_count++;
    return (s_mode == Once && index == s_failAt) || (s_mode == FromThereOn && index >= s_failAt);
  }
  static inline Mode s_mode = Never;
  static inline int s_failAt = -1;
  static inline sitehlp::AllocationUse s_use = sitehlp::AllocationUse::MergedRecord;
  static inline int s_count = 0;
  sitehlp::AllocationFault m_previous = nullptr;
};

}  // namespace sitetest

#endif  // VLM_TESTS_SITEHLP_ALLOCATIONTESTUTIL_H
