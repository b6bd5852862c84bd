#include "sitehlp/Allocation.h"

#include <cstdlib>

namespace sitehlp {

namespace {

RecordAllocator g_recordAllocator = &CallocRecord;

}  // namespace

tag_Site* CallocRecord() { return static_cast<tag_Site*>(std::calloc(1, sizeof(tag_Site))); }

tag_Site* AllocateRecord() { return g_recordAllocator(); }

RecordAllocator SetRecordAllocator(RecordAllocator allocator) {
  const RecordAllocator previous = g_recordAllocator;
  g_recordAllocator = allocator ? allocator : &CallocRecord;
  return previous;
}

}  // namespace sitehlp
