// What the library's result codes mean, and the exit status each gives: the
// one place where library results become the tool's exit statuses.
#ifndef VLM_TOOLS_SITELIST_RESULTCODES_H
#define VLM_TOOLS_SITELIST_RESULTCODES_H

namespace sitelist {

// The tool's exit statuses.
enum ExitStatus : int {
  c_exitSuccess = 0,
  c_exitFailed = 1,         // the operation failed
  c_exitUsage = 2,          // usage error: options, arguments or their values
  c_exitFileMissing = 3,    // a file is missing or cannot be read
  c_exitNotWellFormed = 4,  // a file is not well-formed XML
  c_exitRefused = 5,        // an outside list was refused by the source checks
  c_exitLock = 6,           // a named lock could not be obtained
};

// Where a result code came from: the source checks answer -8 when a managed
// agent's list has no SPIPE site, which is a refusal there and a plain
// failure everywhere else.
enum class Origin { Operation, SourceChecks };

// One line of text for a result code; "unknown result" for codes the library
// does not document (a parser's own code, for example).
const char* ResultMeaning(int code);

// The exit status for a result code.
int ExitStatusOf(int code, Origin origin = Origin::Operation);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_RESULTCODES_H
