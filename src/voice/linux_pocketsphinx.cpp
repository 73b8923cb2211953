#include "voice/linux_pocketsphinx.h"

#include <pocketsphinx.h>
#include <unistd.h>

namespace {

struct Decoder {
  ps_decoder_t* ps = nullptr;
  cmd_ln_t* config = nullptr;
  ~Decoder() {
    if (ps) ps_free(ps);
    if (config) cmd_ln_free_r(config);
  }
  bool open(const Pocketsphinx::Options& o) {
    std::string hmm = o.models + "/en-us", dict = o.models + "/cmudict-en-us.dict";
    std::string lm = o.models + "/en-us.lm.bin";
    config = o.grammar.empty()
                 ? cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-dict", dict.c_str(),
                               "-lm", lm.c_str(), "-logfn", "/dev/null", nullptr)
                 : cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", hmm.c_str(), "-dict", dict.c_str(),
                               "-logfn", "/dev/null", nullptr);
    if (!config) return false;
    ps = ps_init(config);
    if (!ps) return false;
    if (o.grammar.empty()) return true;
    return ps_set_jsgf_string(ps, "grammar", o.grammar.c_str()) == 0 &&
           ps_set_search(ps, "grammar") == 0;
  }
  std::string hypothesis() {
    int32 score = 0;
    const char* hyp = ps_get_hyp(ps, &score);
    return hyp ? hyp : "";
  }
};

}  // namespace

std::string Pocketsphinx::defaultModels() {
  return VANTLER_POCKETSPHINX_MODELS "/en-us";
}

bool Pocketsphinx::installed(const std::string& models) {
  return ::access((models + "/en-us/mdef").c_str(), R_OK) == 0 &&
         ::access((models + "/cmudict-en-us.dict").c_str(), R_OK) == 0;
}

Pocketsphinx::Pocketsphinx(Options options, GMainContext* context)
    : options_(std::move(options)), handoff_(context), thread_([this] { work(); }) {}

Pocketsphinx::~Pocketsphinx() {
  {
    std::lock_guard lock(mutex_);
    quit_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void Pocketsphinx::push(Job job) {
  {
    std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
  }
  wake_.notify_one();
}

void Pocketsphinx::begin() {
  push({Job::begin, ++generation_, {}});
}

void Pocketsphinx::hear(std::span<const int16_t> samples) {
  {
    // A decoder that falls this far behind loses audio rather than memory.
    std::lock_guard lock(mutex_);
    if (jobs_.size() >= kMaxQueued) return;
  }
  push({Job::audio, generation_, {samples.begin(), samples.end()}});
}

void Pocketsphinx::end() {
  push({Job::end, generation_, {}});
}

void Pocketsphinx::cancel() {
  ++generation_;
  std::lock_guard lock(mutex_);
  jobs_.clear();
}

void Pocketsphinx::work() {
  Decoder decoder;
  bool opened = false, failed = false, inUtterance = false;
  Handoff::Sender send = handoff_.sender();
  auto report = [this, &send](uint64_t generation, std::string text, bool final) {
    send([this, generation, text = std::move(text), final] {
      if (generation == generation_ && onText) onText(text, final);
    });
  };
  uint64_t current = 0;
  std::string last;
  for (;;) {
    Job job;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return quit_ || !jobs_.empty(); });
      if (quit_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    if (!opened && !failed) {
      opened = decoder.open(options_);
      failed = !opened;
    }
    if (job.kind == Job::begin) {
      current = job.generation;
      last.clear();
      if (opened && inUtterance) ps_end_utt(decoder.ps);
      inUtterance = opened && ps_start_utt(decoder.ps) == 0;
      continue;
    }
    if (job.generation != current) continue;
    if (job.kind == Job::audio) {
      if (!inUtterance) continue;
      ps_process_raw(decoder.ps, job.samples.data(), job.samples.size(), FALSE, FALSE);
      std::string hyp = decoder.hypothesis();
      if (hyp != last) report(current, last = hyp, false);
      continue;
    }
    std::string text;
    if (inUtterance) {
      ps_end_utt(decoder.ps);
      inUtterance = false;
      text = decoder.hypothesis();
    }
    report(current, text, true);
  }
}
