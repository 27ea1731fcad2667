#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs, runs, upgrades and purges the packages in a bare Debian, which is made for it and thrown away.
# Needs root, and the package sources of this machine.
#
#   bare.sh FOLDER    where the .deb files are
set -euo pipefail

if [[ ${1-} == --inside ]]; then
  # In the bare system, as its root, with two versions of the packages.
  cd /packages
  export DEBIAN_FRONTEND=noninteractive
  find / -xdev -not -path '/packages*' | sort > /before

  apt-get -q -y --no-install-recommends install ./old/*.deb
  dpkg-query -W -f '${Version}\n' macrewrite-lab | grep -q 'old$'
  apt-get -q -y --no-install-recommends install ./new/*.deb
  if dpkg-query -W -f '${Version}\n' 'lib*macrewrite*' 'libkiv*' 'macrewrite*' | grep 'old$'; then exit 1; fi

  # A user's first commands, where nothing may be written but in the folder for temporary files.
  cd /proc
  setpriv --reuid nobody macrewrite-lab demo | tail -n +2 > /printed
  diff /usr/share/macrewrite/examples/leaf1/expected.txt /printed
  setpriv --reuid nobody macrewrite-lab -c 'show version'
  macrewrite-kernel --version
  test -e /usr/share/man/man1/macrewrite-lab.1.gz
  test -e /usr/share/man/man7/macrewrite-language.7.gz
  test -e /usr/share/doc/macrewrite-doc/html/index.html
  bash -n /usr/share/bash-completion/completions/macrewrite-lab

  apt-get -q -y purge 'libkiv1' 'libbfnmacrewrite*' 'macrewrite-*'
  apt-get -q -y purge --autoremove
  if find / -xdev \( -iname '*macrewrite*' -o -name 'libKiv*' \) -not -path '/packages*' -not -path '/tmp/*' \
    -not -path '/var/cache/apt/*' | grep .; then exit 1; fi
  echo 'packages: ok'
  exit
fi

folder=$(realpath "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/new" "$scratch/old"
for package in "$folder"/*.deb; do
  [[ $package != *-dbgsym_* ]] || continue
  cp "$package" "$scratch/new"
  # The same as an earlier version: what depends on it by its version does so, too.
  version=$(dpkg-deb --field "$package" Version)
  rm -rf "$scratch/unpacked"
  dpkg-deb --raw-extract "$package" "$scratch/unpacked"
  sed -i "s/${version//./\\.}/$version~old/g" "$scratch/unpacked/DEBIAN/control"
  [[ ! -e $scratch/unpacked/DEBIAN/symbols ]] || sed -i "s/${version//./\\.}$/$version~old/" "$scratch/unpacked/DEBIAN/symbols"
  dpkg-deb --root-owner-group --build "$scratch/unpacked" "$scratch/old" > /dev/null
done
cp "$(realpath "$0")" "$scratch/bare.sh"
# shellcheck source=/dev/null
suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
mapfile -t places < <(find /etc/apt/sources.list /etc/apt/sources.list.d -name 'debian.sources' -o -name 'sources.list' -size +0)
# shellcheck disable=SC2016  # the hook's shell expands it
mmdebstrap --quiet --variant=apt --mode=root --format=null --skip=cleanup/apt/lists \
  --customize-hook="mkdir \"\$1/packages\" && cp -r $scratch/. \"\$1/packages\"" \
  --customize-hook='chroot "$1" /packages/bare.sh --inside' \
  "$suite" - "${places[@]}"
