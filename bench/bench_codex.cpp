// The cost of one Codex sweep over 50 live rollout logs when none of them changed: listing the
// two day directories and checking each log's size against its offset.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <glib.h>

#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/files.h"
#include "core/hub.h"
#include "integrations/codex_watcher.h"

namespace {

struct Setup {
  std::string home;
  FakeLoop loop{static_cast<WallTime>(g_get_real_time()) / 1e6};
  Defaults defaults{"/tmp/vantler-bench-codex-defaults.json"};
  std::unique_ptr<Hub> hub;
  std::unique_ptr<CodexWatcher> watcher;

  explicit Setup(int logs) {
    char pattern[] = "/tmp/vantler-bench-codex-XXXXXX";
    home = mkdtemp(pattern);
    hub = std::make_unique<Hub>(loop, defaults, HubPorts{}, HubOptions{home, std::nullopt, false});
    watcher = std::make_unique<CodexWatcher>(*hub, loop, home);
    const std::string dir = watcher->dayDirs(loop.wall()).front();
    Files::makeDirs(dir);
    for (int i = 0; i < logs; ++i) {
      const std::string id = "0199a3f2-5c1e-7a40-9b3d-" + std::to_string(100000000000 + i);
      std::ofstream out(dir + "/rollout-2026-01-01T10-00-00-" + id + ".jsonl");
      out << Json{{"type", "session_meta"},
                  {"timestamp", "2026-01-01T10:00:00.000Z"},
                  {"payload", {{"id", id}, {"cwd", "/home/dev/p" + std::to_string(i)}}}}
                 .dump()
          << '\n';
      for (int n = 0; n < 40; ++n) {
        out << Json{{"type", "event_msg"},
                    {"timestamp", "2026-01-01T10:00:01.000Z"},
                    {"payload",
                     {{"type", "item_completed"},
                      {"item",
                       {{"type", "CommandExecution"},
                        {"command", "cargo test -p crate-" + std::to_string(n)}}}}}}
                   .dump()
            << '\n';
      }
    }
    watcher->sweep();  // reads everything once
  }
  ~Setup() {
    std::error_code ec;
    std::filesystem::remove_all(home, ec);
  }
};

void BM_CodexSweepUnchanged(benchmark::State& state) {
  Setup setup(static_cast<int>(state.range(0)));
  if (setup.hub->sessions().size() != static_cast<size_t>(state.range(0)))
    state.SkipWithError("the logs were not all read");
  for (auto _ : state) setup.watcher->sweep();
  state.counters["sessions"] = static_cast<double>(setup.hub->sessions().size());
}
BENCHMARK(BM_CodexSweepUnchanged)->Arg(50)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
