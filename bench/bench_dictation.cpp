// The cost of cleaning one long dictation: 200 words of speech about code with the usual
// fillers, a false start and a few spoken corrections, and the same length of plain speech.
// Target: under 200 µs.

#include <benchmark/benchmark.h>

#include <random>
#include <sstream>
#include <string>

#include "voice/dictation.h"

namespace {

std::string dictation(int words, bool spoken) {
  const char* plain[] = {"the",    "build",  "fails", "when",  "we",     "run",   "tests", "on",
                         "branch", "main,",  "check", "retry", "logic",  "in",    "file",  "and",
                         "fix",    "parser", "then",  "it",    "should", "work.", "café",  "über"};
  const char* fillers[] = {"um", "uh,", "you know,", "I mean,", "like", "so yeah", "hmm"};
  const char* corrections[] = {"no wait", "actually no, make it", "i meant"};
  std::mt19937 rng(7);
  std::ostringstream out;
  if (spoken) out << "okay so scratch that ";
  for (int i = 0; i < words; ++i) {
    out << plain[rng() % std::size(plain)] << ' ';
    if (spoken && i % 9 == 4) out << fillers[rng() % std::size(fillers)] << ' ';
    if (spoken && i % 50 == 25) out << corrections[rng() % std::size(corrections)] << ' ';
  }
  return out.str();
}

void CleanDictation(benchmark::State& state) {
  const std::string text = dictation(200, state.range(0) != 0);
  for (auto _ : state) benchmark::DoNotOptimize(Dictation::clean(text));
  state.SetLabel(std::to_string(text.size()) + " bytes");
}
BENCHMARK(CleanDictation)->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond);

void WordsOfDictation(benchmark::State& state) {
  const std::string text = dictation(200, false);
  for (auto _ : state) benchmark::DoNotOptimize(Dictation::words(text));
}
BENCHMARK(WordsOfDictation)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
