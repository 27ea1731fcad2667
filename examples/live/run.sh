#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows rows that the plug-in has written at work on real packets: two leaf switches, an underlay,
# two VLANs with a host in each at both leaves. Everything is made in namespaces of its own, which
# go with this script, also when it is interrupted or killed.
#
#   run.sh LAB    LAB: the lab's program
set -euo pipefail

here=$(dirname "$(realpath "$0")")
# shellcheck source=examples/namespaces.sh
. "$here/../namespaces.sh"
[[ ${1-} == --inside ]] ||
  enter 'live: it makes network namespaces and fills a table in the kernel' "$(realpath "$1")"
lab=$2
table=kernel:/run/table

# --- The network: leaf1 leaf2, and the hosts a1 b1 at leaf 1, a2 b2 at leaf 2

make_namespaces leaf1 leaf2 a1 b1 a2 b2
wire leaf1 underlay leaf2 underlay
for leaf in 1 2; do
  other=$((3 - leaf))
  in_ns leaf$leaf ip -b - << END
link set underlay mtu 1600 up
addr add 192.0.2.$leaf/24 dev underlay
END
  for vlan in 100 200; do
    host=$([[ $vlan == 100 ]] && echo a || echo b)$leaf
    wire leaf$leaf "port$vlan" "$host" eth0
    in_ns leaf$leaf ip -b - << END
link add vx$vlan type vxlan id 10$vlan dstport 4789 local 192.0.2.$leaf remote 192.0.2.$other
link add br$vlan type bridge mcast_snooping 0
link set vx$vlan master br$vlan up
link set port$vlan master br$vlan up
link set br$vlan up
END
    in_ns "$host" ip -b - << END
link set eth0 address 02:aa:00:00:0${vlan:0:1}:0$leaf up
addr add 10.1.0.$leaf/24 dev eth0
END
  done
done

cat << 'END'
Network: the same addresses in two VLANs; leaf 1's VXLAN devices are looked up in the kernel's table

  a1 10.1.0.1 -- VLAN 100 -- leaf 1 == VXLAN 10100 == leaf 2 -- VLAN 100 -- a2 10.1.0.2   VRF red
  b1 10.1.0.1 -- VLAN 200 -- leaf 1 == VXLAN 10200 == leaf 2 -- VLAN 200 -- b2 10.1.0.2   VRF blue

END

# A ping from the near host, as tcpdump shows it at the far one.
ping_seen() { # LETTER
  local log=/run/tcpdump
  rm -f "$log" "$log.err"
  in_ns "${1}2" timeout 10 tcpdump -i eth0 -Q in -c 1 -e -n -t -l icmp > "$log" 2> "$log.err" &
  local capture=$!
  until grep -qs '^listening' "$log.err"; do
    kill -0 "$capture" || { cat "$log.err" >&2 && return 1; }
    sleep 0.01
  done
  in_ns "${1}1" ping -q -c 3 -i 0.05 10.1.0.2 | sed -nE "s/^(3 packets .* loss).*/  ${1}1: \\1/p"
  wait "$capture"
  cut -d, -f1,3- "$log" | sed -E "s/ethertype [^,]*, //; s/ id [0-9]+,//; s/^/  ${1}2: /"
}

# Status 3, with the lab's line, when this machine cannot.
in_ns leaf1 "$lab" --table "$table" /dev/null

echo 'Ping before: the far host sees the MAC of the near one'
ping_seen a
ping_seen b
echo
echo "The plug-in on leaf 1: bring-up, the VRFs, the operator's lines"
grep '^vxlan' "$here/bring-up.inc" | sed 's/^/  > /'
in_ns leaf1 "$lab" --table "$table" "$here/leaf1.lab" | sed 's/^/  /'
echo
echo 'Ping after: it sees the MAC of the row, though no process is there any more'
ping_seen a
ping_seen b
echo
echo 'The lab once more, over the same table: no row is written'
in_ns leaf1 "$lab" --table "$table" "$here/look.lab" | sed 's/^/  /'
