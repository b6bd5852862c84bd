#include "CommandTree.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

namespace sitelist {
namespace {

void PrintLine(const char* kind, const std::string& path, const std::string& name = "",
               const std::string& value = "") {
  std::printf("%s\t%s", kind, path.c_str());
  if (!name.empty()) std::printf("\t%s\t%s", name.c_str(), value.c_str());
  std::printf("\n");
}

// The value an option takes: "-" for a flag, else its type name without the
// description of its validators ("N:UINT in [1 - 65535]" is "N"); a
// positional without a type name is named for its value ("FILE").
std::string ValueOf(const CLI::Option& option) {
  if (option.get_expected_max() == 0) return "-";
  std::string type = option.get_type_name();
  // The validators' description follows the first colon outside brackets
  // ("HOST[:PORT]" keeps its colon).
  int depth = 0;
  std::size_t cut = 0;
  for (; cut < type.size(); ++cut) {
    if (type[cut] == '[') ++depth;
    if (type[cut] == ']') --depth;
    if (type[cut] == ':' && depth == 0) break;
  }
  type = type.substr(0, cut);
  if (type.empty()) type = option.nonpositional() ? "VALUE" : option.get_name(true);
  return type;
}

// Options in an empty group are hidden from --help, and from the tree.
void PrintCommand(const CLI::App& app, const std::string& path) {
  PrintLine("command", path);
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    const std::string value = ValueOf(*option);
    if (!option->nonpositional()) {
      PrintLine("positional", path, option->get_name(true), value);
      continue;
    }
    for (const std::string& name : option->get_snames()) PrintLine("option", path, "-" + name, value);
    for (const std::string& name : option->get_lnames()) PrintLine("option", path, "--" + name, value);
  }
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App* a) { return !a->get_group().empty(); }))
    PrintCommand(*sub, path + " " + sub->get_name());
}

}  // namespace

void AddCommandTreeOption(CLI::App& app) {
  app.add_flag_callback("--command-tree",
                        [&app] {
                          PrintCommand(app, app.get_name());
                          std::fflush(stdout);
                          throw CLI::Success();
                        })
      ->group("")
      ->trigger_on_parse();
}

}  // namespace sitelist
