// SPDX-License-Identifier: Apache-2.0
// Maps and program in their directory: what outlives whom, and what is refused.
#include "kernel/KernelProgram.h"

#include <array>
#include <bpf/bpf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/bpf.h>
#include <net/if.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "kernel/KernelError.h"
#include "kernel/KernelTable.h"
#include "kernel/Ports.h"
#include "tests/kernel/KernelFixture.h"

namespace {

using BfnKernel::BpfMap;
using BfnKernel::FileDescriptor;
using BfnKernel::KernelError;
using BfnKernel::KernelProgram;
using Kiv::U32;
using Kiv::U64;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

constexpr U64 kKey = 0x0100000a'00640005;
constexpr U64 kAction = 0x00332211'00aabbcc;

class KernelProgramTest : public BfnTest::KernelFixture {
 protected:
  std::string pin(std::string const& name) const { return (directory() / name).string(); }

  static void rowIs(KernelProgram const& program, U64 key = kKey, U64 action = kAction) {
    ASSERT_EQ(program.rows().update(&key, &action, BPF_ANY), 0);
  }
  static U64 row(KernelProgram const& program, U64 key = kKey) {
    U64 action = 0;
    EXPECT_EQ(program.rows().lookup(&key, &action), 0);
    return action;
  }
  void layoutIs(U32 version) {
    auto const layout = BpfMap::pinned(pin("layout"));
    mac_rewrite_layout const value{version, 0};
    U32 const only = 0;
    ASSERT_EQ(layout->update(&only, &value, BPF_ANY), 0);
  }
  // A program that is not ours, pinned where ours is.
  void otherProgramIs(std::string const& path) {
    std::array<bpf_insn, 2> const nothing{
        bpf_insn{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, -1},
        bpf_insn{BPF_JMP | BPF_EXIT, 0, 0, 0, 0},
    };
    FileDescriptor const other(bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "older", "GPL",
                                             nothing.data(), nothing.size(), nullptr));
    ASSERT_TRUE(other);
    unlink(path.c_str());
    ASSERT_EQ(bpf_obj_pin(other.get(), path.c_str()), 0);
  }
};

TEST_F(KernelProgramTest, RowsAndProgramOutliveTheProcessThatMadeThem) {
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    KernelProgram const program(options());
    rowIs(program);
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  // The child mounted the file system in the mounts that it shares with this process.
  KernelProgram const program(options());
  EXPECT_EQ(row(program), kAction);
  EXPECT_THAT(program.notices(), IsEmpty());
}

TEST_F(KernelProgramTest, ProgramStaysTheSameWhenNothingChanged) {
  U32 const id = KernelProgram(options()).id();
  EXPECT_EQ(KernelProgram(options()).id(), id);
}

TEST_F(KernelProgramTest, SizeOfATableThatIsThereWinsWithANotice) {
  { KernelProgram const program(options(100)); }
  KernelProgram const program(options(200));
  EXPECT_EQ(program.rows().shape().entries, 100u);
  EXPECT_THAT(program.notices(), ElementsAre("the table in " + directory().string() +
                                             " has 100 rows; 200 were asked for"));
}

TEST_F(KernelProgramTest, TableOfNoRowsNeedsNothing) {
  KernelProgram program(options(0));
  EXPECT_FALSE(program.exists());
  EXPECT_FALSE(std::filesystem::exists(pin("rows")));
  EXPECT_THROW(BfnKernel::Ports{program}, KernelError);
}

