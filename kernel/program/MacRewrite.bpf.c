// SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause
// Gives frames that enter a VXLAN tunnel the source MAC of the row that they match.
//
// Sits on the egress of a VXLAN device (tc, clsact), where a frame is still the inner one. It
// changes at most the six bytes of the source MAC, drops nothing, and returns TC_ACT_UNSPEC, so
// that filters after it run. Checksum and segmentation states of the frame are left alone: the
// source MAC is in no checksum.
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/ip.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#include "kernel/program/Layout.h"

// Key and action are the chip's bytes, as the table binding writes them.
struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, 65536);
  __type(key, __u64);
  __type(value, __u64);
} rows SEC(".maps");

// Hits of rows, added at a row's first hit.
struct {
  __uint(type, BPF_MAP_TYPE_PERCPU_HASH);
  __uint(max_entries, 65536);
  __uint(map_flags, BPF_F_NO_PREALLOC);
  __type(key, __u64);
  __type(value, __u64);
} hits SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, 4096);
  __uint(map_flags, BPF_F_NO_PREALLOC);
  __type(key, __u32);
  __type(value, struct mac_rewrite_device);
} devices SEC(".maps");

// VNI -> VLAN.
struct {
  __uint(type, BPF_MAP_TYPE_HASH);
  __uint(max_entries, 4096);
  __uint(map_flags, BPF_F_NO_PREALLOC);
  __type(key, __u32);
  __type(value, __u32);
} vnis SEC(".maps");

struct {
  __uint(type, BPF_MAP_TYPE_PERCPU_ARRAY);
  __uint(max_entries, 1);
  __type(key, __u32);
  __type(value, struct mac_rewrite_counters);
} counters SEC(".maps");

#define VLAN_MASK 0xfff
#define RESERVED_VLAN 4095
#define TAG_BYTES 4
#define MAX_OPTION_WORDS 10
// The next power of two.
#define OPTION_ROOM 16

#define MATCH_TYPE 5ull
#define VALID 1ull
// The bytes of an action that make the MAC.
#define MAC_MASK 0x00ffffff00ffffffull

static __always_inline __u64 little_endian(__u64 number) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return number;
#else
  return __builtin_bswap64(number);
#endif
}

static __always_inline const void* start(const struct __sk_buff* skb) {
  return (const void*)(long)skb->data;
}
static __always_inline const void* limit(const struct __sk_buff* skb) {
  return (const void*)(long)skb->data_end;
}

static __always_inline int is_tag(__be16 type) {
  return type == bpf_htons(ETH_P_8021Q) || type == bpf_htons(ETH_P_8021AD);
}

// The VNI of the frame's tunnel metadata, 0 when it has none. The size is one that every kernel
// takes, whatever it has added to the structure.
static __always_inline __u32 metadata_vni(struct __sk_buff* skb) {
  struct bpf_tunnel_key key = {};
  const __u32 size = __builtin_offsetof(struct bpf_tunnel_key, tunnel_label);
  if (bpf_skb_get_tunnel_key(skb, &key, size, 0) == 0) return key.tunnel_id;
  if (bpf_skb_get_tunnel_key(skb, &key, size, BPF_F_TUNINFO_IPV6) == 0) return key.tunnel_id;
  return 0;
}

// By device, else by VNI, else by tag; 0 when none of them says.
static __always_inline __u32 vlan_of(struct __sk_buff* skb, __u32 tag_vlan) {
  __u32 index = skb->ifindex;
  const struct mac_rewrite_device* device = bpf_map_lookup_elem(&devices, &index);
  if (device && device->vlan) return device->vlan;
  __u32 vni = metadata_vni(skb);
  if (!vni && device) vni = device->vni;
  if (vni) {
    const __u32* vlan = bpf_map_lookup_elem(&vnis, &vni);
    if (vlan) return *vlan;
  }
  return tag_vlan;
}

static __always_inline void count_hit(const __u64* key) {
  __u64* count = bpf_map_lookup_elem(&hits, key);
  if (count) {
    ++*count;
    return;
  }
  // Another CPU may have added the row's entry meanwhile: then count in that one.
  const __u64 first = 1;
  if (bpf_map_update_elem(&hits, key, &first, BPF_NOEXIST) == 0) {
    // The eraser of a row erases its hits after it, but may have done so before they were added.
    if (!bpf_map_lookup_elem(&rows, key)) bpf_map_delete_elem(&hits, key);
    return;
  }
  count = bpf_map_lookup_elem(&hits, key);
  if (count) ++*count;
}

static __always_inline int look_up(struct __sk_buff* skb, __u32 vlan, __be32 source) {
  const __u64 source_bytes = little_endian((__u64)source) & 0xffffffff;
  const __u64 key =
      little_endian(MATCH_TYPE | (__u64)vlan << 8 | source_bytes << 24 | VALID << 56);
  const __u64* row = bpf_map_lookup_elem(&rows, &key);
  if (!row) return MAC_REWRITE_NO_ROW;
  const __u64 action = little_endian(*row);
  count_hit(&key);
  if (!(action & MAC_MASK)) return MAC_REWRITE_NO_MAC;
  const __u8 mac[ETH_ALEN] = {action >> 16, action >> 8, action, action >> 48, action >> 40,
                              action >> 32};
  const int failed = bpf_skb_store_bytes(skb, ETH_ALEN, mac, ETH_ALEN, 0);
  return failed ? MAC_REWRITE_NO_MEMORY : MAC_REWRITE_REWRITTEN;
}

