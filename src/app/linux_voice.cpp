#include "app/linux_voice.h"

#include <glib.h>

#include <algorithm>

#include "core/prefs.h"
#include "voice/linux_pocketsphinx.h"
#include "voice/linux_pulse_microphone.h"
#include "voice/linux_secret_store.h"
#include "voice/polish.h"

namespace {

constexpr std::string_view kTextKeys[] = {"speechServer", "speechModel", "punctuationServer",
                                          "punctuationModel"};

}  // namespace

DesktopVoice::DesktopVoice(Loop& loop, Defaults& defaults)
    : loop_(loop),
      defaults_(defaults),
      talk_(loop, std::make_shared<PulseMicrophone>(), nullptr),
      self_(std::make_shared<DesktopVoice*>(this)) {
  talk_.onUpdate = [this](const std::string& text, bool final, double level) {
    if (!final) {
      if (onUpdate) onUpdate(text, false, level);
      return;
    }
    uint64_t generation = generation_;
    std::weak_ptr<DesktopVoice*> weak = self_;
    // The model lives until its answer is in, even when the settings replace it meanwhile.
    std::shared_ptr<ChatServer> model = punctuation_;
    Polish::run(text, model.get(), [weak, generation, model](std::string polished) {
      auto self = weak.lock();
      if (!self || (*self)->generation_ != generation || !(*self)->onUpdate) return;
      (*self)->onUpdate(polished, true, 0);
    });
  };
  talk_.onError = [this](const std::string& message) {
    if (onError) onError(message);
  };
  std::weak_ptr<DesktopVoice*> weak = self_;
  Prefs::addReporter([weak](Json& settings) {
    if (auto self = weak.lock()) (*self)->report(settings);
  });
  Prefs::addHandler([weak](std::string_view key, const Json& value, std::string& error) {
    auto self = weak.lock();
    return self && (*self)->handle(key, value, error);
  });
  configure();
}

DesktopVoice::~DesktopVoice() = default;

void DesktopVoice::start() {
  ++generation_;
  talk_.start();
}

void DesktopVoice::stop() {
  talk_.stop();
}

void DesktopVoice::cancel() {
  ++generation_;
  talk_.cancel();
}

Capability DesktopVoice::capability() const {
  if (!engineName_.empty()) return {true, ""};
  return {false, "Dictation needs a speech engine: set a speech server below."};
}

void DesktopVoice::configure() {
  std::string server = defaults_.string("speechServer");
  std::string before = engineName_;
  punctuation_.reset();
  if (std::string chat = defaults_.string("punctuationServer"); !chat.empty())
    punctuation_ =
        std::make_shared<ChatServer>(ModelServer{chat, defaults_.string("punctuationModel"), ""});
  if (!server.empty()) {
    engineName_ = "server";
    ModelServer settings{server, defaults_.string("speechModel"), ""};
    talk_.setEngine(std::make_shared<TranscriptionServer>(loop_, settings));
    // With the key from the secret store, once it is read.
    std::weak_ptr<DesktopVoice*> weak = self_;
    uint64_t lookup = ++lookups_;
    SecretStore::lookup(server, [weak, lookup, settings](std::string key) mutable {
      auto self = weak.lock();
      if (!self || (*self)->lookups_ != lookup) return;
      DesktopVoice& v = **self;
      v.keySet_ = !key.empty();
      if (key.empty()) return;
      settings.apiKey = std::move(key);
      v.talk_.setEngine(std::make_shared<TranscriptionServer>(v.loop_, settings));
    });
  } else if (defaults_.boolean("speechOffline") &&
             Pocketsphinx::installed(Pocketsphinx::defaultModels())) {
    ++lookups_;
    engineName_ = "pocketsphinx";
    talk_.setEngine(
        std::make_shared<Pocketsphinx>(Pocketsphinx::Options{Pocketsphinx::defaultModels(), ""}));
  } else {
    ++lookups_;
    engineName_.clear();
    talk_.setEngine(nullptr);
  }
  if (engineName_ != before && onCapabilityChanged) onCapabilityChanged();
}

bool DesktopVoice::handle(std::string_view key, const Json& value, std::string& error) {
  if (key == "speechKey") {
    if (!value.is_string() && !value.is_null()) {
      error = "speechKey must be text";
      return true;
    }
    std::string server = defaults_.string("speechServer");
    if (server.empty()) {
      error = "set the speech server before its key";
      return true;
    }
    std::weak_ptr<DesktopVoice*> weak = self_;
    SecretStore::store(server, value.is_string() ? value.get<std::string>() : "", [weak](bool ok) {
      if (auto self = weak.lock()) {
        if (!ok) g_warning("Vantler: the secret store did not keep the key");
        (*self)->configure();
      }
    });
    return true;
  }
  bool text = std::find(std::begin(kTextKeys), std::end(kTextKeys), key) != std::end(kTextKeys);
  if (!text && key != "speechOffline") return false;
  if (value.is_null()) {
    defaults_.remove(key);
  } else if (text && value.is_string()) {
    defaults_.set(key, value);
  } else if (!text && value.is_boolean()) {
    defaults_.set(key, value);
  } else {
    error = std::string(key) + (text ? " must be text" : " must be true or false");
    return true;
  }
  configure();
  return true;
}

void DesktopVoice::report(Json& settings) const {
  for (std::string_view key : kTextKeys) settings[std::string(key)] = defaults_.string(key);
  settings["speechOffline"] = defaults_.boolean("speechOffline");
  settings["speechOfflineInstalled"] = Pocketsphinx::installed(Pocketsphinx::defaultModels());
  settings["speechKeySet"] = keySet_;
  settings["speechEngine"] = engineName_;
}
