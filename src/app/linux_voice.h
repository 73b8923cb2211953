#pragma once
// Dictation on this desktop, behind the panel's `Voice` port: the microphone through
// PulseAudio, the speech engine the settings name (a transcription server, or pocketsphinx
// offline), and punctuation by an optional chat server. The final text is cleaned and
// punctuated before it reaches `onUpdate`.
//
// Settings it owns: "speechServer", "speechModel", "speechKey" (kept in the secret store;
// the settings show only "speechKeySet"), "speechOffline", "punctuationServer",
// "punctuationModel".

#include <functional>
#include <memory>
#include <string>

#include "app/capabilities.h"
#include "app/panel_ports.h"
#include "core/defaults.h"
#include "core/loop.h"
#include "voice/linux_model_servers.h"
#include "voice/talk.h"

class DesktopVoice final : public Voice {
 public:
  DesktopVoice(Loop& loop, Defaults& defaults);
  ~DesktopVoice() override;

  void start() override;
  void stop() override;
  void cancel() override;
  bool listening() const override { return talk_.listening(); }

  // Ready when an engine is set up; otherwise what to do about it.
  Capability capability() const;
  // The capability changed (an engine was set up or removed).
  std::function<void()> onCapabilityChanged;

 private:
  void configure();
  bool handle(std::string_view key, const Json& value, std::string& error);
  void report(Json& settings) const;

  Loop& loop_;
  Defaults& defaults_;
  Talk talk_;
  std::shared_ptr<ChatServer> punctuation_;
  std::string engineName_;  // "" when none is set up
  bool keySet_ = false;
  uint64_t generation_ = 0;  // a dictation's final text is dropped once another starts
  uint64_t lookups_ = 0;
  std::shared_ptr<DesktopVoice*> self_;
};
