// How Vantler reaches a remote host: the ssh command line, the messages of a failed login, and
// the script that reads transcripts there.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "app/panel_remotes.h"
#include "core/linux_glib_loop.h"
#include "integrations/host_transcripts.h"
#include "integrations/remote_hosts.h"
#include "process.h"
#include "test_support.h"

using ::testing::ElementsAre;

TEST(RemoteHosts, DestinationsAndRemoteCommands) {
  auto tail = [](const std::string& host) {
    std::vector<std::string> argv = RemoteHosts::ssh(host);
    EXPECT_THAT(argv, ::testing::Contains("BatchMode=yes"));
    return std::vector<std::string>(argv.end() - 4, argv.end());
  };
  EXPECT_THAT(tail("me@devbox:2222"), ElementsAre("-p", "2222", "--", "me@devbox"));
  // An alias or an IPv6 address goes to ssh as it is, after "--".
  EXPECT_THAT(tail("devbox"), ElementsAre("-o", "ServerAliveCountMax=3", "--", "devbox"));
  EXPECT_THAT(tail("me@[::1]"), ElementsAre("-o", "ServerAliveCountMax=3", "--", "me@[::1]"));
  EXPECT_FALSE(RemoteHosts::validName("-oProxyCommand=touch /tmp/x"));
  EXPECT_FALSE(RemoteHosts::validName("dev box"));
  EXPECT_TRUE(RemoteHosts::validName("me@dev-box.example.org:2222"));

  // The login shell there sees each argument as one word, quotes and all.
  EXPECT_EQ(RemoteHosts::remoteCommand("cat -- \"$1\"", {"it's here"}),
            R"(sh -c 'cat -- "$1"' sh 'it'\''s here')");
}

TEST(RemoteHosts, FailedLoginsSayWhatToRunFirst) {
  EXPECT_THAT(RemoteHosts::loginProblem("devbox",
                                        "No ED25519 host key is known for devbox and you have "
                                        "requested strict checking.\r\nHost key verification "
                                        "failed.\r\n"),
              ::testing::HasSubstr("run 'ssh devbox' once"));
  EXPECT_EQ(RemoteHosts::loginProblem(
                "devbox", "ssh: connect to host devbox port 22: Connection refused\r\n"),
            "cannot reach devbox: ssh: connect to host devbox port 22: Connection refused");
}

// The fetch script run by a real shell on files here, fetch after fetch, as it runs on a host:
// what it sends must land on line boundaries in the end, whatever the cap cut.
TEST(HostFetch, FollowsTranscriptsAcrossCapsAppendsAndTruncation) {
  TempHome dir;
  const std::string a = dir.path() + "/a.jsonl", fifo = dir.path() + "/fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  HostTail tail;
  std::vector<std::string> lines;
  int restarts = 0;
  auto fetch = [&](size_t cap) {
    auto args = HostFetch::arguments(cap, {{a, tail.offset()}, {fifo, 0}});
    args.insert(args.begin(), {"/bin/sh", "-c", HostFetch::script(), "sh"});
    Process sh(args, {});
    ASSERT_EQ(sh.wait(10), 0) << sh.err();
    auto pieces = HostFetch::parse(sh.out(), 2);
    ASSERT_TRUE(pieces);
    EXPECT_FALSE((*pieces)[1].found);
    EXPECT_TRUE(tail.take((*pieces)[0], [&] { ++restarts, lines.clear(); },
                          [&](std::string_view l) { lines.emplace_back(l); }));
  };
  std::ofstream(a) << "{\"one\":1}\n{\"two\":\"é";
  fetch(19);  // cut inside the second line's "é"
  EXPECT_THAT(lines, ElementsAre("{\"one\":1}"));
  fetch(1 << 20);
  EXPECT_THAT(lines, ElementsAre("{\"one\":1}"));
  std::ofstream(a, std::ios::app) << "\"}\n{\"three\":3}\n";
  fetch(1 << 20);
  EXPECT_THAT(lines, ElementsAre("{\"one\":1}", "{\"two\":\"é\"}", "{\"three\":3}"));
  EXPECT_EQ(tail.offset(), std::filesystem::file_size(a));

  // Shorter than what was read: read again from its start, figures from scratch.
  std::ofstream(a, std::ios::trunc) << "{\"new\":1}\n";
  fetch(1 << 20);
  EXPECT_EQ(restarts, 1);
  EXPECT_THAT(lines, ElementsAre("{\"new\":1}"));

  // An answer cut short or not the script's is left aside whole, and so is a piece that does
  // not continue where the reading stands.
  EXPECT_FALSE(HostFetch::parse("0 10\n{\"a\":1}\n", 1));
  EXPECT_FALSE(HostFetch::parse("0 2\nab\n-\n", 1));
  EXPECT_FALSE(tail.take(
      {true, 4, "x\n"}, [] {}, [](std::string_view) {}));
  EXPECT_THAT(lines, ElementsAre("{\"new\":1}"));
}

// The settings page adds and removes hosts through the command line, beside the loop: the host
// shows as busy meanwhile, and the page gets the command's own words when it ends.
TEST(RemoteSettingsTest, AddRunsTheCommandBesideTheLoopAndReportsItsWords) {
  TempHome home;
  const std::string program = home.path() + "/vantler";
  std::ofstream(program)
      << "#!/bin/sh\n"
         "[ \"$2\" = add ] && { echo \"$3: hook program installed; connected: "
         "claude.\"; echo 'Vantler keeps a tunnel to it from now on.'; exit 0; }\n"
         "echo \"ssh: connect to host $3: refused\" >&2; exit 1\n";
  ::chmod(program.c_str(), 0755);
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  {
    GLibLoop loop(context);
    int changes = 0;
    RemoteSettings remotes(
        loop, program, [] { return Json::object(); }, [&] { ++changes; });
    auto settle = [&](int count) {
      const gint64 deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
      while (changes < count && g_get_monotonic_time() < deadline)
        g_main_context_iteration(context, TRUE);
      Json settings;
      remotes.report(settings);
      return settings["remotes"];
    };
    std::string error;
    EXPECT_TRUE(remotes.set("remote:add", "-oProxyCommand=x", error));
    EXPECT_THAT(error, ::testing::HasSubstr("is not a host name"));
    error.clear();
    ASSERT_TRUE(remotes.set("remote:add", " devbox ", error));
    EXPECT_EQ(error, "");
    Json shown = settle(1);
    EXPECT_EQ(shown["hosts"][0]["busy"], "adding");
    remotes.set("remote:add", "devbox", error);
    EXPECT_EQ(error, "wait for devbox to finish adding");
    shown = settle(2);
    EXPECT_EQ(shown["message"], "devbox: hook program installed; connected: claude.");
    EXPECT_TRUE(shown["hosts"].empty());  // the stand-in keeps no list
    remotes.set("remote:remove", "devbox", error);
    EXPECT_EQ(settle(4)["message"], "ssh: connect to host devbox: refused");
    EXPECT_FALSE(remotes.set("theme", "dark", error));
  }
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}
