#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What bash completes for the lab, from the generated file.
#
#   CompletionTest.sh FILE
set -euo pipefail
# shellcheck source=/dev/null
source "$1"

# completes "EXPECTED" WORDS...: the last word is being typed.
completes() {
  local expected=$1
  shift
  COMP_WORDS=(macrewrite-lab "$@")
  COMP_CWORD=$#
  _macrewrite_lab || true
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
rm one.lab two.lab
rmdir "$PWD"
echo 'completions: ok'
