// Why a file cannot be read, found by looking at the file itself. The
// library says only that a file is missing (-4) or could not be read (-10, or
// -1 from the version queries); the administrator needs the reason.
#ifndef VLM_TOOLS_SITELIST_FILEPROBLEM_H
#define VLM_TOOLS_SITELIST_FILEPROBLEM_H

#include <string>

namespace sitelist {

// "no such file", "no such file (broken symbolic link)", "symbolic link
// loop", "not a regular file", "permission denied", or another system
// error's text; empty when the file exists as a regular file that this
// process may open for reading.
std::string UnreadableReason(const std::string& path);

// The same words for a system error number: "no such file", "permission
// denied", "symbolic link loop", else the system's text.
std::string ReasonOfError(int error);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_FILEPROBLEM_H