// The IPv4 packet starts `at` bytes into the frame.
static __always_inline int forward_ipv4(struct __sk_buff* skb, const __u32 at, __u32 tag_vlan) {
  if (start(skb) + at + sizeof(struct iphdr) > limit(skb))
    bpf_skb_pull_data(skb, at + sizeof(struct iphdr));
  const void* end = limit(skb);
  const struct iphdr* ip = start(skb) + at;
  if ((const void*)(ip + 1) > end) return MAC_REWRITE_BAD_IPV4_HEADER;

  const __u32 there = skb->len - at;
  const __u32 header = ip->ihl * 4;
  __u32 total = bpf_ntohs(ip->tot_len);
  // A frame yet to be segmented that is too long for the field says 0.
  if (total == 0 && skb->gso_size) total = there;
  if (ip->version != 4 || header < sizeof(struct iphdr) || header > there || total < header)
    return MAC_REWRITE_BAD_IPV4_HEADER;
  if (total > there) return MAC_REWRITE_IPV4_CUT_SHORT;

  const __u32* word = (const __u32*)ip;
  __u64 sum = (__u64)word[0] + word[1] + word[2] + word[3] + word[4];
  const __be32 source = ip->saddr;
  const __u32 option_bytes = header - sizeof(struct iphdr);
  if (option_bytes) {
    // 4 to 40 bytes. Older kernels know a number's bounds from the mask only, not from comparisons.
    __u32 options[OPTION_ROOM] = {};
    __u32 last = option_bytes - 1;
    barrier_var(last);
    last &= sizeof(options) - 1;
    if (bpf_skb_load_bytes(skb, at + sizeof(struct iphdr), options, last + 1))
      return MAC_REWRITE_BAD_IPV4_HEADER;
    for (int i = 0; i < MAX_OPTION_WORDS; ++i) sum += options[i];
  }
  sum = (sum & 0xffffffff) + (sum >> 32);
  sum = (sum & 0xffff) + (sum >> 16);
  sum = (sum & 0xffff) + (sum >> 16);
  sum = (sum & 0xffff) + (sum >> 16);
  if (sum != 0xffff) return MAC_REWRITE_BAD_IPV4_CHECKSUM;

  const __u32 vlan = vlan_of(skb, tag_vlan);
  return vlan ? look_up(skb, vlan, source) : MAC_REWRITE_NO_VLAN;
}

// The first rule that applies decides.
static __always_inline int forward(struct __sk_buff* skb) {
  if (start(skb) + ETH_HLEN + TAG_BYTES > limit(skb))
    bpf_skb_pull_data(skb, skb->len < ETH_HLEN + TAG_BYTES ? skb->len : ETH_HLEN + TAG_BYTES);
  const void* end = limit(skb);
  const struct ethhdr* ethernet = start(skb);
  if ((const void*)(ethernet + 1) > end) return MAC_REWRITE_TOO_SHORT;

  // The first tag may be beside the frame's bytes or in them.
  __be16 type = ethernet->h_proto;
  __u32 tag_vlan = 0;
  int tag_in_bytes = 0;
  if (skb->vlan_present) {
    tag_vlan = skb->vlan_tci & VLAN_MASK;
  } else if (is_tag(type)) {
    const __be16* tag = (const void*)(ethernet + 1);
    if ((const void*)(tag + 2) > end) return MAC_REWRITE_TOO_SHORT;
    tag_vlan = bpf_ntohs(tag[0]) & VLAN_MASK;
    type = tag[1];
    tag_in_bytes = 1;
  }
  if (tag_vlan == RESERVED_VLAN) return MAC_REWRITE_RESERVED_VLAN;
  if (is_tag(type)) return MAC_REWRITE_DOUBLE_TAGGED;
  if (type == bpf_htons(ETH_P_ARP)) return MAC_REWRITE_ARP;
  if (type == bpf_htons(ETH_P_IPV6)) return MAC_REWRITE_IPV6;
  if (type != bpf_htons(ETH_P_IP)) return MAC_REWRITE_OTHER_PROTOCOL;
  if (tag_in_bytes) return forward_ipv4(skb, ETH_HLEN + TAG_BYTES, tag_vlan);
  return forward_ipv4(skb, ETH_HLEN, tag_vlan);
}

// Each counter has an instruction of its own: to add a number that differs by path to a pointer takes
// the right CAP_PERFMON.
static __always_inline void count(struct mac_rewrite_counters* counted, __u32 verdict) {
#pragma unroll
  for (__u32 i = 0; i < MAC_REWRITE_COUNTERS; ++i) {
    if (verdict != i) continue;
    ++counted->frames[i];
    barrier();
  }
}

SEC("tc")
int mac_rewrite(struct __sk_buff* skb) {
  const __u32 verdict = forward(skb);
  const __u32 only = 0;
  struct mac_rewrite_counters* counted = bpf_map_lookup_elem(&counters, &only);
  if (counted) count(counted, verdict);
  return TC_ACT_UNSPEC;
}

char mac_rewrite_license[] SEC("license") = "Dual BSD/GPL";
