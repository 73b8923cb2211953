#pragma once
// Speech and punctuation from servers with the OpenAI-compatible API: a transcription server
// (whisper.cpp's whisper-server, faster-whisper servers, hosted services) and a chat server
// (a llama.cpp server, Ollama). Both are reached over HTTP off the loop's thread.

#include <cstdint>
#include <string>
#include <vector>

#include "core/loop.h"
#include "voice/linux_http.h"
#include "voice/polish.h"
#include "voice/talk.h"

struct ModelServer {
  std::string url;     // the server's base address ("http://127.0.0.1:8080"), or a full path
  std::string model;   // sent as "model"; servers that host one model ignore it
  std::string apiKey;  // sent as a bearer token when set

  // `url` with `path` ("/v1/…") appended unless it already ends with it.
  std::string endpoint(const std::string& path) const;
  std::vector<std::string> headers() const;
};

// Re-sends the growing recording about once a second, each time the previous request has
// finished, for partial text; sends the whole at the end for the final text.
class TranscriptionServer final : public SpeechEngine {
 public:
  static constexpr double kPartialEvery = 1.0;
  static constexpr double kPartialTimeout = 10.0;
  static constexpr double kFinalTimeout = 5.0;
  // At most this much audio is kept (a dictation longer than ten minutes is cut).
  static constexpr size_t kMaxSamples = 600u * Audio::kRate;

  TranscriptionServer(Loop& loop, ModelServer server, GMainContext* context = nullptr);

  void begin() override;
  void hear(std::span<const int16_t> samples) override;
  void end() override;
  void cancel() override;

  // Requests sent for the current recording (partial ones and the final one).
  int sent() const { return sent_; }

 private:
  void send(bool final);

  Loop& loop_;
  ModelServer server_;
  std::vector<int16_t> recording_;
  uint64_t generation_ = 0;
  bool waiting_ = false;  // a partial request is out
  bool ended_ = false;
  double lastSent_ = 0;
  int sent_ = 0;
  HttpClient http_;  // last: its callbacks go before the rest of the engine
};

// Punctuation by a chat model, greedy decoding, within two seconds.
class ChatServer final : public PunctuationModel {
 public:
  static constexpr double kTimeout = 2.0;

  explicit ChatServer(ModelServer server, GMainContext* context = nullptr);
  void punctuate(const std::string& text,
                 std::function<void(std::optional<std::string>)> answer) override;

 private:
  ModelServer server_;
  HttpClient http_;
};
