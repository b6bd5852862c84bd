// The check of a local site: its path exists and can be read, as a directory
// (listed) or a file (opened). Anything else there (a pipe, a device) is not
// a repository, and is not opened, so that check never blocks on it.
#ifndef VLM_TOOLS_SITELIST_LOCALPATH_H
#define VLM_TOOLS_SITELIST_LOCALPATH_H

#include <string>

#include "ProbeOutcome.h"

namespace sitelist {

Outcome CheckLocalPath(const std::string& path);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_LOCALPATH_H
