// SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause
// The kernel program with another source address at each run, so that a benchmark which repeats one
// frame looks up 65,536 rows. What the source gains, the destination loses: the header's checksum
// stays right.
#include "kernel/program/MacRewrite.bpf.c"

struct {
  __uint(type, BPF_MAP_TYPE_ARRAY);
  __uint(max_entries, 1);
  __type(key, __u32);
  __type(value, __u32);
} turn SEC(".maps");

SEC("tc")
int spread(struct __sk_buff* skb) {
  const __u32 only = 0;
  __u32* number = bpf_map_lookup_elem(&turn, &only);
  if (!number) return TC_ACT_UNSPEC;
  // An odd step: all of them in turn, none near the one before.
  *number = (*number + 40503) & 0xffff;
  struct iphdr* ip = (void*)start(skb) + ETH_HLEN;
  if ((const void*)(ip + 1) > limit(skb)) return TC_ACT_UNSPEC;
  ip->saddr = bpf_htonl(0x0a000000 | *number);
  ip->daddr = bpf_htonl(0x0a010000 | (*number ^ 0xffff));
  const __u32 verdict = forward(skb);
  struct mac_rewrite_counters* counted = bpf_map_lookup_elem(&counters, &only);
  if (counted) ++counted->frames[verdict & (MAC_REWRITE_COUNTERS - 1)];
  return TC_ACT_UNSPEC;
}
