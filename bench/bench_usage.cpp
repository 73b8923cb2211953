// Usage meter throughput on a generated tree of Claude Code transcripts.
//
// The tree (VANTLER_BENCH_USAGE_MB megabytes, 1024 by default, in about 2,000 files) is written
// once per run under /tmp; 5% of it was written today, the rest on earlier days with matching
// modification times. Some of today's files began yesterday, so their early lines must be read
// and rejected. Lines look like Claude Code's: one line per content block of an assistant
// message repeating its id, request id and usage (partial usage on the first one), prompts, and
// tool results with large contents. The tree is removed at exit unless VANTLER_BENCH_USAGE_KEEP
// is set, in which case a later run of the same day and size reuses it.
//
// Cold scan: a new meter reads the tree (files in the page cache). Warm rescan: a meter that has
// read everything looks again when nothing changed.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "usage/claude_transcripts.h"
#include "usage/usage_meter.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFiles = 2000;
constexpr int kProjects = 40;
constexpr double kTodayShare = 0.05;

struct Tree {
  std::string root;
  double now = 0;
  uint64_t totalBytes = 0;
  uint64_t todayBytes = 0;  // lines stamped today
  uint64_t readBytes = 0;   // all bytes of the files modified today
  std::string largestTodayFile;
  bool keep = false;
  ~Tree() {
    std::error_code ec;
    if (!keep && !root.empty()) fs::remove_all(root, ec);
  }
};

class Writer {
 public:
  explicit Writer(uint32_t seed) : rng_(seed) {
    // Code-like filler with the escapes JSON strings carry.
    const char* words[] = {"const",   "auto", "return", "\\\"value\\\"", "if",          "(x)",
                           "{",       "}",    "\\n",    "\\t",           "std::string", "result",
                           "// note", "=",    "+=",     "error:",        "path/to",     "function",
                           ";",       "\\\\", "for"};
    while (filler_.size() < (1 << 18)) {
      filler_ += words[rng_() % (sizeof words / sizeof *words)];
      filler_ += ' ';
    }
  }

  std::string text(size_t n) {
    const size_t start = rng_() % (filler_.size() - n - 8);
    std::string s = filler_.substr(start, n);
    while (!s.empty() && s.back() == '\\') s.pop_back();  // never end inside an escape
    while (!s.empty() && s.front() != ' ') s.erase(0, 1);
    return s;
  }
  std::string hex(int n) {
    static const char* digits = "0123456789abcdef";
    std::string s;
    for (int i = 0; i < n; ++i) s += digits[rng_() % 16];
    return s;
  }
  uint32_t next() { return rng_(); }

 private:
  std::mt19937 rng_;
  std::string filler_;
};

std::string isoTime(double t) {
  const time_t secs = static_cast<time_t>(t);
  struct tm utc;
  gmtime_r(&secs, &utc);
  char buf[40];
  strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &utc);
  const int millis = static_cast<int>((t - static_cast<double>(secs)) * 1000);
  std::snprintf(buf + 19, sizeof buf - 19, ".%03dZ", millis);
  return buf;
}

