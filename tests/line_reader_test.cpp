#include "core/line_reader.h"

#include <fstream>
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

}  // namespace
