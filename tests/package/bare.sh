#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs, runs, upgrades and purges the packages in a bare Debian, which is made for it and thrown away, and runs
# the service there under a systemd of its own. Needs root, and the package sources of this machine.
#
#   bare.sh FOLDER    where the .deb files are
set -euo pipefail

fail() {
  echo "packages: $*" >&2
  exit 1
}

packages() { # COMMAND PACKAGES...
  DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 --no-install-recommends "$@" > /dev/null
}

# within SECONDS COMMAND...: until the command succeeds.
within() {
  local until=$((SECONDS + $1))
  shift
  until "$@" > /dev/null 2>&1; do
    ((SECONDS < until)) || fail "not in time: $*"
    sleep 0.1
  done
}

# A switch with one VRF and one address.
one_line_is_a_row() {
  macrewrite << 'END'
host profile vxlan rewrite supported table-size 1000
host use profile vxlan
host vrf red id 7
host routing-status port Ethernet1 key-vlan 0 vlan 1006 vrf-id 7
host address 10.0.0.1 vrf-id 7 interface Ethernet1
host inputs complete
END
  within 10 macrewrite status
  rewrite_to 02:00:00:00:00:01
}

# The operator's one line, and its row.
rewrite_to() { # MAC
  macrewrite vxlan forwarding match vrf red src-ip 10.0.0.1 action rewrite src-mac "$1"
  shows_the_row "$1"
}

shows_the_row() { # MAC
  macrewrite show vxlan forwarding src-mac rewrite | grep -q "10\.0\.0\.1 .*$1" || fail 'there is no row'
}

# --- In the bare system, as its root ----------------------------------------------------------------

# The lab and its companions, where nothing may be written but in the folder for temporary files.
programs_run() {
  cd /proc
  setpriv --reuid nobody macrewrite-lab demo | tail -n +2 > /tmp/printed
  diff /usr/share/macrewrite/examples/leaf1/expected.txt /tmp/printed
  setpriv --reuid nobody macrewrite-lab -c 'show version'
  macrewrite-kernel --version
  for page in man1/macrewrite-lab.1 man1/macrewrited.1 man1/macrewrite.1 man1/macrewrite-kernel.1 man7/macrewrite-language.7; do
    test -e "/usr/share/man/$page.gz"
  done
  test -e /usr/share/doc/macrewrite-doc/html/index.html
  for completions in /usr/share/bash-completion/completions/macrewrite*; do
    bash -n "$completions"
  done
  cd /
}

# What the service needs is in its place, and the program runs without a manager of services.
service_runs_by_hand() {
  local service
  for file in /lib/systemd/system/macrewrited.service /lib/systemd/system/macrewrited.socket \
    /usr/lib/sysusers.d/macrewrite.conf /usr/lib/tmpfiles.d/macrewrite.conf /usr/share/macrewrite/service/kernel.conf; do
    test -e "$file" || fail "there is no $file"
  done
  dpkg-query -W -f '${Conffiles}\n' macrewrited | grep -q '^ /etc/macrewrite/macrewrited.toml '
  getent passwd macrewrite > /dev/null || fail 'there is no user macrewrite'
  for directory in /run/macrewrite /var/lib/macrewrite; do
    [[ $(stat -c '%U %a' "$directory") == 'macrewrite 755' ]] || fail "$directory is not the service's"
  done
  # What it ignores, it only prints.
  if systemd-analyze verify --man=no /lib/systemd/system/macrewrited.service 2>&1 | grep .; then exit 1; fi

  local -a as_service=(setpriv --reuid macrewrite --regid macrewrite --clear-groups)
  "${as_service[@]}" macrewrited --config /etc/macrewrite/macrewrited.toml --check
  "${as_service[@]}" macrewrited --config /etc/macrewrite/macrewrited.toml --table model 2> /tmp/log &
  service=$!
  within 10 test -S /run/macrewrite/control
  if macrewrite status; then fail 'a service without inputs says that it is ready'; fi
  one_line_is_a_row
  macrewrite status --support /tmp/case.txt
  grep -q '02:00:00:00:00:01' /tmp/case.txt
  kill "$service"
  wait "$service" || fail "the service ended with status $?"
}

