// Where the library's log lines go.
//
// By default the library writes each line with syslog(3), as
// "<component>: <message>", under the identity and facility the host process
// chose with openlog(3): the library never calls openlog or closelog. Lines
// of levels err, warning, info and debug go out at LOG_ERR, LOG_WARNING,
// LOG_INFO and LOG_DEBUG. Two environment variables change this default:
// VLM_LOG_LEVEL (error, warning, info or detail; info when unset) and
// VLM_LOG_SINK (syslog, stderr or none; syslog when unset). An unknown value
// of either is reported once on stderr and the default used.
//
// A host with a logger of its own routes the lines there instead with
// SetLogSink. The component is "SiteHlp" for the site helper and "StSHlp" for
// the server site list unit. Messages never carry a password or key bytes.
#ifndef VLM_SITEHLP_LOGGING_H
#define VLM_SITEHLP_LOGGING_H

#include "sitehlp/export.h"

namespace sitehlp {

// Severity of a line. The values are the syslog priorities of <syslog.h>.
enum class LogLevel : int { Error = 3, Warning = 4, Info = 6, Debug = 7 };

// Receives one line. component and message are UTF-8 without a line ending
// and valid only during the call; internal errors (a caller broke an
// operation's contract) are errors whose message starts "internal error: ".
// It is called on whichever thread is using the library, possibly on several
// at once; it must not throw and must not call back into the library.
using LogSinkFunction = void (*)(void* context, const char* component, LogLevel level, const char* message);

// From now on, every line that passes the level threshold goes to
// sink(context, ...) instead of the default destination; a null sink restores
// the default. Once this returns, the previous sink is no longer called.
VLM_EXPORT void SetLogSink(LogSinkFunction sink, void* context);

// Lines less severe than level are dropped before they reach any sink.
// Overrides VLM_LOG_LEVEL for the rest of the process.
VLM_EXPORT void SetLogLevel(LogLevel level);

}  // namespace sitehlp

#endif  // VLM_SITEHLP_LOGGING_H
