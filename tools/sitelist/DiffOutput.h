// A site list diff as text and as JSON.
#ifndef VLM_TOOLS_SITELIST_DIFFOUTPUT_H
#define VLM_TOOLS_SITELIST_DIFFOUTPUT_H

#include <string>

#include "ListDiff.h"
#include "Output.h"

namespace sitelist {

// "--- OLD" and "+++ NEW" (labels as given), then one line per change:
// "~" changed, "-" removed, "+" added; "no differences" when identical.
std::string DiffText(const ListDiff& diff, const std::string& oldLabel, const std::string& newLabel);
Json DiffJson(const ListDiff& diff);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_DIFFOUTPUT_H
