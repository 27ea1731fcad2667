#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Service and client at a Redis server that speaks TLS alone, through a local proxy as docs/operations.md has it. Skipped
# (77) where a program for that is not installed.
#
#   TlsStoreTest.sh MACREWRITED MACREWRITE
set -euo pipefail

for program in openssl redis-server stunnel4 python3; do
  command -v "$program" > /dev/null || exit 77
done
macrewrited=$1 macrewrite=$2
folder=$(mktemp -d)
trap 'kill $(jobs -p) 2> /dev/null || true; wait; rm -r "$folder"' EXIT
cd "$folder"

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=authority \
  -keyout ca.key -out ca.crt 2> /dev/null
openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=redis.example \
  -addext subjectAltName=DNS:redis.example -keyout redis.key -out redis.csr 2> /dev/null
openssl x509 -req -in redis.csr -CA ca.crt -CAkey ca.key -CAcreateserial -days 2 -copy_extensions copy \
  -out redis.crt 2> /dev/null
# Free ones of this machine: the server's and the proxy's.
read -r far near <<< "$(python3 -c '
import socket
all = [socket.create_server(("127.0.0.1", 0)) for _ in range(2)]
print(*(each.getsockname()[1] for each in all))')"
redis-server --port 0 --tls-port "$far" --bind 127.0.0.1 --tls-cert-file redis.crt --tls-key-file redis.key \
  --tls-ca-cert-file ca.crt --tls-auth-clients no --save '' > redis.log &

# proxy NAME: only a server with a certificate for that name is talked to.
proxy() {
  cat > proxy.conf << EOF
foreground = yes
[redis]
client = yes
accept = 127.0.0.1:$near
connect = 127.0.0.1:$far
CAfile = $folder/ca.crt
verifyChain = yes
checkHost = $1
EOF
  stunnel4 proxy.conf 2> proxy.log &
  proxy=$!
}
# Until the command's output has the text, 10 s at most.
until_says() {
  local text=$1
  shift
  for ((i = 0; i < 200; ++i)); do
    if grep -q "$text" <<< "$("$@" 2>&1 || true)"; then return; fi
    sleep 0.05
  done
  echo "$*: not '$text':" >&2
  "$@" >&2 || true
  tail redis.log proxy.log service.log >&2
  exit 1
}
database=redis://127.0.0.1:$near
line='vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac 02:00:00:00:00:01'

proxy redis.example
until_says '^0$' "$macrewrite" --database "$database" 'show running-config | count'
"$macrewrite" --database "$database" "$line"
"$macrewrited" --state state --control control --table model --database "$database" 2> service.log &
until_says 'store .* current' "$macrewrite" --socket control status
until_says "$line" "$macrewrite" --socket control show running-config

kill "$proxy"
wait "$proxy" || true
until_says 'store .* away' "$macrewrite" --socket control status
status=0
"$macrewrite" --socket control "no $line" 2> /dev/null || status=$?
((status == 1))
# A server that cannot prove its name is none.
proxy other.example
until_says 'certificate verify failed' cat proxy.log
until_says 'store .* away' "$macrewrite" --socket control status
status=0
"$macrewrite" --database "$database" show running-config 2> /dev/null || status=$?
((status == 4))
kill "$proxy"
wait "$proxy" || true

proxy redis.example
until_says 'store .* current' "$macrewrite" --socket control status
"$macrewrite" --socket control "no $line"
until_says '^0$' "$macrewrite" --database "$database" 'show running-config | count'
