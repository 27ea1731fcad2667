#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Records hosts.pcap: real traffic of three hosts on a switch, each a network namespace of this
# machine, as the switch receives it, VLAN tags and all.
#
#   examples/leaf1/capture.sh [OUT.pcap]       as root; needs iproute2, iputils-ping, tcpdump,
#                                              ethtool and python3
#
# Every name, address and MAC is given, so that the configuration beside this file fits each new
# recording; only times, identifiers and the order of simultaneous frames differ.
#
#            no tag       VLAN 100     VLAN 300     VLAN 20 in 300   MAC
#   hosta    10.1.2.10    10.1.1.11    -            10.9.0.1         02:aa:00:00:00:0a
#   hostb    10.1.2.20    10.1.1.20    10.1.1.40    -                02:aa:00:00:00:0b
#   hostc    10.1.2.30    -            10.1.1.11    10.9.0.3         02:aa:00:00:00:0c
#
# 10.1.1.11 lives in two VLANs: its packets differ in the VLAN only.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
out=${1:-$here/hosts.pcap}
switch=labsw$$
declare -A host=([a]="labha$$" [b]="labhb$$" [c]="labhc$$")
processes=()
work=$(mktemp -d)

clean_up() {
  ((${#processes[@]} == 0)) || kill "${processes[@]}" 2> /dev/null || true
  for namespace in "$switch" "${host[@]}"; do
    ip netns delete "$namespace" 2> /dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT

on() { # NAMESPACE COMMAND...
  ip netns exec "$@"
}

start() { # NAMESPACE COMMAND...: in the background, until the end
  ip netns exec "$@" &  # becomes the command, so that the process is the command's
  processes+=($!)
}

eventually() { # COMMAND...: for ten seconds
  for ((i = 0; i < 100; ++i)); do
    "$@" && return
    sleep 0.1
  done
  echo "capture.sh: waited in vain for: $*" >&2
  exit 1
}

if ((EUID != 0)); then
  echo "capture.sh: must be run as root: it makes network namespaces" >&2
  exit 2
fi
for program in ip tcpdump ping ethtool python3; do
  command -v "$program" > /dev/null || { echo "capture.sh: $program is missing" >&2; exit 2; }
done

# --- The switch and its hosts ---------------------------------------------------------------------

ip netns add "$switch"
on "$switch" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1
ip -n "$switch" link add lab0 mtu 9000 type bridge mcast_snooping 0
ip -n "$switch" link set lab0 mtu 9000 up
for name in a b c; do
  ip netns add "${host[$name]}"
  # IPv6 comes up late, and only where it is wanted; until then no chatter.
  on "${host[$name]}" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 \
    net.ipv6.conf.default.disable_ipv6=1
  ip -n "${host[$name]}" link add eth0 address "02:aa:00:00:00:0$name" mtu 9000 type veth \
    peer name "port$name" mtu 9000 netns "$switch"
  ip -n "$switch" link set "port$name" master lab0 up
  # Otherwise checksums are left to the hardware, which is none.
  on "${host[$name]}" ethtool -K eth0 tx off > /dev/null
  ip -n "${host[$name]}" link set eth0 up
done

# The sub-interfaces of a host: taps, which a small program joins to eth0, adding and taking tags.
# Unlike sub-interfaces of the kernel's they are there in every kernel.
cat > "$work/subinterfaces.py" << 'PYTHON'
import fcntl, select, socket, struct, sys

TUNSETIFF, IFF_TAP, IFF_NO_PI = 0x400454CA, 0x0002, 0x1000
SOL_PACKET, PACKET_AUXDATA, ETH_P_ALL, PACKET_OUTGOING = 263, 8, 3, 4
TAG_PRESENT = 0x10

port = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
port.bind(("eth0", ETH_P_ALL))
port.setsockopt(SOL_PACKET, PACKET_AUXDATA, 1)

taps = {}  # the tags as bytes, outer first: the tap
for name in sys.argv[1:]:
    tap = open("/dev/net/tun", "r+b", buffering=0)
    fcntl.ioctl(tap, TUNSETIFF, struct.pack("16sH", name.encode(), IFF_TAP | IFF_NO_PI))
    tags = b"".join(struct.pack("!HH", 0x8100, int(vlan)) for vlan in name.split(".")[1:])
    taps[tags] = tap

def receive():
    frame, extra, _, sender = port.recvmsg(65536, 256)
    if sender[2] == PACKET_OUTGOING:
        return
    for _, _, data in extra:  # where the kernel keeps the outer tag
        status, _, _, _, _, tag, kind = struct.unpack("IIIHHHH", data[:20])
        if status & TAG_PRESENT:
            frame = frame[:12] + struct.pack("!HH", kind or 0x8100, tag) + frame[12:]
    # The longest run of tags that a tap has.
    for tags in sorted(taps, key=len, reverse=True):
        if frame[12:].startswith(tags):
            taps[tags].write(frame[:12] + frame[12 + len(tags):])
            return

while True:
    for ready in select.select([port, *taps.values()], [], [])[0]:
        if ready is port:
            receive()
            continue
        frame = ready.read(65536)
        tags = next(tags for tags, tap in taps.items() if tap is ready)
        port.send(frame[:12] + tags + frame[12:])
PYTHON

is_up() { # HOST INTERFACE
  ip -n "${host[$1]}" link show "$2" | grep -q LOWER_UP
}

subinterfaces() { # HOST NAME...: in each name the VLANs, outer first
  local name
  for name in "${@:2}"; do
    ip -n "${host[$1]}" tuntap add "$name" mode tap
    ip -n "${host[$1]}" link set "$name" address "02:aa:00:00:00:0$1" up
  done
  start "${host[$1]}" python3 "$work/subinterfaces.py" "${@:2}"
  for name in "${@:2}"; do
    eventually is_up "$1" "$name"
  done
}

address() { # HOST INTERFACE ADDRESS
  ip -n "${host[$1]}" address add "$3" dev "$2"
}

subinterfaces a sub.100 sub.300.20
subinterfaces b sub.100 sub.300
subinterfaces c sub.300 sub.300.20
ip -n "${host[a]}" link set sub.100 mtu 8000
ip -n "${host[b]}" link set sub.100 mtu 8000
# hostb has 10.1.1.0/24 twice; what it sends there goes by the address it sends from, and only the
# interface of an address answers for it.
ip -n "${host[b]}" rule add from 10.1.1.40 lookup 300
on "${host[b]}" sysctl -qw net.ipv4.conf.all.arp_ignore=1 net.ipv4.conf.all.arp_announce=2
address a eth0 10.1.2.10/24
address b eth0 10.1.2.20/24
address c eth0 10.1.2.30/24
address a sub.100 10.1.1.11/24
address b sub.100 10.1.1.20/24
address b sub.300 10.1.1.40/24
address c sub.300 10.1.1.11/24
address a sub.300.20 10.9.0.1/24
address c sub.300.20 10.9.0.3/24
ip -n "${host[b]}" route add 10.1.1.0/24 dev sub.300 table 300
for name in a b c; do
  ip -n "${host[$name]}" route change 10.1.2.0/24 dev eth0 mtu 1500
done

# --- Recording ------------------------------------------------------------------------------------

cat > "$work/listen.py" << 'PYTHON'
# Takes datagrams, so that no host answers that its port is closed.
import select, socket, sys
sockets = []
for address in sys.argv[1:]:
    sockets.append(socket.socket(socket.AF_INET, socket.SOCK_DGRAM))
    sockets[-1].bind((address, 5005))
while True:
    for ready in select.select(sockets, [], [])[0]:
        ready.recv(65536)
PYTHON

listens() { # HOST ADDRESS
  on "${host[$1]}" ss -Huln "src $2:5005" | grep -q .
}

listen() { # HOST ADDRESS...
  start "${host[$1]}" python3 "$work/listen.py" "${@:2}"
  eventually listens "$1" "${!#}"
}

say() { # HOST FROM TO TEXT: one UDP datagram
  on "${host[$1]}" python3 - "${@:2}" << 'PYTHON'
import socket, sys
source, destination, text = sys.argv[1:]
udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
udp.bind((source, 40000))
udp.sendto(text.encode(), (destination, 5005))
PYTHON
}

echoes() { # HOST PING-ARGUMENTS...
  on "${host[$1]}" ping -n -q -i 0.2 -W 2 "${@:2}" > /dev/null
}

listen a 10.1.1.11 10.1.2.10
listen b 10.1.1.20 10.1.1.40
listen c 10.1.2.30

# The bridge itself is handed each frame once, as it came in.
start "$switch" tcpdump -i lab0 --immediate-mode -U -s 0 -w "$work/hosts.pcap" 2> "$work/tcpdump"
recorder=${processes[-1]}
eventually grep -q 'listening on' "$work/tcpdump"

echoes a -c 3 -I 10.1.1.11 10.1.1.20                           # VLAN 100
say a 10.1.1.11 10.1.1.20 "tagged, from hosta"
say b 10.1.1.20 10.1.1.11 "tagged, from hostb"
echoes c -c 2 10.1.2.10                                        # no tag
say c 10.1.2.30 10.1.2.10 "untagged, from hostc"
say a 10.1.2.10 10.1.2.30 "untagged, from hosta"
echoes c -c 2 -I 10.1.1.11 10.1.1.40                           # VLAN 300, where hostc has hosta's
say c 10.1.1.11 10.1.1.40 "the same address in VLAN 300"       # address
echoes c -c 1 -s 2000 10.1.2.10                                # fragments, both ways
echoes a -c 1 -s 3000 -M "do" -I 10.1.1.11 10.1.1.20           # jumbo frames
echoes c -c 1 10.9.0.1                                         # two tags
echoes c -c 1 -R 10.1.2.20                                     # IPv4 options
ipv6() { # HOST INTERFACE ADDRESS
  on "${host[$1]}" sysctl -qw "net/ipv6/conf/$2/addr_gen_mode=1" "net/ipv6/conf/$2/accept_dad=0" \
    "net/ipv6/conf/$2/router_solicitations=0" "net/ipv6/conf/$2/disable_ipv6=0"
  ip -n "${host[$1]}" address add "$3" dev "$2" nodad
}
ipv6 a eth0 fd00:2::a/64
ipv6 b eth0 fd00:2::b/64
ipv6 a sub.100 fd00:1::a/64
ipv6 b sub.100 fd00:1::b/64
echoes a -c 1 fd00:2::b                                        # IPv6, without a tag and in VLAN 100
echoes b -c 1 fd00:1::a

sleep 1  # the recorder is done with what it was handed
kill -INT "$recorder"
wait "$recorder" || true
install -m 644 "$work/hosts.pcap" "$out"
printf '%s: %s frames\n' "$out" "$(tcpdump -nn -t -q -r "$out" 2> /dev/null | grep -c .)"
