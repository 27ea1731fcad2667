#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows services that lose no packet: two leaf switches whose rows are in the kernel, one database
# for both, a spine between them, and hosts that ping each other meanwhile. Everything is made in
# namespaces of its own, which go with this script, also when it is interrupted or killed.
#
#   run.sh BIN    BIN: the folder of macrewrited and macrewrite
set -euo pipefail

here=$(dirname "$(realpath "$0")")
# shellcheck source=examples/namespaces.sh
. "$here/../namespaces.sh"
[[ ${1-} == --inside ]] ||
  enter 'fabric: it makes network namespaces and fills tables in the kernel' "$(realpath "$1")"
bin=$2

fail() {
  echo "fabric: $*" >&2
  tail -n 5 /run/leaf*/log >&2 || true
  exit 1
}

# --- The network: hosts a1 b1 at leaf 1, a2 b2 at leaf 2, and the spine that routes between both

make_namespaces leaf1 leaf2 spine a1 b1 a2 b2
in_ns spine sh -c 'echo 1 > /proc/sys/net/ipv4/ip_forward'

for leaf in 1 2; do
  other=$((3 - leaf))
  wire leaf$leaf uplink spine leaf$leaf mtu 1600
  in_ns spine ip -b - << END
link set leaf$leaf mtu 1600 up
addr add 192.0.2.$((leaf * 4 + 1))/30 dev leaf$leaf
END
  in_ns leaf$leaf ip -b - << END
link set uplink up
addr add 192.0.2.$((leaf * 4 + 2))/30 dev uplink
route add default via 192.0.2.$((leaf * 4 + 1))
END
  for vlan in 100 200; do
    host=$([[ $vlan == 100 ]] && echo a || echo b)$leaf
    wire leaf$leaf "port$vlan" "$host" eth0
    in_ns leaf$leaf ip -b - << END
link add vx$vlan type vxlan id 10$vlan dstport 4789 local 192.0.2.$((leaf * 4 + 2)) remote 192.0.2.$((other * 4 + 2))
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
Network: four hosts in two VLANs, two leaves with VXLAN, a spine; a service on each leaf, one database

  a1 10.1.0.1 -- leaf 1 == 10100 == spine == 10100 == leaf 2 -- a2 10.1.0.2   VLAN 100, VRF red
  b1 10.1.0.1 -- leaf 1 == 10200 == spine == 10200 == leaf 2 -- b2 10.1.0.2   VLAN 200, VRF blue

END

# --- The processes

database="redis+unix:///run/redis/socket"
start_redis() {
  mkdir -p /run/redis
  redis-server --port 0 --unixsocket /run/redis/socket --dir /run/redis --save '' --appendonly yes \
    --appendfsync no > /run/redis/log &
  redis=$!
  until [[ -S /run/redis/socket ]] && grep -qi 'ready to accept\|now ready' /run/redis/log; do
    kill -0 "$redis" || fail 'redis-server does not start'
    sleep 0.02
  done
}
declare -A process program=([1]=$bin/macrewrited [2]=$bin/macrewrited)
start_leaf() { # N
  mkdir -p "/run/leaf$1"
  in_ns_background "leaf$1" "${program[$1]}" --table "kernel:/run/leaf$1/table" --rows 8 \
    --database "$database" --switch "leaf$1" --state "/run/leaf$1/state" --control "/run/leaf$1/control" \
    >> "/run/leaf$1/log" 2>&1
  process[$1]=$!
}
leaf() { # N COMMAND...
  "$bin/macrewrite" --socket "/run/leaf$1/control" "${@:2}"
}
ready() { # N
  local i
  for ((i = 0; i < 500; i++)); do
    if leaf "$1" status > /run/status 2> /dev/null; then return; fi
    kill -0 "${process[$1]}" 2> /dev/null || start_leaf "$1"
    sleep 0.02
  done
  cat /run/status >&2
  fail "leaf $1 is not ready"
}
# A value of the status.
status() { # N KEY...
  leaf "$1" --json status | python3 -c '
import json, sys
value = json.load(sys.stdin)
for key in sys.argv[1:]: value = value[key]
print(value)' "${@:2}"
}

# --- Packets: 100 a second from each near host to the far one, from now on

