// SPDX-License-Identifier: Apache-2.0
#include "tests/kernel/KernelFixture.h"

#include <bpf/bpf.h>
#include <linux/bpf.h>

namespace BfnTest {

std::optional<Ran> run(int program, std::span<Kiv::U8 const> frame, int device) {
  Ran ran;
  ran.frame.resize(frame.size() + 64);
  __sk_buff context{};
  context.ifindex = static_cast<Kiv::U32>(device);
  bpf_test_run_opts options{};
  options.sz = sizeof options;
  options.data_in = frame.data();
  options.data_size_in = static_cast<Kiv::U32>(frame.size());
  options.data_out = ran.frame.data();
  options.data_size_out = static_cast<Kiv::U32>(ran.frame.size());
  options.ctx_in = &context;
  options.ctx_size_in = sizeof context;
  options.repeat = 1;
  if (bpf_prog_test_run_opts(program, &options) != 0) return std::nullopt;
  ran.frame.resize(options.data_size_out);
  ran.result = static_cast<int>(options.retval);
  return ran;
}

}  // namespace BfnTest
