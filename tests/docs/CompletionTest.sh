#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What bash completes for the programs, from the generated files.
#
#   CompletionTest.sh FOLDER    where macrewrite-lab and the others are
set -euo pipefail
for file in "$1"/*; do
  # shellcheck source=/dev/null
  source "$file"
done
program=macrewrite-lab

# completes "EXPECTED" WORDS...: the last word is being typed.
completes() {
  local expected=$1
  shift
  COMP_WORDS=("$program" "$@")
  COMP_CWORD=$#
  "_${program//-/_}" || true
  local found="${COMPREPLY[*]-}"
  if [[ $found != "$expected" ]]; then
    echo "${*@Q}: expected '$expected', found '$found'" >&2
    exit 1
  fi
}

completes '--keep-going' --keep
completes 'dump' -c du
completes "dump capability dump chip dump config" -c "'dump c"
completes 'chip waiting off chip waiting on' -c '"chip waiting o'
completes 'show vxlan forwarding src-mac rewrite vrf red src-ip 10.0.0.1 cli-testing' -c \
  "'show vxlan forwarding src-mac rewrite vrf red src-ip 10.0.0.1 cli"
completes '' -c "'host vrf "
completes '' -c "'nothing of "
cd "$(mktemp -d)"
touch one.lab two.lab
completes 'one.lab' on
completes 'one.lab two.lab' --session-log ''
program=macrewrite
completes 'status store' st
completes 'complete incomplete' --json host inputs ''
completes 'retry' --socket /run/x agent ''
completes 'vrf' show vxlan forwarding src-mac rewrite v
completes 'audit' watch aud
# What a service refuses by name.
completes 'hits' chip clear ''
completes '' host agent ''
completes '' checkp
completes 'one.lab two.lab' load ''
completes '--database' --data
program=macrewrited
completes '--hash-seed' --hash
completes 'one.lab two.lab' --config ''
rm one.lab two.lab
rmdir "$PWD"
echo 'completions: ok'
