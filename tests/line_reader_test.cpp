#include "core/line_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

class LineReaderTest : public ::testing::Test {
 protected:
  TempHome home;
  std::string path = home.path() + "/log.jsonl";
  LineReader reader;
  LineMark mark;
  std::vector<std::string> lines;

  void append(const std::string& text) { std::ofstream(path, std::ios::app) << text; }
  LineReader::Result read(size_t budget = LineReader::kUnlimited) {
    return reader.read(path, mark, budget, [this](std::string_view l) { lines.emplace_back(l); });
  }
};

// Runs one read on another thread and gives up on it after a deadline. A read stuck on a FIFO
// is released by opening the FIFO's other end, so the test ends either way.
TEST_F(LineReaderTest, FifoIsRefusedWithoutBlocking) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  auto result = std::async(std::launch::async, [this] { return read(); });
  const bool finished = result.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  if (!finished) ::close(::open(path.c_str(), O_WRONLY));
  EXPECT_TRUE(finished) << "reading a FIFO blocked";
  EXPECT_FALSE(result.get().regular);
  EXPECT_TRUE(lines.empty());
}

TEST_F(LineReaderTest, SlicesDeliverEveryLineOnceAndAnUnfinishedLineWhenComplete) {
  const std::string filler(1000, 'x');
  for (int i = 0; i < 3000; ++i) append(std::to_string(i) + filler + "\n");
  append("partial");
  int reads = 0;
  for (LineReader::Result r; (r = read(1 << 20)).more;) ++reads;
  EXPECT_GE(reads, 2);
  ASSERT_EQ(lines.size(), 3000u);
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(lines[i], std::to_string(i) + filler);

  lines.clear();
  EXPECT_EQ(read().bytes, 0u);  // unchanged: not even the unfinished line is read again
  append(" done\nnext\n");
  read();
  EXPECT_EQ(lines, (std::vector<std::string>{"partial done", "next"}));

  // Rewritten shorter: read again from the start, after the caller was told.
  lines.clear();
  std::ofstream(path, std::ios::trunc) << "fresh\n";
  bool restarted = false;
  reader.read(
      path, mark, LineReader::kUnlimited, [this](std::string_view l) { lines.emplace_back(l); },
      [&] { restarted = true; });
  EXPECT_TRUE(restarted);
  EXPECT_EQ(lines, std::vector<std::string>{"fresh"});
}

TEST_F(LineReaderTest, OverlongLineIsSkippedToItsEndAndNeverReadAgain) {
  append("{\"a\":1}\n" + std::string(LineReader::kMaxLine + (2 << 20), 'x'));
  while (read(1 << 20).more) {
  }
  EXPECT_EQ(lines, std::vector<std::string>{"{\"a\":1}"});
  EXPECT_TRUE(mark.skipping);

  // Appending to the long line and ending it costs only the new bytes.
  append("xxxx\n{\"b\":2}\n");
  const LineReader::Result r = read(1 << 20);
  EXPECT_LT(r.bytes, 100u);
  EXPECT_EQ(lines, (std::vector<std::string>{"{\"a\":1}", "{\"b\":2}"}));
}

TEST_F(LineReaderTest, HolesOfASparseFileAreSteppedOver) {
  append("{\"a\":1}\n");
  ASSERT_EQ(truncate(path.c_str(), 64ll << 30), 0);
  append("{\"b\":2}\n{\"c\":3}\n");
  const LineReader::Result r = read(8 << 20);
  EXPECT_FALSE(r.more);
  EXPECT_LT(r.bytes, 4u << 20);
  // The zeros and the text after them up to the line end make one line that is not JSON.
  EXPECT_EQ(lines, (std::vector<std::string>{"{\"a\":1}", "{\"c\":3}"}));
  EXPECT_EQ(mark.offset, r.info.st_size);
}

}  // namespace
