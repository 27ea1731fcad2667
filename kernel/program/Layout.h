/* SPDX-License-Identifier: GPL-2.0-only OR BSD-2-Clause */
/* What the kernel program and the library around it share: the shapes of the maps and the numbers
 * of the counters. Plain C, compiled by both. */
#pragma once

#include <linux/types.h>

/* Raised when the shape or the meaning of a map changes; the library migrates older ones.
 *   1  `device_vlan` (device -> VLAN) in place of `devices`; no hits, no stamp
 *   2  as below */
#define MAC_REWRITE_LAYOUT 2

/* The one entry of the map `layout`. */
struct mac_rewrite_layout {
  __u32 version;
  /* Not 0: the library mounted the bpf file system that the directory is on. */
  __u32 mounted;
};

#define MAC_REWRITE_NAME_BYTES 16

/* An entry of the map `devices`, whose key is the device's index. */
struct mac_rewrite_device {
  /* The VLAN of its frames, or 0: by VNI, else by tag. */
  __u32 vlan;
  /* The VNI of its frames unless a frame has tunnel metadata; 0 when the device has none. */
  __u32 vni;
  /* Not 0: the library made the device's clsact qdisc. */
  __u32 made_qdisc;
  char name[MAC_REWRITE_NAME_BYTES];
};

/* What became of a frame; each is counted. The order is that of the map's value. */
enum mac_rewrite_verdict {
  MAC_REWRITE_REWRITTEN,
  MAC_REWRITE_NO_MAC,  /* a row matched that has the all-zero MAC */
  MAC_REWRITE_NO_ROW,  /* IPv4, and no row matched */
  MAC_REWRITE_NO_VLAN, /* IPv4, and neither device, VNI nor tag give it a VLAN */
  MAC_REWRITE_ARP,
  MAC_REWRITE_IPV6,
  MAC_REWRITE_OTHER_PROTOCOL,
  MAC_REWRITE_DOUBLE_TAGGED,
  MAC_REWRITE_TOO_SHORT,
  MAC_REWRITE_RESERVED_VLAN,
  MAC_REWRITE_BAD_IPV4_HEADER,
  MAC_REWRITE_IPV4_CUT_SHORT,
  MAC_REWRITE_BAD_IPV4_CHECKSUM,
  MAC_REWRITE_NO_MEMORY, /* a row matched, and the kernel had no memory to change the frame */
  MAC_REWRITE_VERDICTS
};

/* The one entry of the per-CPU map `counters`. A power of two, so that an index is in bounds. */
#define MAC_REWRITE_COUNTERS 16
struct mac_rewrite_counters {
  __u64 frames[MAC_REWRITE_COUNTERS];
};
