// The cost of one push: building the snapshot and serialising it, for 10, 100 and 1,000
// sessions with full tool lines and tallies, from scratch and after one session changed; and
// the cost of applying one store.

#include <benchmark/benchmark.h>

#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/hub.h"
#include "core/tool_text.h"

namespace {

struct Setup {
  FakeLoop loop;
  Defaults defaults{"/tmp/vantler-bench-defaults.json"};
  Hub hub{loop, defaults, {}, HubOptions{"/tmp", std::nullopt, false}};

  explicit Setup(int count) {
    const char* tools[] = {"Read", "Edit", "Bash", "Grep", "Write", "WebFetch"};
    for (int i = 0; i < count; ++i) {
      Session s = hub.session("claude:bench-" + std::to_string(i), Agent::claude, "");
      s.root = "/home/user/code/project-" + std::to_string(i % 37);
      s.mood = i % 5 == 0 ? Mood::done : Mood::working;
      s.stats.firstPrompt =
          "<command>\n**Refactor** the payment module so that retries use backoff";
      s.stats.model = "claude-opus-4-5-20251101";
      s.stats.branch = "feature/branch-" + std::to_string(i);
      s.stats.contextTokens = 50'000 + i;
      s.stats.cost = 1.25 * i;
      s.hostBundle = "/usr/bin/gnome-terminal-server";
      s.turnStarted = hub.now() - 60;
      for (int t = 0; t < 12; ++t) {
        const char* tool = tools[t % 6];
        Json input = {{"file_path", "/home/user/code/src/file" + std::to_string(t) + ".ts"},
                      {"command", "npm run test -- --filter case-" + std::to_string(t)},
                      {"pattern", "retryPolicy"},
                      {"url", "https://docs.example.com/page"}};
        s.pushTool(ToolText::activity(tool, input));
        s.countTool(tool, input, hub.now() - 60 + t);
      }
      s.activity = s.tools.back().label;
      if (i % 10 == 3) {
        Json input = {{"command", "rm -rf dist && npm run build"}};
        auto [title, detail] = ToolText::permission("Bash", input);
        s.pending = Pending{"p" + std::to_string(i), Pending::Permission{title, detail, "Bash"},
                            input, hub.now(), false};
      }
      hub.store(std::move(s));
    }
    loop.turn();
  }
};

// Every session changes between pushes, so each one is written again.
void SnapshotAndSerialise(benchmark::State& state) {
  Setup setup(static_cast<int>(state.range(0)));
  std::vector<Session> sessions = setup.hub.sessions();
  size_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (const Session& s : sessions) setup.hub.store(s);
    state.ResumeTiming();
    std::string text = setup.hub.snapshotText();
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(SnapshotAndSerialise)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

// The common push: one hook event changed one session.
void SnapshotAfterOneChange(benchmark::State& state) {
  Setup setup(static_cast<int>(state.range(0)));
  Session s = *setup.hub.find("claude:bench-" + std::to_string(state.range(0) / 2));
  setup.hub.snapshotText();
  int n = 0;
  for (auto _ : state) {
    s.activity = (++n & 1) ? "Reading a.ts" : "Reading b.ts";
    setup.hub.store(s);
    std::string text = setup.hub.snapshotText();
    benchmark::DoNotOptimize(text.data());
  }
}
BENCHMARK(SnapshotAfterOneChange)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

void ApplyOneStore(benchmark::State& state) {
  Setup setup(static_cast<int>(state.range(0)));
  Session s = *setup.hub.find("claude:bench-" + std::to_string(state.range(0) / 2));
  int n = 0;
  for (auto _ : state) {
    s.activity = (++n & 1) ? "Reading a.ts" : "Reading b.ts";
    setup.hub.store(s);
  }
  setup.loop.turn();
}
BENCHMARK(ApplyOneStore)->Arg(100)->Arg(1000)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
