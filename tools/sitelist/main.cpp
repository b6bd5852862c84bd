// sitelist: the agent's site list from the shell. Uses the library's public
// API only, like any other caller.
#include <CLI/CLI.hpp>

#include <clocale>
#include <map>

#include "Command.h"
#include "CommandTree.h"
#include "Context.h"

namespace {

constexpr const char c_description[] =
    "sitelist - look at and change the agent's repository site list.\n"
    "Works on <data dir>/etc/SiteList.xml unless --site-list names another file.";

constexpr const char c_footer[] =
    "Exit status: 0 success; 1 the operation failed (its result code and meaning on\n"
    "stderr); 2 usage error; 3 a file is missing or cannot be read; 4 a file is not\n"
    "well-formed XML (FILE:LINE:COLUMN: what is wrong) or not a site list; 5 refused\n"
    "by the source checks; 6 a lock could not be obtained.\n"
    "Every command that writes takes --dry-run, and keeps the files it replaces in\n"
    "the list's history (see history, undo, restore); every command that prints\n"
    "takes --json.\n"
    "Configuration comes from the environment (VLM_FRAMEWORK_DATA_DIR, VLM_MANAGED,\n"
    "VLM_LOCK_DIR, VLM_KEY_DIR, VLM_LOG_LEVEL, VLM_LOG_SINK, VLM_HISTORY_KEEP); the\n"
    "library's error lines go to stderr unless VLM_LOG_SINK says otherwise.\n"
    "Run 'sitelist COMMAND --help' for a command's options and an example.";

}  // namespace

int main(int argc, char** argv) {
  // Display widths of names in tables; nothing else depends on the locale.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  sitelist::Context context;
  CLI::App app{c_description, "sitelist"};
  app.footer(c_footer);
  app.require_subcommand(1);
  app.fallthrough();  // global options may also follow the command
  app.set_version_flag("--version", std::string("sitelist ") + VLM_SITELIST_VERSION, "Print the version and exit");

  sitelist::GlobalOptions& o = context.options;
  app.add_option("--data-dir", o.dataDir, "Framework data directory (sets VLM_FRAMEWORK_DATA_DIR)")
      ->type_name("DIR");
  app.add_option("--site-list", o.siteList, "The helper's own site list file instead of <data dir>/etc/SiteList.xml")
      ->type_name("FILE");
  CLI::Option* managed = app.add_flag("--managed", o.managed, "Treat the agent as managed");
  CLI::Option* unmanaged = app.add_flag("--unmanaged", o.unmanaged, "Treat the agent as not managed");
  managed->excludes(unmanaged);
  app.add_flag("-v,--verbose", o.verbose, "Detail log lines of the library on stderr");
  app.add_option("--keep", o.keep,
                 "History entries a writing command keeps beside the list (default: VLM_HISTORY_KEEP, else 10; 0: "
                 "keep none)")
      ->type_name("N")
      ->check(CLI::Range(0, 1000000));
  sitelist::AddCommandTreeOption(app);

  std::map<const CLI::App*, sitelist::Action> actions;
  for (const sitelist::CommandEntry& entry : sitelist::RegisteredCommands()) {
    sitelist::Bound bound = entry.setup(app, context);
    actions[bound.subcommand] = std::move(bound.run);
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& e) {  // --help, --version
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  }

  const CLI::App* chosen = app.get_subcommands().front();
  context.SetCommand(chosen->get_name());
  context.KeepLibraryLog();
  return actions.at(chosen)();
}
