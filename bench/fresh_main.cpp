// vlm-bench-fresh: a fresh process reading a site list through the library
// against the least a fresh process must do, started alternately, rounds
// times each; prints one JSON object with the medians (µs, wall time from
// spawn to exit) and the medians of the figures each program prints.
//   vlm-bench-fresh <directory of the programs> <list> <key file> <rounds>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

double NowUs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

double Median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  const std::size_t m = v.size() / 2;
  return v.size() % 2 ? v[m] : (v[m - 1] + v[m]) / 2;
}

// Runs argv, returns the wall time; what it prints (key=value pairs) goes
// into figures.
double Run(const std::vector<std::string>& args, std::map<std::string, std::vector<double>>& figures) {
  int out[2];
  if (pipe(out) != 0) std::exit(1);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_addclose(&actions, out[0]);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const double start = NowUs();
  // The programs measure from their start to main, and from main's end to
  // here, against this moment.
  char spawned[64];
  std::snprintf(spawned, sizeof spawned, "VLM_FRESH_SPAWN_NS=%.0f", start * 1e3);
  std::vector<char*> env;
  for (char** e = environ; *e; ++e) env.push_back(*e);
  env.push_back(spawned);
  env.push_back(nullptr);
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), env.data()) != 0) {
    std::fprintf(stderr, "cannot start %s\n", argv[0]);
    std::exit(1);
  }
  close(out[1]);
  std::string text;
  char buf[4096];
  for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) text.append(buf, static_cast<std::size_t>(n));
  int status = 0;
  waitpid(pid, &status, 0);
  const double exited = NowUs();
  const double wall = exited - start;
  close(out[0]);
  posix_spawn_file_actions_destroy(&actions);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    std::fprintf(stderr, "%s failed\n", argv[0]);
    std::exit(1);
  }
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::string::size_type eq = word.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = word.substr(0, eq);
    const double value = std::atof(word.c_str() + eq + 1);
    // From the end of main to the parent seeing the exit: exit handlers,
    // destructors, the unmapping of the process.
    if (key == "end_us")
      figures["after_main_us"].push_back(exited - value);
    else
      figures[key].push_back(value);
  }
  return wall;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s <program directory> <list> <key file> <rounds>\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const std::string list = argv[2];
  const std::string key = argv[3];
  const int rounds = std::atoi(argv[4]);
  const std::vector<std::pair<std::string, std::vector<std::string>>> programs = {
      {"empty", {dir + "/vlm-bench-fresh-empty"}},
      {"floor_libraries", {dir + "/vlm-bench-fresh-floor-libs"}},
      {"library_libraries", {dir + "/vlm-bench-fresh-libs"}},
      {"floor", {dir + "/vlm-bench-fresh-floor", list, key}},
      {"helper", {dir + "/vlm-bench-fresh-helper", list}},
  };
  std::map<std::string, std::vector<double>> walls;
  std::map<std::string, std::map<std::string, std::vector<double>>> figures;
  for (int warm = 0; warm < 3; ++warm)
    for (const auto& p : programs) Run(p.second, figures[p.first]);
  figures.clear();
  for (int r = 0; r < rounds; ++r)
    for (const auto& p : programs) walls[p.first].push_back(Run(p.second, figures[p.first]));
  std::printf("{\"rounds\": %d", rounds);
  for (const auto& p : programs) {
    std::printf(", \"%s\": {\"wall_us\": %.1f", p.first.c_str(), Median(walls[p.first]));
    for (const auto& f : figures[p.first]) std::printf(", \"%s\": %.1f", f.first.c_str(), Median(f.second));
    std::printf("}");
  }
  std::printf("}\n");
  return 0;
}
