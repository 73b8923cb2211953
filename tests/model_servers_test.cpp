// The transcription engine and punctuation against a local fake OpenAI-compatible server, and
// the API key read back from a real Secret Service (gnome-keyring on a private D-Bus session).

#include <gio/gio.h>
#include <gtest/gtest.h>

#include "core/fake_loop.h"
#include "voice/linux_model_servers.h"
#include "voice/linux_secret_store.h"
#include "voice_support.h"

using VoiceSupport::FakeModelServer;
using VoiceSupport::spinUntil;

namespace {

struct Texts {
  std::vector<std::string> partials, finals;
  void listen(SpeechEngine& engine) {
    engine.onText = [this](const std::string& t, bool final) {
      (final ? finals : partials).push_back(t);
    };
  }
};

std::vector<int16_t> seconds(double s) {
  return std::vector<int16_t>(static_cast<size_t>(s * Audio::kRate), 100);
}

std::optional<std::string> polished(const std::string& text, PunctuationModel* model) {
  std::optional<std::string> out;
  Polish::run(text, model, [&](std::string t) { out = std::move(t); });
  spinUntil([&] { return out.has_value(); }, 10);
  return out;
}

}  // namespace

TEST(TranscriptionServer, ResendsTheGrowingRecordingThenSendsTheWhole) {
  FakeModelServer server;
  ASSERT_TRUE(server.up());
  FakeLoop clock;  // only the engine's sense of time; the requests run for real
  TranscriptionServer engine(clock, {server.url("ok"), "", ""});
  Texts texts;
  texts.listen(engine);

  engine.begin();
  engine.hear(seconds(0.5));
  EXPECT_EQ(engine.sent(), 0);  // not a second yet
  clock.advance(1.0);
  engine.hear(seconds(0.5));
  EXPECT_EQ(engine.sent(), 1);
  clock.advance(1.0);
  engine.hear(seconds(0.5));  // the first is still out: nothing more is sent
  EXPECT_EQ(engine.sent(), 1);
  ASSERT_TRUE(spinUntil([&] { return !texts.partials.empty(); }, 10));
  EXPECT_EQ(texts.partials[0], "16000 samples");
  engine.hear(seconds(0.5));
  EXPECT_EQ(engine.sent(), 2);
  engine.end();
  ASSERT_TRUE(spinUntil([&] { return !texts.finals.empty(); }, 10));
  EXPECT_EQ(texts.finals, std::vector<std::string>{"32000 samples"});
  // The partial request that was still out when the recording ended is not reported.
  VoiceSupport::spinFor(0.2);
  EXPECT_EQ(texts.partials.size(), 1u);
}

TEST(TranscriptionServer, FailingServerGivesAnEmptyFinalAndCancelDropsAnswers) {
  FakeModelServer server;
  ASSERT_TRUE(server.up());
  FakeLoop clock;
  Texts texts;
  TranscriptionServer failing(clock, {server.url("fail"), "", ""});
  texts.listen(failing);
  failing.begin();
  failing.hear(seconds(0.5));
  failing.end();
  ASSERT_TRUE(spinUntil([&] { return !texts.finals.empty(); }, 10));
  EXPECT_EQ(texts.finals, std::vector<std::string>{""});

  TranscriptionServer ok(clock, {server.url("ok") + "/v1/", "", ""});
  texts.listen(ok);
  ok.begin();
  ok.hear(seconds(0.5));
  ok.end();
  ok.cancel();
  VoiceSupport::spinFor(0.5);
  EXPECT_EQ(texts.finals.size(), 1u);
}

TEST(Polish, KeepsFaithfulPunctuationAndFallsBackSilently) {
  FakeModelServer server;
  ASSERT_TRUE(server.up());
  ChatServer ok({server.url("ok"), "", ""});
  EXPECT_EQ(polished("um run the tests again please", &ok), "Run, the tests again please!");
  // Fewer than four words: no model, the full stop rule only.
  EXPECT_EQ(polished("ok so fix the bug", &ok), "Fix the bug.");
  EXPECT_EQ(polished("is it done?", nullptr), "Is it done?");

  ChatServer unfaithful({server.url("unfaithful"), "", ""});
  EXPECT_EQ(polished("run the tests again", &unfaithful), "Run the tests again.");
  ChatServer failing({server.url("fail"), "", ""});
  EXPECT_EQ(polished("run the tests again", &failing), "Run the tests again.");

  ChatServer slow({server.url("slow"), "", ""});
  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(polished("run the tests again", &slow), "Run the tests again.");
  double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  EXPECT_LT(waited, ChatServer::kTimeout + 0.5);
}

TEST(SecretStore, TheApiKeyIsKeptThereAndSentToTheServer) {
  using VoiceSupport::which;
  if (which("dbus-daemon").empty() || which("gnome-keyring-daemon").empty())
    GTEST_SKIP() << "dbus-daemon or gnome-keyring missing";
  FakeModelServer server;
  ASSERT_TRUE(server.up());
  char pattern[] = "/tmp/vantler-keyring-XXXXXX";
  std::string dir = ::mkdtemp(pattern);
  std::map<std::string, std::string> env{
      {"HOME", dir}, {"XDG_DATA_HOME", dir}, {"XDG_RUNTIME_DIR", dir}};
  Process bus({which("dbus-daemon"), "--session", "--nofork", "--print-address=1"}, env);
  ASSERT_TRUE(spinUntil([&] { return bus.out().find('\n') != std::string::npos; }, 10));
  std::string address = bus.out().substr(0, bus.out().find('\n'));
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  env["DBUS_SESSION_BUS_ADDRESS"] = address;
  // GDBus ends the process when its session bus goes away; this one goes with the test.
  GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  ASSERT_TRUE(connection);
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  Process keyring(
      {which("gnome-keyring-daemon"), "--foreground", "--unlock", "--components=secrets"}, env,
      "test");
  VoiceSupport::spinFor(0.5);

  std::optional<bool> stored;
  SecretStore::store(server.url("key"), "sesame", [&](bool ok) { stored = ok; });
  ASSERT_TRUE(spinUntil([&] { return stored.has_value(); }, 10));
  ASSERT_TRUE(*stored);
  std::optional<std::string> key, other;
  SecretStore::lookup(server.url("key"), [&](std::string k) { key = std::move(k); });
  SecretStore::lookup(server.url("ok"), [&](std::string k) { other = std::move(k); });
  ASSERT_TRUE(spinUntil([&] { return key && other; }, 10));
  EXPECT_EQ(*key, "sesame");
  EXPECT_EQ(*other, "");

  FakeLoop clock;
  Texts texts;
  TranscriptionServer withKey(clock, {server.url("key"), "", *key});
  TranscriptionServer without(clock, {server.url("key"), "", ""});
  for (TranscriptionServer* engine : {&withKey, &without}) {
    texts.listen(*engine);
    engine->begin();
    engine->hear(seconds(1));
    engine->end();
    size_t before = texts.finals.size();
    ASSERT_TRUE(spinUntil([&] { return texts.finals.size() > before; }, 10));
  }
  EXPECT_EQ(texts.finals, (std::vector<std::string>{"16000 samples", ""}));

  ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
  g_object_unref(connection);
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
}
