#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The service with its rows in the kernel, where its options put everything unless they are given. Skipped (77) where
# there may be no mounts of one's own, or no rows in the kernel.
#
#   DefaultPlacesTest.sh MACREWRITED MACREWRITE
set -euo pipefail

if [[ ${3-} != --inside ]]; then
  unshare --mount --net true 2> /dev/null || exit 77
  exec unshare --mount --net "$0" "$1" "$2" --inside
fi
mount -t tmpfs tmpfs /run
mount -t tmpfs tmpfs /var/lib
"$1" --table kernel 2> /run/log &
service=$!
for ((i = 0; i < 200; ++i)); do
  status=0
  "$2" status > /run/status 2>&1 || status=$?
  ((status == 4)) || break
  if ! kill -0 "$service" 2> /dev/null; then
    wait "$service" || ended=$?
    cat /run/log
    ((ended != 3)) || exit 77
    exit 1
  fi
  sleep 0.05
done
cat /run/status
# There are no inputs yet.
((status == 1))
grep -q '^table *kernel:/run/macrewrite/table$' /run/status
mountpoint -q /run/macrewrite/table
kill "$service"
wait "$service"
