// enable and disable: the one flag that differs between them.
#ifndef VLM_TOOLS_SITELIST_ENABLESITE_H
#define VLM_TOOLS_SITELIST_ENABLESITE_H

#include "Command.h"

namespace sitelist {

// The subcommand "enable" (enable true) or "disable" with its options.
Bound SetupEnableCommand(CLI::App& app, Context& ctx, bool enable);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_ENABLESITE_H
