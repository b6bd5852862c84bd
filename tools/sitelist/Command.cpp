#include "Command.h"

#include <algorithm>

namespace sitelist {
namespace {

// Function-local so that registrations from other files' static objects find
// it constructed whatever the initialisation order.
std::vector<CommandEntry>& Registry() {
  static std::vector<CommandEntry> entries;
  return entries;
}

}  // namespace

Registration::Registration(int position, Setup setup) { Registry().push_back({position, setup}); }

std::vector<CommandEntry> RegisteredCommands() {
  std::vector<CommandEntry> entries = Registry();
  std::stable_sort(entries.begin(), entries.end(),
                   [](const CommandEntry& a, const CommandEntry& b) { return a.position < b.position; });
  return entries;
}

}  // namespace sitelist
