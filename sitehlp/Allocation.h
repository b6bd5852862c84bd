// Allocation of the memory an operation can run out of: site records, record
// bodies and the writer's document. Internal to the library.
//
// Every such allocation asks one replaceable hook first, so that the tests
// can make the n-th allocation of one use fail and check that the operation
// reports it and that no path leaks or frees a record twice.
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

// The merge's records. They go through an allocator of their own, replaceable
// as a whole, so that the merge's tests can count them.
using RecordAllocator = tag_Site* (*)();

// The default allocator: a whole zero-filled record for MergedRecord.
tag_Site* CallocRecord();

// A new record from the current allocator; release it with free().
tag_Site* AllocateRecord();

// Installs allocator (NULL restores CallocRecord) and returns the previous
// one. Not thread-safe, as SetAllocationFault.
RecordAllocator SetRecordAllocator(RecordAllocator allocator);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_ALLOCATION_H
