#include "integrations/tmux_replies.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/hub.h"
#include "core/linux_glib_loop.h"
#include "test_support.h"

TEST(TmuxText, FindsThePaneOfATerminalAndKeepsTheReplyOnOneLine) {
  const std::string listing = "%1 /dev/pts/10\n%2 /dev/pts/1\n%bad\n";
  EXPECT_EQ(Tmux::paneFor(listing, "/dev/pts/1"), "%2");
  EXPECT_EQ(Tmux::paneFor(listing, "/dev/pts/3"), std::nullopt);
  EXPECT_EQ(Tmux::paneFor(listing, ""), std::nullopt);

  EXPECT_EQ(Tmux::typed("fix it\r\nthen\ttest"), "fix it  then test");
  const std::string cut = Tmux::typed(std::string(Tmux::kMaxText - 1, 'a') + "é");
  EXPECT_EQ(cut, std::string(Tmux::kMaxText - 1, 'a'));  // never half a character
}

// A real tmux server on a private socket, its one pane running `cat` into a file.
class TmuxReply : public ::testing::Test {
 protected:
  void SetUp() override {
    socket_ = home_.path() + "/tmux.sock";
    out_ = home_.path() + "/typed.txt";
    ASSERT_EQ(tmux("new-session -d -x 80 -y 24 'cat > " + out_ + "'"), 0);
    ASSERT_EQ(tmux("list-panes -F '#{pane_tty}' > " + home_.path() + "/tty"), 0);
    std::ifstream(home_.path() + "/tty") >> tty_;
    ASSERT_FALSE(tty_.empty());
    context_ = g_main_context_new();
    g_main_context_push_thread_default(context_);
    loop_ = std::make_unique<GLibLoop>(context_);
  }
  void TearDown() override {
    tmux("kill-server");
    loop_.reset();
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  int tmux(const std::string& args) {
    return std::system(("tmux -S '" + socket_ + "' " + args + " 2>/dev/null").c_str());
  }
  std::string typed() {
    std::stringstream text;
    text << std::ifstream(out_).rdbuf();
    return text.str();
  }
  // Turns the loop until the file holds `want` or five seconds pass.
  bool until(const std::string& want) {
    const gint64 deadline = g_get_monotonic_time() + 5 * G_USEC_PER_SEC;
    while (typed() != want && g_get_monotonic_time() < deadline)
      if (!g_main_context_iteration(context_, FALSE)) g_usleep(1000);
    return typed() == want;
  }

  TempHome home_;
  std::string socket_, out_, tty_;
  GMainContext* context_ = nullptr;
  std::unique_ptr<GLibLoop> loop_;
};

TEST_F(TmuxReply, AReplyToAReleasedTurnIsTypedIntoTheAgentsPane) {
  Defaults defaults{home_.path() + "/defaults.json"};
  HubPorts ports;
  ports.typist =
      std::make_shared<TmuxReplies>(*loop_, std::vector<std::string>{"tmux", "-S", socket_});
  Hub hub{*loop_, defaults, ports, HubOptions{home_.path(), std::nullopt, false}};
  auto finished = [&](const std::string& id, std::optional<std::string> tty) {
    Session s = hub.session(id, Agent::claude, home_.path());
    s.mood = Mood::done;
    s.tty = std::move(tty);
    hub.store(s);
  };
  finished("claude:pane", tty_);
  finished("claude:elsewhere", "/dev/pts/999");
  finished("claude:notty", std::nullopt);
  // The page offers typing only where it can arrive.
  EXPECT_TRUE(JsonField::boolean(hub.find("claude:pane")->json(0, 15), "canType"));
  EXPECT_FALSE(JsonField::boolean(hub.find("claude:notty")->json(0, 15), "canType"));

  hub.sendReply("claude:elsewhere", "lost");
  hub.sendReply("claude:notty", "lost too");
  hub.sendReply("claude:pane", "-n now add\na test for 'rounding' $HOME");
  EXPECT_TRUE(until("-n now add a test for 'rounding' $HOME\n")) << typed();
}
