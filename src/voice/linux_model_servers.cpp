#include "voice/linux_model_servers.h"

#include "core/json.h"

std::string ModelServer::endpoint(const std::string& path) const {
  std::string base = url;
  while (!base.empty() && base.back() == '/') base.pop_back();
  if (base.size() >= path.size() && base.compare(base.size() - path.size(), path.size(), path) == 0)
    return base;
  // A base that already names the API version ("…/v1") gets the rest of the path.
  if (base.size() >= 3 && base.compare(base.size() - 3, 3, "/v1") == 0 &&
      path.rfind("/v1/", 0) == 0)
    return base + path.substr(3);
  return base + path;
}

std::vector<std::string> ModelServer::headers() const {
  if (apiKey.empty()) return {};
  return {"Authorization: Bearer " + apiKey};
}

TranscriptionServer::TranscriptionServer(Loop& loop, ModelServer server, GMainContext* context)
    : loop_(loop), server_(std::move(server)), http_(context) {}

void TranscriptionServer::begin() {
  ++generation_;
  recording_.clear();
  waiting_ = ended_ = false;
  lastSent_ = loop_.uptime();
  sent_ = 0;
}

void TranscriptionServer::hear(std::span<const int16_t> samples) {
  if (ended_) return;
  size_t room = kMaxSamples - std::min(recording_.size(), kMaxSamples);
  recording_.insert(recording_.end(), samples.begin(),
                    samples.begin() + static_cast<std::ptrdiff_t>(std::min(room, samples.size())));
  if (!waiting_ && loop_.uptime() - lastSent_ >= kPartialEvery) send(false);
}

void TranscriptionServer::end() {
  ended_ = true;
  send(true);
}

void TranscriptionServer::cancel() {
  ++generation_;
  recording_.clear();
  waiting_ = false;
  ended_ = true;
}

void TranscriptionServer::send(bool final) {
  if (!final) waiting_ = true;
  lastSent_ = loop_.uptime();
  ++sent_;
  HttpRequest request;
  request.url = server_.endpoint("/v1/audio/transcriptions");
  request.headers = server_.headers();
  request.timeout = final ? kFinalTimeout : kPartialTimeout;
  request.form = {{"file", Audio::wav(recording_), "speech.wav", "audio/wav"},
                  {"model", server_.model.empty() ? "whisper-1" : server_.model, "", ""},
                  {"response_format", "json", "", ""}};
  uint64_t generation = generation_;
  http_.post(std::move(request), [this, generation, final](const HttpResponse& response) {
    if (generation != generation_) return;
    if (!final) waiting_ = false;
    std::string text;
    if (response.ok()) text = JsonField::str(JsonField::parse(response.body), "text");
    // A leading space is how whisper separates segments.
    size_t start = text.find_first_not_of(" \n");
    text = start == std::string::npos ? "" : text.substr(start);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) text.pop_back();
    if (final) {
      if (onText) onText(text, true);
    } else if (!ended_ && onText) {
      onText(text, false);
    }
  });
}

ChatServer::ChatServer(ModelServer server, GMainContext* context)
    : server_(std::move(server)), http_(context) {}

void ChatServer::punctuate(const std::string& text,
                           std::function<void(std::optional<std::string>)> answer) {
  Json schema = {{"type", "object"},
                 {"properties", {{"text", {{"type", "string"}, {"description", Polish::kGuide}}}}},
                 {"required", {"text"}}};
  Json body = {
      {"model", server_.model.empty() ? "default" : server_.model},
      {"temperature", 0},
      {"stream", false},
      {"messages",
       {{{"role", "system"}, {"content", Polish::kInstructions}},
        {{"role", "user"},
         {"content", "Text: " + text + "\n\nAnswer with one JSON object of this schema: " +
                         JsonField::compact(schema)}}}},
  };
  HttpRequest request;
  request.url = server_.endpoint("/v1/chat/completions");
  request.headers = server_.headers();
  request.body = JsonField::compact(body);
  request.timeout = kTimeout;
  http_.post(std::move(request), [answer = std::move(answer)](const HttpResponse& response) {
    if (!response.ok()) return answer(std::nullopt);
    Json reply = JsonField::parse(response.body);
    const Json& choices = JsonField::array(reply, "choices");
    if (choices.empty()) return answer(std::nullopt);
    std::string content = JsonField::str(JsonField::object(choices[0], "message"), "content");
    // The structured answer, or plain text from a model that ignored the schema.
    Json structured = JsonField::parse(content);
    if (JsonField::hasString(structured, "text")) return answer(JsonField::str(structured, "text"));
    answer(content);
  });
}
