// How Vantler reaches a remote host: the ssh command line and the messages of a failed login.

#include <gmock/gmock.h>

#include "integrations/remote_hosts.h"

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