TEST_F(KernelProgramTest, DirectoryBelongsToOneProcess) {
  KernelProgram const program(options());
  pid_t const child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    try {
      KernelProgram const second(options());
    } catch (KernelError const& error) {
      _exit(std::string(error.what()).ends_with(" is in use by another process") ? 0 : 1);
    }
    _exit(2);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(KernelProgramTest, NewerLayoutIsRefusedAndLeftAlone) {
  { rowIs(KernelProgram(options())); }
  layoutIs(MAC_REWRITE_LAYOUT + 1);
  EXPECT_THAT([&] { KernelProgram{options()}; },
              ThrowsMessage<KernelError>(HasSubstr("has layout 3, of a newer build")));
  layoutIs(MAC_REWRITE_LAYOUT);
  EXPECT_EQ(row(KernelProgram(options())), kAction);
}

TEST_F(KernelProgramTest, ProgramOfAnOlderBuildIsReplacedOnItsDevices) {
  ASSERT_EQ(BfnTest::shell("ip link add vx0 type vxlan id 1 dstport 4789"), 0);
  {
    KernelProgram program(options());
    rowIs(program);
    BfnKernel::Ports(program).attach("vx0", 100);
  }
  otherProgramIs(pin("program"));
  ASSERT_EQ(BfnTest::shell("tc filter replace dev vx0 egress protocol all pref 9 handle "
                           "0x4b6976 bpf da object-pinned " +
                           pin("program")),
            0);
  KernelProgram program(options());
  EXPECT_THAT(program.notices(),
              ElementsAre("the program in " + directory().string() + " was replaced"));
  EXPECT_EQ(row(program), kAction);
  auto const ports = BfnKernel::Ports(program).list();
  ASSERT_EQ(ports.size(), 1u);
  EXPECT_TRUE(ports[0].attached);
  EXPECT_EQ(ports[0].vlan, 100);
}

TEST_F(KernelProgramTest, LayoutWithoutAStampIsMigrated) {
  ASSERT_EQ(BfnTest::shell("ip link add vx0 type vxlan id 1 dstport 4789"), 0);
  { KernelProgram const fileSystem(options(0)); }
  {
    BpfMap const rows{FileDescriptor(
        bpf_map_create(BPF_MAP_TYPE_HASH, "rows", sizeof(U64), sizeof(U64), 50, nullptr))};
    BpfMap const devices{FileDescriptor(
        bpf_map_create(BPF_MAP_TYPE_HASH, "device_vlan", sizeof(U32), sizeof(U32), 50, nullptr))};
    ASSERT_EQ(rows.update(&kKey, &kAction, BPF_ANY), 0);
    U32 const device = if_nametoindex("vx0");
    U32 const vlan = 100;
    ASSERT_EQ(devices.update(&device, &vlan, BPF_ANY), 0);
    ASSERT_EQ(bpf_obj_pin(rows.fd(), pin("rows").c_str()), 0);
    ASSERT_EQ(bpf_obj_pin(devices.fd(), pin("device_vlan").c_str()), 0);
    otherProgramIs(pin("program"));
    ASSERT_EQ(BfnTest::shell("tc qdisc add dev vx0 clsact && tc filter add dev vx0 egress "
                             "protocol all pref 9 handle 0x4b6976 bpf da object-pinned " +
                             pin("program")),
              0);
  }
  KernelProgram program(options(50));
  EXPECT_THAT(program.notices(),
              ElementsAre("layout 1 in " + directory().string() + " was migrated to layout 2"));
  EXPECT_EQ(row(program), kAction);
  EXPECT_FALSE(std::filesystem::exists(pin("device_vlan")));
  EXPECT_FALSE(std::filesystem::exists(pin("new")));
  auto const ports = BfnKernel::Ports(program).list();
  ASSERT_EQ(ports.size(), 1u);
  EXPECT_EQ(ports[0].device, "vx0");
  EXPECT_EQ(ports[0].vlan, 100);
  EXPECT_TRUE(ports[0].attached);
}

TEST_F(KernelProgramTest, WhatWasLeftHalfMadeIsMadeAnew) {
  { KernelProgram const fileSystem(options(0)); }
  ASSERT_EQ(mkdir(pin("new").c_str(), 0700), 0);
  FileDescriptor const rows(
      bpf_map_create(BPF_MAP_TYPE_HASH, "rows", sizeof(U64), sizeof(U64), 7, nullptr));
  ASSERT_EQ(bpf_obj_pin(rows.get(), pin("new/rows").c_str()), 0);
  KernelProgram const program(options(50));
  EXPECT_EQ(program.rows().shape().entries, 50u);
  EXPECT_FALSE(std::filesystem::exists(pin("new")));
}

TEST_F(KernelProgramTest, InstallationThatWasInterruptedIsFinished) {
  { rowIs(KernelProgram(options(50))); }
  // All is pinned again, and only the first map has been moved.
  ASSERT_EQ(mkdir(pin("new").c_str(), 0700), 0);
  for (char const* name : {"hits", "devices", "vnis", "counters", "program", "layout"}) {
    ASSERT_EQ(rename(pin(name).c_str(), pin(std::string("new/") + name).c_str()), 0);
  }
  KernelProgram const program(options(50));
  EXPECT_EQ(row(program), kAction);
  EXPECT_THAT(program.notices(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(pin("new")));
  EXPECT_TRUE(std::filesystem::exists(pin("layout")));
}

TEST_F(KernelProgramTest, RemovalLeavesNothingBehind) {
  KernelProgram program(options());
  program.remove();
  EXPECT_FALSE(std::filesystem::exists(directory()));
  EXPECT_NE(BfnTest::shell("grep -q bpf /proc/self/mounts"), 0);
}

TEST_F(KernelProgramTest, FileSystemThatWasThereStays) {
  ASSERT_EQ(mkdir(directory().c_str(), 0700), 0);
  ASSERT_EQ(BfnTest::shell("mount -t bpf bpf " + directory().string()), 0);
  BfnKernel::KernelOptions const below{directory() / "one", 10};
  KernelProgram program(below);
  program.remove();
  EXPECT_FALSE(std::filesystem::exists(below.directory));
  EXPECT_EQ(BfnTest::shell("grep -q bpf /proc/self/mounts"), 0);
}

}  // namespace
