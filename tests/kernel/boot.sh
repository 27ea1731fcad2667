#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Boots Debian's stock kernel in QEMU, without acceleration, and runs programs in it: this machine's
# files, read-only, below another kernel. Kernel and initial file system are made below build/.
#
# usage: tests/kernel/boot.sh PROGRAM [ARGUMENTS...]
#
# Exit status: the program's; 125 when the kernel could not be booted.
# environment:
#   KERNEL_TEST_SECONDS  how long it may take (600)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

tree=$PWD/build/kernel-test
# What the suite needs that is a module in Debian's kernel; those it depends on are found.
modules=(virtio_pci 9pnet_virtio 9p veth vxlan bridge sch_ingress cls_bpf dummy)

# The newest kernel of the distribution, unpacked and not installed.
fetch_kernel() {
  local package
  package=$(apt-cache depends linux-image-amd64 | sed -nE 's/^ *Depends: (linux-image-[0-9].*)/\1/p' | head -n 1)
  [[ -n $package ]] || { echo "boot: apt knows no linux-image-amd64 (apt-get update?)" >&2; return 1; }
  [[ ! -f $tree/$package/whole ]] || { echo "$tree/$package"; return; }
  rm -rf "${tree:?}/$package"
  mkdir -p "$tree/$package"
  (cd "$tree/$package" && apt-get -q download "$package" >&2 && dpkg-deb -x ./*.deb . && rm ./*.deb && touch whole) || return
  echo "$tree/$package"
}

# An initial file system of busybox and the modules, which runs /init.
pack_initrd() { # ROOT VERSION
  local root=$1 version=$2 made=$tree/initrd module file
  rm -rf "$made"
  mkdir -p "$made"/{bin,dev,proc,sys,host,modules}
  cp "$(command -v busybox)" "$made/bin/busybox"
  ln -s busybox "$made/bin/sh"
  [[ -f $root/lib/modules/$version/modules.dep ]] || depmod -b "$root" "$version"
  for module in "${modules[@]}"; do
    modprobe -d "$root" -S "$version" --show-depends "$module"
  done | sed -nE 's/^insmod ([^ ]+).*/\1/p' | awk '!seen[$0]++' > "$tree/modules"
  while read -r file; do
    cp "$file" "$made/modules/"
    basename "$file"
  done < "$tree/modules" > "$made/modules/order"
  cat > "$made/init" << 'END'
#!/bin/sh
b=/bin/busybox
echo "boot: begins"
$b mount -t proc proc /proc
$b mount -t sysfs sys /sys
$b mount -t devtmpfs dev /dev
while read -r module; do $b insmod "/modules/$module" || echo "boot: no $module"; done < /modules/order
$b mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144,cache=loose,ro host /host || echo "boot: no files"
for each in tmp run mnt var/tmp; do $b mount -t tmpfs tmpfs "/host/$each"; done
$b mount -t proc proc /host/proc
$b mount -t sysfs sys /host/sys
$b mount -t devtmpfs dev /host/dev
$b ip link set lo up
# Not chroot, in which a process may have no user namespace of its own.
command=$($b cat /command)
exec $b switch_root /host /bin/bash -c "($command); echo \"boot: status \$?\"; exec busybox poweroff -f"
END
  chmod +x "$made/init"
  { printf 'cd %q && PATH=/usr/sbin:/usr/bin:/sbin:/bin exec' "$PWD"; printf ' %q' "${@:3}"; } > "$made/command"
  (cd "$made" && find . -print0 | cpio --quiet -0 -o -H newc | gzip -1) > "$tree/initrd.gz"
}

main() {
  local root version log=$tree/log status
  mkdir -p "$tree"
  root=$(fetch_kernel) || exit 125
  version=$(basename "$root"/lib/modules/*)
  pack_initrd "$root" "$version" "$@"
  echo "boot: Linux $version"
  timeout "${KERNEL_TEST_SECONDS:-600}" qemu-system-x86_64 -accel tcg,thread=multi -cpu max -smp 2 -m 2048 \
    -nodefaults -no-user-config -nographic -no-reboot -serial stdio \
    -kernel "$root/boot/vmlinuz-$version" -initrd "$tree/initrd.gz" \
    -append 'console=ttyS0 quiet panic=-1 no_timer_check mitigations=off' \
    -fsdev local,id=host,path=/,security_model=none,readonly=on,multidevs=remap \
    -device virtio-9p-pci,fsdev=host,mount_tag=host < /dev/null |
    sed -unE 's/\r//g; s/^.*(boot: begins)/\1/; /boot: begins/,$p' | tee "$log" || true
  status=$(sed -nE 's/^boot: status ([0-9]+)$/\1/p' "$log")
  [[ -n $status ]] || { echo "boot: the kernel did not come to the end" >&2; exit 125; }
  exit "$status"
}

main "$@"
