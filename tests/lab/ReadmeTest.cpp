// The README shows what `./dev run` prints. Another test compares what the example prints with
// expected.txt; this one compares the README with it.
#include <charconv>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

Lines linesOf(std::string const& file) {
  std::ifstream in(file);
  EXPECT_TRUE(in) << file;
  Lines lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The first fenced block.
Lines fencedBlock(Lines const& document) {
  Lines block;
  bool inside = false;
  for (std::string const& line : document) {
    if (line.starts_with("```")) {
      if (inside) return block;
      inside = true;
    } else if (inside) {
      block.push_back(line);
    }
  }
  ADD_FAILURE() << "no fenced block";
  return {};
}

// The 16 of "... 16 lines ...".
std::optional<std::size_t> leftOut(std::string_view line) {
  std::string_view const begin = "... ";
  std::string_view const end = " lines ...";
  if (!line.starts_with(begin) || !line.ends_with(end)) return std::nullopt;
  line = line.substr(begin.size(), line.size() - begin.size() - end.size());
  std::size_t count = 0;
  auto const [stop, error] = std::from_chars(line.data(), line.data() + line.size(), count);
  if (error != std::errc() || stop != line.data() + line.size()) return std::nullopt;
  return count;
}

TEST(Readme, TheQuickstartShowsWhatTheLeafExamplePrints) {
  Lines const shown = fencedBlock(linesOf(SOURCE_DIR "/README.md"));
  Lines const printed = linesOf(SOURCE_DIR "/examples/leaf1/expected.txt");
  std::size_t at = 0;
  for (std::string const& line : shown) {
    if (auto const count = leftOut(line)) {
      at += *count;
      continue;
    }
    ASSERT_LT(at, printed.size()) << line;
    EXPECT_EQ(line, printed[at]) << "line " << at + 1 << " of expected.txt";
    ++at;
  }
  EXPECT_EQ(at, printed.size());
}

}  // namespace
