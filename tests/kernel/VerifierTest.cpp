// SPDX-License-Identifier: Apache-2.0
// What the kernel's verifier says of the program: that it is sound, and nothing else.
#include <array>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cstdarg>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <mac_rewrite.skel.h>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "tests/kernel/KernelFixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// The verifier's walk through the program, then its figures.
constexpr Kiv::U32 kWholeWalk = 2;
constexpr Kiv::U32 kFigures = 4;
// Of the million steps that a kernel allows for a program.
constexpr int kSteps = 20'000;

std::vector<std::string> warnings;

__attribute__((format(printf, 2, 0))) int keepWarnings(libbpf_print_level level, char const* format,
                                                       va_list arguments) {
  if (level != LIBBPF_WARN) return 0;
  std::array<char, 1024> line{};
  std::vsnprintf(line.data(), line.size(), format, arguments);
  warnings.emplace_back(line.data());
  return 0;
}

class Verifier : public BfnTest::KernelFixture {
 protected:
  void SetUp() override {
    KernelFixture::SetUp();
    warnings.clear();
    before_ = libbpf_set_print(keepWarnings);
  }
  void TearDown() override { libbpf_set_print(before_); }

  // Everything that the verifier says of the program.
  std::string logOf(Kiv::U32 level) {
    std::unique_ptr<mac_rewrite, void (*)(mac_rewrite*)> const program(mac_rewrite__open(),
                                                                       mac_rewrite__destroy);
    std::vector<char> log(size_t{8} << 20);
    bpf_program__set_log_level(program->progs.mac_rewrite, level);
    bpf_program__set_log_buf(program->progs.mac_rewrite, log.data(), log.size());
    EXPECT_EQ(mac_rewrite__load(program.get()), 0);
    return log.data();
  }

 private:
  libbpf_print_fn_t before_ = nullptr;
};

// Words with which the verifier objects, or names what it cannot follow.
std::vector<std::string> objections(std::string const& log) {
  static std::regex const words(
      "invalid|error|warning|unreachable|misaligned|not allowed|!read_ok|unbounded|out of bounds|"
      "back-edge|infinite loop|too many|too large|unknown|cannot",
      std::regex::icase);
  std::vector<std::string> found;
  for (std::sregex_iterator it(log.begin(), log.end(), words), end; it != end; ++it)
    found.push_back(it->str());
  return found;
}

TEST_F(Verifier, FollowsEveryPathOfTheProgramWithoutAnObjection) {
  std::string const log = logOf(kWholeWalk);
  EXPECT_THAT(log, HasSubstr("exit"));
  EXPECT_THAT(objections(log), IsEmpty());
  EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(Verifier, SaysNothingButItsFigures) {
  std::string const log = logOf(kFigures);
  std::smatch figures;
  ASSERT_TRUE(std::regex_search(log, figures, std::regex("processed (\\d+) insns"))) << log;
  EXPECT_LT(std::stoi(figures[1]), kSteps);
  std::regex const known("(verification time|stack depth|processed) .*\n");
  EXPECT_EQ(std::regex_replace(log, known, ""), "");
  EXPECT_THAT(warnings, IsEmpty());
}

// Returns a register that nothing has been stored in.
TEST_F(Verifier, ObjectsToAProgramThatIsNotSound) {
  std::array<bpf_insn, 2> const unsound{
      bpf_insn{BPF_ALU64 | BPF_MOV | BPF_X, 0, 2, 0, 0},
      bpf_insn{BPF_JMP | BPF_EXIT, 0, 0, 0, 0},
  };
  std::vector<char> log(4096);
  bpf_prog_load_opts options{};
  options.sz = sizeof options;
  options.log_level = kWholeWalk;
  options.log_buf = log.data();
  options.log_size = static_cast<Kiv::U32>(log.size());
  EXPECT_LT(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "unsound", "GPL", unsound.data(), unsound.size(),
                          &options),
            0);
  EXPECT_THAT(objections(log.data()), Not(IsEmpty()));
}

}  // namespace
