#include "sitehlp/Allocation.h"

#include <cstdlib>

namespace sitehlp {

namespace {

bool NoFault(AllocationUse) { return false; }

AllocationFault g_fault = &NoFault;

}  // namespace

AllocationFault SetAllocationFault(AllocationFault fault) {
  const AllocationFault previous = g_fault;
  g_fault = fault ? fault : &NoFault;
  return previous;
}

bool AllocationFails(AllocationUse use) { return g_fault(use); }

void* AllocateZeroed(AllocationUse use, std::size_t size) {
  if (AllocationFails(use)) return nullptr;
  return std::calloc(1, size);
}

tag_Site* AllocateRecord() {
  return static_cast<tag_Site*>(AllocateZeroed(AllocationUse::MergedRecord, sizeof(tag_Site)));
}

}  // namespace sitehlp
