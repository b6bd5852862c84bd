// Allocation of the memory an operation can run out of: site records, record
// bodies and the writer's document. Internal to the library.
//
// Every such allocation asks one replaceable hook first, so that the tests
// can count the allocations of one use, make the n-th fail, and check that
// the operation reports it and that no path leaks or frees a record twice.
#ifndef VLM_SITEHLP_ALLOCATION_H
#define VLM_SITEHLP_ALLOCATION_H

#include <cstddef>

#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// What an allocation is for. Each use is asked about on its own, so a test of
// one use is not disturbed by the allocations of another.
enum class AllocationUse {
  MergedRecord,  // records that merging and the management server endpoint create
  ReadRecord,    // records the reader builds from a document
  SiteBody,      // bodies ReadSiteFromSiteList hands out
  Document,      // the writer's document and each site element in it
};

// Answers whether an allocation for use fails. The default: none fails.
using AllocationFault = bool (*)(AllocationUse use);

// Installs fault (NULL restores the default) and returns the previous one.
// Not thread-safe: meant for tests that run one operation at a time.
AllocationFault SetAllocationFault(AllocationFault fault);

// True when the hook makes this allocation for use fail.
bool AllocationFails(AllocationUse use);

// size zero-filled bytes for use, or NULL; release with free().
void* AllocateZeroed(AllocationUse use, std::size_t size);

// A whole zero-filled record for merging and the management server endpoint
// (MergedRecord), or NULL; release it with free().
tag_Site* AllocateRecord();

}  // namespace sitehlp

#endif  // VLM_SITEHLP_ALLOCATION_H