declare -A ping
start_pings() {
  local host
  for host in a b; do
    in_ns_background ${host}1 ping -q -i 0.01 10.1.0.2 > "/run/ping-$host" 2>&1
    ping[$host]=$!
  done
}
stop_pings() { # sets sent and lost
  local host
  sent=0 lost=0
  for host in a b; do
    kill -INT "${ping[$host]}"
    wait "${ping[$host]}" || true
    read -r one answered < <(sed -nE 's/^([0-9]+) packets transmitted, ([0-9]+) received.*/\1 \2/p' "/run/ping-$host")
    sent=$((sent + one)) lost=$((lost + one - answered))
  done
}
all_lost=0
# Pings through what the command does, and how many were lost.
under_pings() { # TEXT COMMAND...
  start_pings
  sleep 0.3
  "${@:2}"
  sleep 0.3
  stop_pings
  ((sent > 20)) || fail 'there were no pings'
  all_lost=$((all_lost + lost))
  printf '  %-62s %s pings lost\n' "$1" "$lost"
}
macs_seen() {
  local host log=/run/tcpdump
  for host in a b; do
    rm -f "$log" "$log.err"
    in_ns ${host}2 timeout 10 tcpdump -i eth0 -Q in -c 1 -e -n -t -l icmp > "$log" 2> "$log.err" &
    local capture=$!
    until grep -qs '^listening' "$log.err"; do sleep 0.01; done
    in_ns ${host}1 ping -q -c 2 -i 0.05 10.1.0.2 > /dev/null
    wait "$capture"
    echo "  ${host}2 sees its packets from $(cut -d' ' -f1 "$log")"
  done
}

start_redis
for n in 1 2; do start_leaf $n; done
for n in 1 2; do
  until [[ -S /run/leaf$n/control ]]; do
    kill -0 "${process[$n]}" 2> /dev/null || { cat /run/leaf$n/log >&2; exit 3; }
    sleep 0.02
  done
  leaf $n << END || fail "leaf $n refuses its facts"
host profile vxlan-routing rewrite supported table-size 1000
host use profile vxlan-routing
host vrf red id 7
host vrf blue id 8
host routing-status vlan Vlan100 key-vlan 100 vlan 100 vrf-id 7
host routing-status vlan Vlan200 key-vlan 200 vlan 200 vrf-id 8
host address 10.1.0.$n vrf-id 7 interface Vlan100
host address 10.1.0.$n vrf-id 8 interface Vlan200
chip port vx100 vlan 100
chip port vx200 vlan 200
host inputs complete
END
  ready $n
done

echo 'Two lines of the operator, entered once, into the database'
lines=('vxlan forwarding match vrf red src-ip 10.1.0.1 action rewrite src-mac 02:5e:00:00:01:00'
  'vxlan forwarding match vrf blue src-ip 10.1.0.1 action rewrite src-mac 02:5e:00:00:02:00')
for line in "${lines[@]}"; do
  echo "  > $line"
  "$bin/macrewrite" --database "$database" "$line"
done
for n in 1 2; do
  until [[ $(leaf $n show running-config | wc -l) == 2 ]]; do sleep 0.01; done
  echo "  leaf $n has $(leaf $n show running-config | wc -l) lines and $(status $n rows installed) rows"
done
macs_seen
echo

echo 'Under 100 pings a second from a1 and from b1'
kill_service() {
  kill -9 "${process[1]}"
  wait "${process[1]}" 2> /dev/null || true
  sleep 0.3
  start_leaf 1
  ready 1
}
under_pings 'kill -9 of the service on leaf 1, and another one started' kill_service
echo "    writes of the new service: $(status 1 chipChanges)"

upgrade() {
  program[1]=$bin/macrewrited-next
  kill -TERM "${process[1]}"
  wait "${process[1]}"
  start_leaf 1
  ready 1
}
before=$(leaf 1 show version)
under_pings 'the service on leaf 1 ended, and its next version started' upgrade
[[ $(leaf 1 show version) == "$before+next" ]] || fail 'leaf 1 has not been upgraded'
echo "    writes of the new service: $(status 1 chipChanges)"

restart_redis() {
  kill -9 "$redis"
  wait "$redis" 2> /dev/null || true
  until [[ $(status 1 store state) == away ]]; do sleep 0.02; done
  if leaf 1 "${lines[0]}" 2> /run/refused; then fail 'a line was taken without the database'; fi
  start_redis
  for n in 1 2; do ready $n; done
}
under_pings 'the database killed and started again' restart_redis
echo "    a line entered meanwhile: $(cut -c1-30 /run/refused)... refused"
echo "    writes of the service: $(status 1 chipChanges)"

fill() {
  local i
  for ((i = 11; i <= 18; i++)); do
    leaf 1 "host address 10.1.0.$i vrf-id 7 interface Vlan100"
  done
  echo "    rows on leaf 1: $(status 1 rows wanted) wanted, $(status 1 rows installed) installed," \
    "$(status 1 rows waiting) waiting" > /run/full
  for ((i = 11; i <= 12; i++)); do
    leaf 1 "no host address 10.1.0.$i vrf-id 7"
  done
  echo "    two of them removed: $(status 1 rows wanted) wanted, $(status 1 rows installed) installed," \
    "$(status 1 rows waiting) waiting" >> /run/full
}
under_pings 'more addresses than the table of leaf 1 has rows' fill
cat /run/full
macs_seen
((all_lost == 0)) || fail "$all_lost pings were lost"
