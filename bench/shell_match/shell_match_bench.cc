// Matching a typed line against the shell's whole command table: every line the operator types or
// pastes is matched once, and each help or completion request walks the table again.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "command_table.h"
#include "commands.h"

namespace {

const schedsh::CommandTable &table() {
  static const schedsh::CommandTable *commands = [] {
    auto *made = new schedsh::CommandTable;
    schedsh::register_commands(*made);
    return made;
  }();
  return *commands;
}

struct Line {
  schedsh::Mode mode;
  std::vector<std::string> words;
};

// What a pasted configuration is made of, a refused line and an abbreviated one among them.
const std::vector<Line> &lines() {
  static const std::vector<Line> typed = {
      {schedsh::Mode::Config, {"scheduler", "schedule", "name", "nightly"}},
      {schedsh::Mode::Schedule, {"job", "name", "backup"}},
      {schedsh::Mode::Schedule, {"time", "daily", "02:30"}},
      {schedsh::Mode::Schedule, {"email-addr", "ops@example.com"}},
      {schedsh::Mode::Config, {"scheduler", "job", "name", "backup"}},
      {schedsh::Mode::Config, {"sch", "log", "size", "64"}},
      {schedsh::Mode::Config, {"scheduler", "no-such", "word"}},
      {schedsh::Mode::Exec, {"show", "scheduler", "schedule", "nightly"}},
  };
  return typed;
}

void BM_MatchLine(benchmark::State &state) {
  const auto &typed = lines();
  size_t next = 0;
  for (auto _ : state) {
    const Line &line = typed[next++ % typed.size()];
    benchmark::DoNotOptimize(table().match(line.mode, line.words));
  }
}
BENCHMARK(BM_MatchLine);

void BM_CompleteAfterScheduler(benchmark::State &state) {
  const std::vector<std::string> words = {"scheduler"};
  for (auto _ : state) benchmark::DoNotOptimize(table().completions(schedsh::Mode::Config, words, ""));
}
BENCHMARK(BM_CompleteAfterScheduler);

}  // namespace
