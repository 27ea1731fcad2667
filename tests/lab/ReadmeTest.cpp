// SPDX-License-Identifier: Apache-2.0
// The README shows what `./dev run` and `./dev run live` print. Other tests compare what these
// examples print with their expected.txt; these compare the README with it.
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

// The n-th fenced block, from 0.
Lines fencedBlock(Lines const& document, size_t n) {
  Lines block;
  size_t fences = 0;
  for (std::string const& line : document) {
    if (line.starts_with("```")) {
      ++fences;
    } else if (fences == 2 * n + 1) {
      block.push_back(line);
    }
  }
  EXPECT_GE(fences, 2 * n + 2) << "no such fenced block";
  return block;
}

// The 16 of "... 16 lines ...".
std::optional<size_t> leftOut(std::string_view line) {
  std::string_view const begin = "... ";
  std::string_view const end = " lines ...";
  if (!line.starts_with(begin) || !line.ends_with(end)) return std::nullopt;
  line = line.substr(begin.size(), line.size() - begin.size() - end.size());
  size_t count = 0;
  auto const [stop, error] = std::from_chars(line.data(), line.data() + line.size(), count);
  if (error != std::errc() || stop != line.data() + line.size()) return std::nullopt;
  return count;
}

// Each line of the block is the next one of what is printed, but for those that are left out.
void expectShown(size_t block, std::string const& expected) {
  Lines const shown = fencedBlock(linesOf(SOURCE_DIR "/README.md"), block);
  Lines const printed = linesOf(expected);
  size_t at = 0;
  for (std::string const& line : shown) {
    if (auto const count = leftOut(line)) {
      at += *count;
      continue;
    }
    ASSERT_LT(at, printed.size()) << line;
    EXPECT_EQ(line, printed[at]) << "line " << at + 1 << " of " << expected;
    ++at;
  }
  EXPECT_EQ(at, printed.size());
}

TEST(Readme, TheQuickstartShowsWhatTheLeafExamplePrints) {
  expectShown(0, SOURCE_DIR "/examples/leaf1/expected.txt");
}

TEST(Readme, TheQuickstartShowsWhatTheLiveExamplePrints) {
  expectShown(1, SOURCE_DIR "/examples/live/expected.txt");
}

}  // namespace
