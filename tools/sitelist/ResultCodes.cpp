#include "ResultCodes.h"

namespace sitelist {
namespace {

struct CodeMeaning {
  int code;
  const char* meaning;
  int exitStatus;
  int checkExitStatus;  // the status when the code comes from the source checks
};

// The one table of result codes of the library's operations.
constexpr CodeMeaning c_meanings[] = {
    {0, "success", c_exitSuccess, c_exitSuccess},
    {-1, "general failure", c_exitFailed, c_exitFailed},
    {-2, "a required argument is missing", c_exitFailed, c_exitFailed},
    {-3, "out of memory", c_exitFailed, c_exitFailed},
    {-4, "site list file does not exist", c_exitFileMissing, c_exitFileMissing},
    {-5, "XML is not well formed", c_exitNotWellFormed, c_exitNotWellFormed},
    {-8, "the site list has no SPIPE site", c_exitFailed, c_exitRefused},
    {-9, "the site list failed the source checks", c_exitRefused, c_exitRefused},
    {-10, "the file could not be read", c_exitFileMissing, c_exitFileMissing},
    {-11, "the site list file could not be written", c_exitFailed, c_exitFailed},
};

const CodeMeaning* Find(int code) {
  for (const CodeMeaning& entry : c_meanings)
    if (entry.code == code) return &entry;
  return nullptr;
}

}  // namespace

const char* ResultMeaning(int code) {
  const CodeMeaning* entry = Find(code);
  return entry ? entry->meaning : "unknown result";
}

int ExitStatusOf(int code, Origin origin) {
  const CodeMeaning* entry = Find(code);
  if (!entry) return code == 0 ? c_exitSuccess : c_exitFailed;
  return origin == Origin::SourceChecks ? entry->checkExitStatus : entry->exitStatus;
}

}  // namespace sitelist