inside() {
  packages install /packages/old/*.deb
  dpkg-query -W -f '${Version}\n' macrewrite-lab | grep -q 'old$'
  echo '# a line of the administrator' >> /etc/macrewrite/macrewrited.toml
  cd /
  packages install ./build/package/*.deb
  if dpkg-query -W -f '${Version}\n' 'lib*macrewrite*' 'libkiv*' 'macrewrite*' | grep 'old$'; then exit 1; fi
  grep -q 'line of the administrator' /etc/macrewrite/macrewrited.toml || fail 'the configuration was replaced'
  programs_run
  service_runs_by_hand
  rm -r /tmp/*
  packages install systemd-sysv dbus
  # The checks under systemd are a unit, after whose end the system ends, with a status that says how.
  cat > /etc/systemd/system/bare.service << 'END'
[Unit]
After=multi-user.target
SuccessAction=exit
SuccessActionExitStatus=0
FailureAction=exit
FailureActionExitStatus=1
[Service]
Type=oneshot
Environment=TERM=dumb
ExecStart=/packages/bare.sh --booted
StandardOutput=file:/packages/booted.log
StandardError=inherit
[Install]
WantedBy=multi-user.target
END
  systemctl enable bare.service
}

# --- Under systemd ----------------------------------------------------------------------------------

unit() { # PROPERTY [UNIT]
  systemctl show -P "$1" "${2:-macrewrited.service}"
}

another_process_is_ready() { # THAN
  [[ $(unit MainPID) != "$1" && $(unit MainPID) != 0 ]] && macrewrite status
}

booted() {
  local before watched socket
  trap 'journalctl --no-pager -u macrewrited -n 20' EXIT
  within 10 macrewrite status
  macrewrite status
  [[ $(unit ActiveState) == active && $(unit Type) == notify ]] || fail "the service is $(unit ActiveState)"
  [[ $(unit ActiveState macrewrited.socket) == active ]] || fail 'the socket is not there'
  [[ $(stat -c '%U:%G %a' /run/macrewrite/control) == 'macrewrite:macrewrite 660' ]] || fail 'the rights of the socket'
  # The store has outlived the process that ran without systemd.
  shows_the_row 02:00:00:00:00:01
  [[ $(unit StatusText) == running ]] || fail "its status is $(unit StatusText)"
  before=$(unit MainPID)
  rewrite_to 02:00:00:00:00:02
  systemctl --no-pager status macrewrited.socket macrewrited.service
  [[ $(unit MainPID) == "$before" && $(unit NRestarts) == 0 ]] || fail 'it was restarted'
  journalctl --no-pager -u macrewrited -o cat MACREWRITE_MESSAGE=BFN_MAC_REWRITE_SERVICE_STATE | grep -q running ||
    fail 'no message with its fields in the journal'

  echo '--- killed'
  kill -9 "$before"
  within 10 another_process_is_ready "$before"
  shows_the_row 02:00:00:00:00:02
  [[ $(unit NRestarts) == 1 ]] || fail 'it was not restarted once'

  echo '--- reached through its socket'
  systemctl stop macrewrited.service
  [[ $(unit Result) == success ]] || fail "it was stopped with $(unit Result)"
  [[ $(unit ActiveState) == inactive && $(unit ActiveState macrewrited.socket) == active ]] || fail 'no socket without it'
  within 10 macrewrite status
  [[ $(unit ActiveState) == active ]] || fail 'the socket has not started it'
  shows_the_row 02:00:00:00:00:02

  echo '--- watched'
  mkdir -p /etc/systemd/system/macrewrited.service.d
  printf '[Service]\nWatchdogSec=1\n' > /etc/systemd/system/macrewrited.service.d/watchdog.conf
  systemctl daemon-reload
  systemctl restart macrewrited
  within 10 macrewrite status
  before=$(unit MainPID)
  watched=$(unit WatchdogTimestampMonotonic)
  sleep 2.5
  [[ $(unit MainPID) == "$before" ]] || fail 'it was ended, though it runs'
  [[ $(unit WatchdogTimestampMonotonic) != "$watched" ]] || fail 'the watchdog is not fed'
  kill -STOP "$before"
  within 10 another_process_is_ready "$before"
  shows_the_row 02:00:00:00:00:02
  rm -r /etc/systemd/system/macrewrited.service.d
  systemctl daemon-reload

  echo '--- with its rows in the kernel'
  local status=0
  macrewrite-lab --table kernel:/run/probe -c 'show chip' > /dev/null || status=$?
  if ((status == 3)); then
    echo 'skipped: no rows in the kernel of this machine'
  else
    ((status == 0)) || fail "the lab ended with status $status"
    install -D -t /etc/systemd/system/macrewrited.service.d /usr/share/macrewrite/service/kernel.conf
    echo 'table = "kernel"' >> /etc/macrewrite/macrewrited.toml
    systemctl daemon-reload
    systemctl restart macrewrited
    within 10 macrewrite status
    macrewrite status | grep -q '^table *kernel:/run/macrewrite/table$' || fail 'the table is another one'
    shows_the_row 02:00:00:00:00:02
    before=$(unit MainPID)
    kill -9 "$before"
    within 10 another_process_is_ready "$before"
    shows_the_row 02:00:00:00:00:02
    systemctl stop macrewrited
    macrewrite-kernel /run/macrewrite/table show | grep '^1 row' || fail 'the rows have gone with the process'
    systemctl start macrewrited
  fi

  echo '--- with a configuration that is wrong'
  cp /etc/macrewrite/macrewrited.toml /tmp
  echo 'nonsense = 1' >> /etc/macrewrite/macrewrited.toml
  systemctl restart macrewrited || true
  sleep 2.5
  (($(unit NRestarts) < 4)) || fail "it was started $(unit NRestarts) times"
  mv /tmp/macrewrited.toml /etc/macrewrite
  within 10 macrewrite status

  echo '--- upgraded while it runs'
  before=$(unit MainPID)
  socket=$(unit ActiveEnterTimestampMonotonic macrewrited.socket)
  packages install --reinstall /build/package/macrewrited_*.deb
  within 10 another_process_is_ready "$before"
  [[ $(unit ActiveEnterTimestampMonotonic macrewrited.socket) == "$socket" ]] || fail 'the socket was closed by the upgrade'
  shows_the_row 02:00:00:00:00:02

  echo '--- purged'
  rm -rf /etc/systemd/system/macrewrited.service.d
  packages purge libkiv1 'libbfnmacrewrite*' 'macrewrite*'
  [[ $(unit LoadState) == not-found ]] || fail 'the unit has stayed'
  if mountpoint -q /run/macrewrite/table; then fail 'rows have stayed in the kernel'; fi
  find / -xdev \( -iname '*macrewrite*' -o -name 'libKiv*' \) -not -path '/packages*' -not -path '/build/*' \
    -not -path '/var/cache/apt/*' -not -path '/var/log/*' > /packages/left
  [[ ! -s /packages/left ]] || fail "what is left: $(cat /packages/left)"
  trap - EXIT
  echo 'under systemd: ok'
}

case ${1-} in
  --inside) inside && exit ;;
  --booted) booted && exit ;;
esac

# --- Outside ----------------------------------------------------------------------------------------

folder=$(realpath "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
root=$scratch/root
mkdir "$scratch/old"
for package in "$folder"/*.deb; do
  [[ $package != *-dbgsym_* ]] || continue
  # The same as an earlier version: what depends on it by its version does so, too.
  version=$(dpkg-deb --field "$package" Version)
  rm -rf "$scratch/unpacked"
  dpkg-deb --raw-extract "$package" "$scratch/unpacked"
  sed -i "s/${version//./\\.}/$version~old/g" "$scratch/unpacked/DEBIAN/control"
  [[ ! -e $scratch/unpacked/DEBIAN/symbols ]] || sed -i "s/${version//./\\.}$/$version~old/" "$scratch/unpacked/DEBIAN/symbols"
  dpkg-deb --root-owner-group --build "$scratch/unpacked" "$scratch/old" > /dev/null
done
rm -r "$scratch/unpacked"
# shellcheck source=/dev/null
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
mapfile -t places < <(find /etc/apt/sources.list /etc/apt/sources.list.d -name 'debian.sources' -o -name 'sources.list' -size +0)
script=$(realpath "$0")
# shellcheck disable=SC2016  # the hook's shell expands it
mmdebstrap --quiet --variant=apt --mode=root --skip=cleanup/apt/lists \
  --customize-hook="mkdir -p \"\$1/packages\" \"\$1/build\" && cp -r $scratch/old $script \"\$1/packages\" &&
    cp -r $folder \"\$1/build/package\"" \
  --customize-hook='chroot "$1" /packages/bare.sh --inside' \
  "$suite" "$root" "${places[@]}"
echo 'packages: installed, run and upgraded'

# A system of its own, in a control group of its own.
group=bare-$$
mapfile -t hierarchies < <(awk '$3 == "cgroup2" || $4 ~ /name=systemd/ { print $2 }' /proc/mounts)
for hierarchy in "${hierarchies[@]}"; do
  mkdir "$hierarchy/$group"
done
status=0
(
  for hierarchy in "${hierarchies[@]}"; do
    echo "$BASHPID" > "$hierarchy/$group/cgroup.procs"
  done
  exec timeout 300 systemd-nspawn --quiet --register=no --keep-unit --private-network --capability=CAP_BPF,CAP_NET_ADMIN,CAP_PERFMON \
    --system-call-filter=bpf --directory="$root" --boot \
    < /dev/null > "$scratch/boot.log" 2>&1
) || status=$?
for hierarchy in "${hierarchies[@]}"; do
  find "$hierarchy/$group" -depth -type d -exec rmdir {} + || true
done
if [[ ! -e $root/packages/booted.log ]]; then
  tail -n 5 "$scratch/boot.log"
  echo 'packages: ok; skipped: the service under systemd, which could not be started on this machine'
  exit
fi
cat "$root/packages/booted.log"
((status == 0)) || fail "under systemd: status $status"
echo 'packages: ok'
