// The commands of the sitelist tool. Each command lives in its own
// cmd_<name>.cpp and registers itself with a position in the help listing;
// main.cpp builds the parser from the registry.
#ifndef VLM_TOOLS_SITELIST_COMMAND_H
#define VLM_TOOLS_SITELIST_COMMAND_H

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace sitelist {

class Context;

// What a command does once the command line is parsed; returns the exit status.
using Action = std::function<int()>;

// Adds the command's subcommand (with its options) to app and returns what to
// run when that subcommand is chosen.
struct Bound {
  CLI::App* subcommand;
  Action run;
};
using Setup = Bound (*)(CLI::App& app, Context& context);

struct CommandEntry {
  int position;  // order in the help listing
  Setup setup;
};

// Every registered command, in help order.
std::vector<CommandEntry> RegisteredCommands();

// A static object of this type in a cmd_*.cpp file registers the command.
struct Registration {
  Registration(int position, Setup setup);
};

}  // namespace sitelist

#endif  // VLM_TOOLS_SITELIST_COMMAND_H
