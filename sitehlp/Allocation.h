// Allocation of the site records that merging and the management server
// endpoint create. Internal to the library.
//
// Every such record goes through one replaceable function so that the tests
// can make the n-th allocation fail and check that no path leaks or frees a
// record twice when memory runs out.
#ifndef VLM_SITEHLP_ALLOCATION_H
#define VLM_SITEHLP_ALLOCATION_H

#include "sitehlp/SitesHelper.h"

namespace sitehlp {

// Allocates one zero-filled record of the full record size, or returns NULL.
using RecordAllocator = tag_Site* (*)();

// The default allocator: calloc(1, sizeof(tag_Site)).
tag_Site* CallocRecord();

// A new record from the current allocator; release it with free().
tag_Site* AllocateRecord();

// Installs allocator (NULL restores CallocRecord) and returns the previous
// one. Not thread-safe: meant for tests that run one merge at a time.
RecordAllocator SetRecordAllocator(RecordAllocator allocator);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_ALLOCATION_H
