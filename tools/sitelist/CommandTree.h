// The tool's command tree, printed for the generators of its bash completion
// and man page (tools/completion, tools/man): both are built from the parser
// itself, so a command or option added later is covered without editing them.
//
// `sitelist --command-tree` (hidden from --help) prints one line per item,
// fields separated by tabs, and exits with status 0:
//
//   command     PATH                  a command ("sitelist", "sitelist show")
//   option      PATH  NAME  VALUE     one name of an option of PATH; VALUE is
//                                     its type name ("FILE", "DIR", "N") or
//                                     "-" for a flag
//   positional  PATH  NAME  VALUE     a positional argument of PATH
//
// Parents come before their commands; global options are those of the path
// "sitelist" (they may also follow a command). The completion offers file
// names for a VALUE ending in FILE and directories for one ending in DIR.
#ifndef VLM_TOOLS_SITELIST_COMMANDTREE_H
#define VLM_TOOLS_SITELIST_COMMANDTREE_H

namespace CLI {
class App;
}

namespace sitelist {

// Adds the hidden --command-tree option to app. Call it once, on the
// top-level app; it prints whatever commands app holds when it is parsed.
void AddCommandTreeOption(CLI::App& app);

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_COMMANDTREE_H
