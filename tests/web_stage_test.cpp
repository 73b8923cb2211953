// Serving the page's files: which directory holds the page, and which request paths reach a
// file inside it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "test_support.h"
#include "web/web_root.h"

namespace fs = std::filesystem;

namespace {

void write(const fs::path& path, const std::string& text = "x") {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

class WebRootTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root = fs::canonical(home.path()).string() + "/page";
    write(root + "/index.html", "<html>");
    write(root + "/assets/app.js", "run()");
    write(home.path() + "/secret.txt", "private");
  }
  TempHome home;
  std::string root;
};

TEST_F(WebRootTest, ServesFilesInsideTheRoot) {
  EXPECT_EQ(WebRoot::resolve(root, "/index.html"), root + "/index.html");
  EXPECT_EQ(WebRoot::resolve(root, "/assets/%61pp.js"), root + "/assets/app.js");
  EXPECT_EQ(WebRoot::resolve(root, "/assets/../index.html"), root + "/index.html");
  fs::create_symlink(root + "/assets/app.js", root + "/linked.js");
  EXPECT_EQ(WebRoot::resolve(root, "/linked.js"), root + "/assets/app.js");
  EXPECT_EQ(WebRoot::readFile(root + "/assets/app.js"), "run()");
}

TEST_F(WebRootTest, RefusesPathsThatLeaveTheRootOrNameNoFile) {
  EXPECT_FALSE(WebRoot::resolve(root, "/../secret.txt"));
  EXPECT_FALSE(WebRoot::resolve(root, "/%2e%2e/secret.txt"));
  EXPECT_FALSE(WebRoot::resolve(root, "/assets/..%2F..%2Fsecret.txt"));
  fs::create_symlink(home.path() + "/secret.txt", root + "/escape.txt");
  fs::create_symlink(home.path(), root + "/up");
  EXPECT_FALSE(WebRoot::resolve(root, "/escape.txt"));
  EXPECT_FALSE(WebRoot::resolve(root, "/up/secret.txt"));
  // A sibling whose name starts with the root's name is still outside it.
  write(root + "-other/index.html");
  EXPECT_FALSE(WebRoot::resolve(root, "/../page-other/index.html"));
  EXPECT_FALSE(WebRoot::resolve(root, "/"));
  EXPECT_FALSE(WebRoot::resolve(root, "/assets"));
  EXPECT_FALSE(WebRoot::resolve(root, "/missing.js"));
  EXPECT_FALSE(WebRoot::resolve(root, "/index.html%00.js"));
  EXPECT_FALSE(WebRoot::resolve(root, "/index.html%2"));
  ASSERT_EQ(::mkfifo((root + "/pipe.js").c_str(), 0600), 0);
  EXPECT_FALSE(WebRoot::resolve(root, "/pipe.js"));
  EXPECT_FALSE(WebRoot::readFile(root + "/pipe.js"));
}

TEST_F(WebRootTest, TheFirstCandidateWithAnIndexWins) {
  std::string exeDir = home.path() + "/prefix/bin";
  std::string installed = home.path() + "/prefix/share/vantler/web";
  fs::create_directories(exeDir);
  write(home.path() + "/work/web/dist/index.html");
  auto dirs = WebRoot::candidates(nullptr, exeDir, home.path() + "/work");
  EXPECT_EQ(WebRoot::find(dirs), fs::canonical(home.path() + "/work/web/dist").string());
  write(installed + "/index.html");
  EXPECT_EQ(WebRoot::find(dirs), fs::canonical(installed).string());
  // The variable comes first, but only when its directory has the page.
  fs::create_directories(home.path() + "/empty");
  std::string empty = home.path() + "/empty";
  EXPECT_EQ(WebRoot::find(WebRoot::candidates(empty.c_str(), exeDir, "")),
            fs::canonical(installed).string());
  EXPECT_EQ(WebRoot::find(WebRoot::candidates(root.c_str(), exeDir, "")), root);
  EXPECT_FALSE(WebRoot::find(WebRoot::candidates("", "", home.path() + "/nowhere")));
}

}  // namespace