// One conversation turn: a prompt, assistant messages of several lines each, tool results.
void writeTurn(Writer& w, std::string& out, const std::string& session, double& t) {
  const std::string head = R"({"parentUuid":")" + w.hex(8) +
                           R"(","isSidechain":false,"userType":"external","cwd":"/home/dev/)" +
                           "project" + R"(","sessionId":")" + session +
                           R"(","version":"2.0.14","gitBranch":"main",)";
  auto tail = [&](const char* type) {
    t += 0.5 + (w.next() % 4000) / 1000.0;
    return std::string(R"(,"type":")") + type + R"(","uuid":")" + w.hex(32) + R"(","timestamp":")" +
           isoTime(t) + "\"}\n";
  };
  out += head + R"("message":{"role":"user","content":")" + w.text(200 + w.next() % 600) + "\"}" +
         tail("user");
  const char* models[] = {"claude-sonnet-4-5-20250929", "claude-opus-4-5-20251101",
                          "claude-haiku-4-5-20251001"};
  const int messages = 1 + static_cast<int>(w.next() % 4);
  for (int m = 0; m < messages; ++m) {
    const std::string id = "msg_" + w.hex(24), request = "req_" + w.hex(24);
    const std::string model = models[w.next() % 3];
    const int input = static_cast<int>(w.next() % 50), read = static_cast<int>(w.next() % 90000);
    const int created = static_cast<int>(w.next() % 5000),
              output = static_cast<int>(w.next() % 3000);
    const int blocks = 1 + static_cast<int>(w.next() % 3);
    for (int b = 0; b < blocks; ++b) {
      const bool last = b == blocks - 1;
      const std::string usage =
          R"({"input_tokens":)" + std::to_string(input) + R"(,"cache_creation_input_tokens":)" +
          std::to_string(created) + R"(,"cache_read_input_tokens":)" + std::to_string(read) +
          R"(,"cache_creation":{"ephemeral_5m_input_tokens":)" + std::to_string(created) +
          R"(,"ephemeral_1h_input_tokens":0},"output_tokens":)" +
          std::to_string(last ? output : 1 + b) + R"(,"service_tier":"standard"})";
      std::string block;
      switch (b) {
        case 0:
          block = R"({"type":"thinking","thinking":")" + w.text(300 + w.next() % 1500) +
                  R"(","signature":")" + w.hex(800) + "\"}";
          break;
        case 1:
          block = R"({"type":"text","text":")" + w.text(100 + w.next() % 800) + "\"}";
          break;
        default:
          block =
              R"({"type":"tool_use","id":"toolu_)" + w.hex(24) +
              R"(","name":"Edit","input":{"file_path":"/home/dev/project/src/a.cpp","old_string":")" +
              w.text(200 + w.next() % 3000) + R"(","new_string":")" +
              w.text(200 + w.next() % 3000) + "\"}}";
      }
      out += head + R"("message":{"id":")" + id +
             R"(","type":"message","role":"assistant","model":")" + model + R"(","content":[)" +
             block + R"(],"stop_reason":)" + (last ? "\"tool_use\"" : "null") +
             R"(,"stop_sequence":null,"usage":)" + usage + R"(},"requestId":")" + request + "\"" +
             tail("assistant");
    }
    const std::string result = w.text(2000 + w.next() % 30000);
    out += head + R"("message":{"role":"user","content":[{"tool_use_id":"toolu_)" + w.hex(24) +
           R"(","type":"tool_result","content":")" + result + R"("}]})" +
           R"(,"toolUseResult":{"stdout":")" + result + R"(","stderr":"","interrupted":false})" +
           tail("user");
  }
}

