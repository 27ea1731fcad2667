#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Runs the lab over a table of its own in the kernel, in namespaces that go with it. Status 3, by
# which a test counts as skipped, where they may not be made.
#
#   on-kernel.sh LAB ARGUMENTS...    ARGUMENTS: the lab's, beside --table
unshare --net --mount true || {
  echo "on-kernel.sh: namespaces of its own are refused"
  exit 3
}
# shellcheck disable=SC2016  # the inner shell expands these
exec unshare --net --mount sh -c 'mount -t tmpfs none /run && exec "$0" --table kernel:/run/table "$@"' "$@"
