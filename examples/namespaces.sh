# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# For the examples on a network: namespaces that go with the script, also when it is interrupted or
# killed, and what runs in them. Sourced.

# Runs the script again with `--inside ARGUMENT`, in namespaces of its own. Status 3 without the right
# to make them.
enter() { # WHAT ARGUMENT
  if ((EUID != 0)); then
    echo "$1: run it as root" >&2
    exit 3
  fi
  exec unshare --net --mount --pid --fork --kill-child --mount-proc "$(realpath "$0")" --inside "$2"
}

# Network namespaces by name, each with the loopback device up.
declare -A namespace
make_namespaces() { # NAMES...
  local name own
  trap 'exit 130' INT TERM HUP
  # Seen by the script and its children alone.
  mount -t tmpfs none /run
  for name in "$@"; do
    unshare --net sleep infinity &
    namespace[$name]=$!
  done
  own=$(readlink /proc/self/ns/net)
  for name in "$@"; do
    while [[ $(readlink "/proc/${namespace[$name]}/ns/net") == "$own" ]]; do sleep 0.01; done
    # Its own frames, such as those that look for routers, are not what is to be counted here.
    in_ns "$name" sh -c 'echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6'
    in_ns "$name" ip link set lo up
  done
}
in_ns() { # NAME COMMAND...
  nsenter --net="/proc/${namespace[$1]}/ns/net" "${@:2}"
}
# The same in the background: $! is the command's own number.
in_ns_background() { # NAME COMMAND...
  nsenter --net="/proc/${namespace[$1]}/ns/net" "${@:2}" &
}
wire() { # NAME DEVICE NAME DEVICE [OPTIONS]
  in_ns "$1" ip link add "$2" "${@:5}" type veth peer name "$4" netns "${namespace[$3]}"
}