void setModified(const std::string& path, double when) {
  const timespec times[2] = {{static_cast<time_t>(when), 0}, {static_cast<time_t>(when), 0}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
}

double localMidnight(double now) {
  const time_t t = static_cast<time_t>(now);
  struct tm parts;
  localtime_r(&t, &parts);
  parts.tm_hour = parts.tm_min = parts.tm_sec = 0;
  parts.tm_isdst = -1;
  return static_cast<double>(mktime(&parts));
}

Tree& tree() {
  static Tree tr;
  if (!tr.root.empty()) return tr;
  {
    const char* mbEnv = std::getenv("VANTLER_BENCH_USAGE_MB");
    const uint64_t megabytes = mbEnv ? std::strtoull(mbEnv, nullptr, 10) : 1024;
    tr.keep = std::getenv("VANTLER_BENCH_USAGE_KEEP") != nullptr;
    tr.now = static_cast<double>(time(nullptr));
    const double dayStart = localMidnight(tr.now);
    char day[16];
    const time_t nowSecs = static_cast<time_t>(tr.now);
    struct tm local;
    localtime_r(&nowSecs, &local);
    strftime(day, sizeof day, "%Y%m%d", &local);
    tr.root = "/tmp/vantler-bench-usage-" + std::to_string(megabytes) + "mb-" + day;
    const std::string manifest = tr.root + "/manifest";
    if (std::ifstream in(manifest); in) {
      in >> tr.totalBytes >> tr.todayBytes >> tr.readBytes >> tr.largestTodayFile;
      if (tr.totalBytes > 0) return tr;
      tr.totalBytes = tr.todayBytes = tr.readBytes = 0;
    }
    std::error_code ec;
    fs::remove_all(tr.root, ec);

    const uint64_t target = megabytes << 20;
    const uint64_t perFile = target / kFiles;
    const int todayFiles = std::max(1, static_cast<int>(kFiles * kTodayShare));
    Writer w(42);
    uint64_t largest = 0;
    for (int f = 0; f < kFiles; ++f) {
      const std::string dir = tr.root + "/-home-dev-project" + std::to_string(f % kProjects);
      fs::create_directories(dir);
      const std::string session =
          w.hex(8) + "-" + w.hex(4) + "-" + w.hex(4) + "-" + w.hex(4) + "-" + w.hex(12);
      const std::string path = dir + "/" + session + ".jsonl";
      const bool today = f < todayFiles;
      // A tenth of today's files began before midnight; they hold a third of older lines.
      const bool spans = today && f % 10 == 0;
      const double span = std::max(60.0, tr.now - dayStart);
      double t = today ? dayStart + (spans ? -600 : (w.next() % 1000) / 1000.0 * span * 0.5)
                       : dayStart - 86400.0 * (1 + f % 30) + (w.next() % 40000);
      std::string out;
      std::string content;
      while (content.size() < perFile) {
        out.clear();
        writeTurn(w, out, session, t);
        if (today) {
          // Lines are counted as today's by their own stamp.
          const bool stampedToday = t >= dayStart;
          if (stampedToday) tr.todayBytes += out.size();
        }
        content += out;
        if (today && t > tr.now) t = tr.now - 1;  // keep today's stamps in the past
      }
      std::ofstream(path, std::ios::binary) << content;
      tr.totalBytes += content.size();
      if (today) {
        tr.readBytes += content.size();
        if (content.size() > largest) {
          largest = content.size();
          tr.largestTodayFile = path;
        }
      } else {
        setModified(path, t);
      }
    }
    std::ofstream(manifest) << tr.totalBytes << ' ' << tr.todayBytes << ' ' << tr.readBytes << ' '
                            << tr.largestTodayFile << '\n';
  }
  return tr;
}

void setCounters(benchmark::State& state, const Tree& tr) {
  const double n = static_cast<double>(state.iterations());
  using benchmark::Counter;
  state.counters["today_MB/s"] = Counter(n * tr.todayBytes / 1e6, Counter::kIsRate);
  state.counters["read_MB/s"] = Counter(n * tr.readBytes / 1e6, Counter::kIsRate);
  state.counters["tree_MB/s"] = Counter(n * tr.totalBytes / 1e6, Counter::kIsRate);
  state.counters["today_MB"] = tr.todayBytes / 1e6;
  state.counters["tree_MB"] = tr.totalBytes / 1e6;
}

void BM_ColdScan(benchmark::State& state) {
  const Tree& tr = tree();
  double cost = 0;
  for (auto _ : state) {
    UsageMeter meter([&] { return tr.now; }, tr.root);
    cost = meter.snapshot()["today"].get<double>();
    benchmark::DoNotOptimize(cost);
  }
  setCounters(state, tr);
  state.counters["today_usd"] = cost;
}
BENCHMARK(BM_ColdScan)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

void BM_WarmRescan(benchmark::State& state) {
  const Tree& tr = tree();
  UsageMeter meter([&] { return tr.now; }, tr.root);
  meter.snapshot();
  for (auto _ : state) benchmark::DoNotOptimize(meter.snapshot());
}
BENCHMARK(BM_WarmRescan)->Unit(benchmark::kMillisecond)->UseRealTime();

// The transcript reader's first read of the largest of today's sessions.
void BM_TranscriptFirstRead(benchmark::State& state) {
  const Tree& tr = tree();
  uint64_t bytes = 0;
  for (auto _ : state) {
    ClaudeTranscripts reader;
    auto stats = reader.update(tr.largestTodayFile);
    benchmark::DoNotOptimize(stats);
    bytes += static_cast<uint64_t>(fs::file_size(tr.largestTodayFile));
  }
  state.counters["MB/s"] = benchmark::Counter(bytes / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TranscriptFirstRead)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
